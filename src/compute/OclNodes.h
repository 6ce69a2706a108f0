// The nodes of the OpenCL branch: the device group, platforms, programs and
// file references.
#pragma once

#include <string>

#include "node/ScnNode.h"

namespace OclGlobal {
// Name of the current OpenCL context; "" while no context exists.
const std::string& currentContextName();
void setCurrentContextName(const std::string& name);
}

class OclDevice : public ScnGroup {
    SCN_NODE(OclDevice, ScnGroup)
public:
    OclDevice();
    // Published as a script global under its name; a rename moves it.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    void setName(const std::string& text) override;
};

class OclPlatform : public ScnGroup {
    SCN_NODE(OclPlatform, ScnGroup)
public:
    OclPlatform();
    // The context the children use; the current one at construction.
    ScnSFString platform{this, "platform", OclGlobal::currentContextName()};
};

class OclProgram : public ScnNode {
    SCN_NODE(OclProgram, ScnNode)
public:
    OclProgram();
    static const char* const kDefaultSource;
    ScnSFString source{this, "source", kDefaultSource};
};

class OclFileRef : public ScnNode {
    SCN_NODE(OclFileRef, ScnNode)
public:
    OclFileRef();
    ScnSFString source{this, ""};
};
