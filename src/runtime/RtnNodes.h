// The design side of scripts: the Scripts group, processors and registers.
#pragma once

#include "node/RtnFields.h"
#include "node/ScnMFFunction.h"
#include "node/ScnNode.h"

class RtnProcessor;

class RtnGroup : public ScnGroup {
    SCN_NODE(RtnGroup, ScnGroup)
public:
    RtnGroup();
    // Published as a script global; the global stays until the next tree
    // overwrites it.
    void onCreate(ScnAction& action) override;
};

// A node with a position in the editor's graph view.
class RtnNode : public ScnNode {
    SCN_NODE(RtnNode, ScnNode)
public:
    RtnNode() = default;
    ScnSF<int> x{this, "X", 0};
    ScnSF<int> y{this, "Y", 0};
    ScnSF<int> textX{this, "textX", 0};
    ScnSF<int> textY{this, "textY", 0};
};

class RtnRegister : public ScnNode {
    SCN_NODE(RtnRegister, ScnNode)
public:
    RtnRegister();

    enum { OnTime = 0, OnDeposit = 1, OnRemove = 2 };

    ScnSF<int> index{this, "", 0};
    ScnMFFunction functions{this, ""};
    RtnMFRef marking{this, "marking"};
    ScnSF<int> unused{this, "", 1};

    // Adds the three functions every register has, with no code.
    void addDefaultFunctions();

    // Adds a design node as a token: the first token gives the register its
    // class's events; the twin goes into the run-time register with events on.
    void deposit(ScnNode* node);
    // Takes marking entry `i` out: the twin lets the token go with events on
    // (OnRemove runs), then the entry and its marking count go.
    void removeToken(int i);
    // Replaces the code and clears the modified flag.
    void setFunctionCode(int i, const std::string& text);
    // Compiles one function into the running register; false when it failed.
    bool compileFunction(int i);
    // The class of the first token, or the remembered one.
    const ScnNodeType* getTokenType();
    // Token passage between the design register and its twin.
    void depositAll(bool events);
    void removeAll(bool events);

    RtnProcessor* owner = nullptr;
    // The class of the first token; survives the removal of tokens.
    ScnNodeType tokenType{0, 1, "bad", nullptr, 0};
};

class RtnProcessor : public RtnNode {
    SCN_NODE(RtnProcessor, RtnNode)
public:
    static constexpr int kRegisters = RtnMFNode::kSlots;

    RtnProcessor();

    RtnMFNode colors{this, "colors"};
    ScnSFString luaglobal{this, "luaglobal"};

    enum { OnActivate = 3, OnDeactivate = 4 };

    RtnRegister* getRegister(int index) const;
    // A register with the three functions in a free slot, and its twin.
    RtnRegister* createRegister(int index);
    // Moves a register to a free slot, tokens and all, without events.
    bool moveRegister(int from, int to);
    // Removes the tokens with events on, then the register.
    void deleteRegister(RtnRegister* reg);
    void setGlobalScript(const std::string& text);
    const std::string& getGlobalScript() const { return luaglobal.value; }
    // Runs the global text in the twin's environment, then a full collection
    // unless `collect` is false: a build runs every processor's text and
    // collects once after all of them. False on failure (reported).
    bool runGlobalScript(bool collect = true);

    // The twin of a processor is a run-time processor, not a copy.
    ScnNode* instantiate() override;
    ScnNode* duplicate() override;
    void addEvents(ScnMFFunction& functions) override;
    void removeEvents(ScnMFFunction& functions) override;

    // Registers find their owner through the processor being read or written.
    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    static RtnProcessor* s_current;

    bool scriptChanged = false;
};
