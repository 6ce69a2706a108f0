// The observable selection of the editor: application, processor, register,
// event function and node. Every change raises one event bit and calls the
// observers with the selection; the views never call each other.
#pragma once

#include <cstddef>
#include <vector>

#include "node/FCTFunctor.h"
#include "runtime/BITSet.h"

class ScnNode;
class RtnApplication;
class RtnProcessor;
class RtnRegister;

class RtnSelection {
public:
    enum Event : unsigned {
        ProcessorSelected = 0x1,
        ApplicationOpened = 0x2,
        RegisterSelected = 0x4,
        FunctionSelected = 0x8,
        ProcessorCleared = 0x10,
        ApplicationClosed = 0x20,
        RegisterCleared = 0x40,
        FunctionCleared = 0x80,
        TreeRebuilding = 0x100,
        TreeRebuilt = 0x200,
        NodeSelected = 0x400,
        NodeDeselected = 0x800,
        RunStateChanged = 0x1000,
        SaveComing = 0x2000,
    };
    static constexpr size_t kMaxObservers = 2000;
    using Observer = FCTFunctor1VBase<RtnSelection&>;

    static RtnSelection& instance();

    bool addObserver(Observer* o);
    void removeObserver(Observer* o);

    void setApplication(RtnApplication* app);
    void clearApplication();
    void setProcessor(RtnProcessor* p);
    void clearProcessor();
    void setRegister(RtnRegister* r);
    void clearRegister();
    void setFunction(int index);
    void clearFunction();
    // Raises 0x800 for the old node, then 0x400 for the new one.
    void setNode(ScnNode* node);
    void setRunState(int state);
    void saveComing();
    // Remembers and clears the node selection (0x100); restores it (0x200).
    void beginRebuild();
    void endRebuild();

    // True when the event being delivered has this bit.
    bool has(Event e) const { return bits.test(bitOf(e)); }

    RtnApplication* application = nullptr;
    RtnProcessor* processor = nullptr;
    RtnRegister* reg = nullptr;
    int function = -1;
    ScnNode* node = nullptr;
    ScnNode* keptNode = nullptr;  // the node kept over a rebuild
    int runState = 0;
    BITSet bits;

private:
    static int bitOf(Event e);
    void raise(Event e);
    std::vector<Observer*> m_observers;
};
