// The document: the root of the design tree, saved as a .3Dm file. Its five
// branches are nodes held in its own fields, not in its child list.
#pragma once

#include <cstdint>
#include <string>

#include "compute/OclNodes.h"
#include "node/ScnNode.h"
#include "render/ScnCameraExamine.h"
#include "render/ScnWorld.h"
#include "runtime/RtnNodes.h"
#include "widgets/GuiRoot.h"

class RtnApplication : public ScnGroup {
    SCN_NODE(RtnApplication, ScnGroup)
public:
    static constexpr size_t kHeaderSize = 256;
    static constexpr int kViewpoints = 5;
    static const char* const kDefaultInclude;

    // A new application with the defaults: a "Main" processor, a camera with
    // a "framebuffer" child and five identity viewpoints.
    RtnApplication();
    ~RtnApplication() override;

    ScnSFNode<ScnWorld> openGL{this, "OpenGL"};
    ScnSFNode<RtnGroup> scripts{this, "Scripts"};
    ScnSFNode<GuiRoot> gui{this, "Gui"};
    ScnSFNode<OclDevice> openCL{this, "OpenCL"};
    ScnSFNode<ScnCameraExamine> camera{this, "Camera"};
    ScnMFMatrix viewpoints{this, "viewpoints"};
    ScnSFString luaglobal{this, "luaglobal"};
    ScnSFString include{this, "#include", kDefaultInclude};

    // Branches count as children: 0 world, 1 GUI, 2 OpenCL, 3 camera, 4 scripts.
    enum Branch { World = 0, Gui = 1, OpenCL = 2, Camera = 3, Scripts = 4, BranchCount = 5 };
    ScnNode* getChild(int index) override;
    int indexOfChild(const ScnNode* node) override;
    // The branches are fields, not a list.
    const ScnMFNodeBase* childList() const override { return nullptr; }

    // The 256-byte header in front of the fields, then the fields.
    void read(ScnInStream& in) override;
    void write(ScnOutStream& out) const override;

    // Reads a whole .3Dm. Null with a message naming the file when the file
    // cannot be read or is damaged; nothing that is open is touched then.
    static RtnApplication* readFile(const std::string& path, std::string& error);
    static RtnApplication* readBytes(const std::vector<uint8_t>& bytes, const std::string& path, std::string& error);
    // The same from an open stream: the whole of what remains is the document.
    static RtnApplication* readStream(ScnInStream& in, const std::string& path, std::string& error);
    bool writeFile(const std::string& path, std::string& error) const;
    std::vector<uint8_t> toBytes() const;

    // The header block as it stood after the last read (zeros before any).
    static uint8_t s_header[kHeaderSize];
    // The "#include" text of the present application, for program builds.
    static const std::string& currentInclude();
    // Makes this application's "#include" the present one.
    void publishInclude();

    // The application-global text; setting it marks it changed.
    void setGlobalScript(const std::string& text);
    const std::string& getGlobalScript() const { return luaglobal.value; }

    // Views: the run-time camera's matrix into a slot, and back. A slot that
    // holds the identity (or `keep`) takes the present view first.
    bool storeViewpoint(int index);
    bool recallViewpoint(int index, bool keep);

    // The processor list, kept alike in the design and the run-time tree.
    // A new processor is appended; its twin runs first until the next reset.
    RtnProcessor* addProcessor(const std::string& name);
    // Moves `p` before `before` (null: to the end) in both lists.
    bool moveProcessor(RtnProcessor* p, RtnProcessor* before);
    // Removes the processor's tokens with events, takes the processor out of
    // every other marking (OnRemove runs there), then deletes it.
    void deleteProcessor(RtnProcessor* p);
    // Takes `node` and every node below it out of every marking of every
    // processor, with events on, so that no token queue or path is left
    // holding a node that is about to go.
    void withdrawTokens(ScnNode* node);
    // The run-time registers that hold `node`'s twin let it go (`hold` false)
    // or take it again (`hold` true), with no events: for an edit that
    // replaces the twin of a node while it stands in markings.
    void passTokenTwins(ScnNode* node, bool hold);
    // The application whose markings are searched by the two above: the one
    // whose paths are resolved at present.
    static RtnApplication* current();
    RtnProcessor* processorAt(int index);
    int indexOfProcessor(RtnProcessor* p);
    int processorCount();

    std::string fileName;
    bool scriptChanged = false;

private:
    // Calls visit(register, entry, token) for every resolved marking entry,
    // processors in list order, registers by slot, entries from the back.
    template <class Visit>
    void forEachMarking(Visit visit);
};
