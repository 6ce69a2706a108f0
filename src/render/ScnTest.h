// A point cloud read from the workspace's "cloud.txt"; it stores nothing of
// its own but its name.
#pragma once

#include "node/ScnNode.h"

class ScnTest : public ScnNode {
    SCN_NODE(ScnTest, ScnNode)
public:
    ScnTest();
};
