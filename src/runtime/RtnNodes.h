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

    RtnRegister* getRegister(int index) const;

    // Registers find their owner through the processor being read or written.
    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;
    static RtnProcessor* s_current;

    bool scriptChanged = false;
};
