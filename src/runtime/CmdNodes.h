// The run-time side of scripts: the application twin, processors as places
// and registers holding tokens. Registers listen to their tokens, so an event
// of a node becomes a call of a Lua chunk in the environment of the processor
// that holds the token.
#pragma once

#include <string>

#include "node/FCTFunctor.h"
#include "node/ScnNode.h"
#include "runtime/BITSet.h"
#include "runtime/TokenQueue.h"

struct lua_State;
class CmdProcessor;
class CmdApplication;
class RtnApplication;
class RtnProcessor;
class RtnRegister;
class ScnMFFunction;
template <class T>
class ScnLuaClass;

class CmdRegister : public ScnNode {
public:
    static ScnNodeType s_type;
    const ScnNodeType* getType() const override { return &s_type; }

    // Makes the register's slot in the processor and its function table,
    // compiling every function and reporting those that fail.
    CmdRegister(CmdProcessor* processor, RtnRegister* design);
    ~CmdRegister() override;
    CmdRegister(const CmdRegister&) = delete;

    // Takes a token: a reference, the queue, the listener; OnDeposit if `events`.
    void deposit(ScnNode* token, bool events);
    // Lets a token go: OnRemove if `events`, while the token still hears its own events.
    void remove(ScnNode* token, bool events);
    // Runs event function `index` with `node` as `event`, restoring `event` after.
    void fire(int index, ScnNode* node);
    // Pushes OnTime and returns true when it is compiled and has not failed;
    // the processor's event sweep runs it once per frame with `event` the
    // oldest token. The function is kept in a registry reference of its own,
    // checked against the function list's version, so an unchanged register
    // costs one number read on the design side. Raises on memory errors: call
    // it under protection.
    bool pushTimeFunction(lua_State* L);
    // Reports the Lua message on top of the stack against this register and pops it.
    void reportFailure(lua_State* L);
    // Compiles one function again; false when it failed (reported).
    bool recompile(int index);

    int index() const { return m_index; }
    CmdProcessor* processor() const { return m_processor; }
    ScnMFFunction& functions() const { return *m_functions; }
    const TokenQueue& tokens() const { return m_tokens; }
    int functionTable() const { return m_tableRef; }
    // Releases the function references and the table.
    void releaseFunctions();

protected:
    ScnNode* makeCopy() const override { return nullptr; }

private:
    void onTokenEvent(int index, ScnNode* token);
    void report(const char* message);
    // Sets `event`, runs one function and restores `event`, all under protection.
    void run(int index, ScnNode* node);

    CmdProcessor* m_processor;
    int m_index;
    int m_tableRef = -1;
    ScnMFFunction* m_functions;
    uint32_t m_timeVersion = 0;  // the list's version m_timeRef was taken at
    int m_timeRef = 0;           // registry reference of OnTime, 0 for none
    FCTFunctor2V<CmdRegister, int, ScnNode*> m_listener{this, &CmdRegister::onTokenEvent};
    TokenQueue m_tokens;
};

class CmdProcessor : public ScnNode {
public:
    static ScnNodeType s_type;
    static ScnNode* factory() { return nullptr; }
    const ScnNodeType* getType() const override { return &s_type; }

    // The twin of a design processor: its Lua object, its environment and its
    // registers.
    explicit CmdProcessor(RtnProcessor* design);
    ~CmdProcessor() override;
    CmdProcessor(const CmdProcessor&) = delete;

    static void addLuaMethods(ScnLuaClass<CmdProcessor>& c);
    int luaSetActive(lua_State* L);
    void setActive(bool on);

    void onEvent(ScnAction& action) override;

    int environment() const { return m_envRef; }
    bool active = true;
    CmdApplication* application = nullptr;
    BITMap<CmdRegister*> registers;

protected:
    ScnNode* makeCopy() const override { return nullptr; }

private:
    int m_envRef = 0;
};

class CmdApplication : public ScnGroup {
public:
    static ScnNodeType s_type;
    static ScnNode* factory() { return nullptr; }
    const ScnNodeType* getType() const override { return &s_type; }

    // Builds the run-time tree of `design`: the branch twins, their create and
    // update walks, the processors' global texts, then one full collection.
    explicit CmdApplication(RtnApplication* design);
    // Deletes the branches; the caller has run destroyTree() first.
    ~CmdApplication() override;
    CmdApplication(const CmdApplication&) = delete;

    // A run-time tree is never copied.
    ScnNode* instantiate() override;
    ScnNode* duplicate() override;

    enum Branch { World = 0, Gui = 1, OpenCL = 2, Camera = 3, Scripts = 4, BranchCount = 5 };
    ScnNode* getChild(int index) override;
    int indexOfChild(const ScnNode* node) override;
    // The branches are fields, not a list.
    const ScnMFNodeBase* childList() const override { return nullptr; }
    ScnNode* branch(Branch b) const { return m_branches[b]; }

    // With `start` null over all branches, else along the path to `start`.
    void create(ScnNode* start);
    // `changed`: the field whose edit asks for the walk, or null.
    void update(ScnNode* start, ScnField* changed = nullptr);
    void destroy(ScnNode* start);
    // Releases the registers and runs the destroy walk: the first half of
    // taking the tree down.
    void destroyTree();

    // One frame in a view of width by height pixels (the render side's frame
    // step: events, render, scripts, display); returns the node a click chose.
    ScnNode* frameStep(int width, int height, bool showGui);

    RtnApplication* design;

protected:
    ScnNode* makeCopy() const override { return nullptr; }

private:
    void walkBranches(ScnAction& action, const Branch* order);
    ScnNode* m_branches[BranchCount] = {};
};
