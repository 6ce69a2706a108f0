// The manipulators: the node that is spliced into the run-time tree in place
// of the selected node, which becomes its only child. One serves 3D nodes,
// one widgets. They store nothing beyond a group's fields.
#pragma once

#include "node/ScnNode.h"

class ManManipulator : public ScnGroup {
    SCN_NODE(ManManipulator, ScnGroup)
public:
    ManManipulator() = default;
};

class ManManipulator3D : public ManManipulator {
    SCN_NODE(ManManipulator3D, ManManipulator)
public:
    ManManipulator3D() = default;
};

class ManManipulatorGui : public ManManipulator {
    SCN_NODE(ManManipulatorGui, ManManipulator)
public:
    ManManipulatorGui() = default;
};
