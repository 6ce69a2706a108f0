// The nodes of the OpenCL branch: the device group, platforms, programs and
// file references.
#pragma once

#include <string>

#include "compute/OclGlobal.h"
#include "node/ScnNode.h"

class oclContext;
class oclProgram;
class oclKernel;
struct lua_State;
template <class T>
class ScnLuaClass;

// The root of the compute branch: it hands the current context to the nodes
// below, and every event sweep over it ends with the device idle.
class OclDevice : public ScnGroup {
    SCN_NODE(OclDevice, ScnGroup)
public:
    OclDevice();
    // Published as a script global under its name; a rename moves it.
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onEvent(ScnAction& action) override;
    void setName(const std::string& text) override;
};

// Gives its children the context named by `platform`.
class OclPlatform : public ScnGroup {
    SCN_NODE(OclPlatform, ScnGroup)
public:
    OclPlatform();
    // The context the children use; the current one at construction.
    ScnSFString platform{this, "platform", OclGlobal::currentContextName()};

    void onCreate(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;

private:
    oclContext* contextFor(bool report);
};

// What programs and file references share: one OpenCL C text compiled on
// the context that the traversal hands down, and the kernels it gives.
class OclSourceNode : public ScnNode {
public:
    OclSourceNode(const char* fieldName, const char* def);
    OclSourceNode(const OclSourceNode& other);
    ~OclSourceNode() override;

    ScnSFString source;

    virtual bool compile();
    virtual void release();
    // Tells the listeners (OnCompute of the registers holding this node).
    virtual void compute();

    oclProgram* program() const { return m_program; }
    oclContext* context() const { return m_context; }
    oclKernel* getKernel(const std::string& name) const;
    // Set by the code sheet after an edit: the next update recompiles.
    bool changed = false;

    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    int luaGetKernel(lua_State* L);
    int luaCompute(lua_State* L);

protected:
    // The include text in front of the node's own, or null for none.
    virtual const std::string* includeText() const = 0;
    virtual const char* kernelsCall() const = 0;
    bool updateContext(ScnAction& action);

    oclProgram* m_program = nullptr;
    oclContext* m_context = nullptr;
};

class OclProgram : public OclSourceNode {
    SCN_NODE(OclProgram, OclSourceNode)
public:
    OclProgram();
    static const char* const kDefaultSource;
    static void addLuaMethods(ScnLuaClass<OclProgram>& c);
    void onUpdate(ScnAction& action) override;

protected:
    const std::string* includeText() const override;
    const char* kernelsCall() const override { return "clCreateKernelsInProgram"; }
};

class OclFileRef : public OclSourceNode {
    SCN_NODE(OclFileRef, OclSourceNode)
public:
    OclFileRef();
    static void addLuaMethods(ScnLuaClass<OclFileRef>& c);
    void onUpdate(ScnAction& action) override;

protected:
    const std::string* includeText() const override { return nullptr; }
    const char* kernelsCall() const override { return "clCreateKernelsInFileRef"; }
};
