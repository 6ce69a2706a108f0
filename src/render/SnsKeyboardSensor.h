// Key events for scripts: the sensor's map names the keys it reports.
#pragma once

#include "node/ScnNode.h"

class SnsKeyboardSensor : public ScnNode {
    SCN_NODE(SnsKeyboardSensor, ScnNode)
public:
    SnsKeyboardSensor();

    static constexpr int kKeys = 256;
    // One entry per key code; an entry other than 0 asks for that key's events.
    ScnMFUInt map{this, "map", kKeys, 0u};
};
