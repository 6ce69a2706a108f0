// A node that stands for one algorithm of the plug-in library, named by its
// dotted type name.
#pragma once

#include "node/ScnNode.h"

class OclPlugin : public ScnNode {
    SCN_NODE(OclPlugin, ScnNode)
public:
    OclPlugin();

    // The dotted name of the plug-in type (the field "typename").
    ScnSFString typeName{this, "typename"};
};
