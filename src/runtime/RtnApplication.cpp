#include "runtime/RtnApplication.h"

#include <cstring>
#include <memory>
#include <new>

#include "render/ScnFramebuffer.h"
#include "runtime/CmdNodes.h"

ScnNodeType RtnApplication::s_type;
uint8_t RtnApplication::s_header[kHeaderSize] = {};
const char* const RtnApplication::kDefaultInclude = "//global include for a all OpenCL programs \n\n";

static const ScnSFString* s_publishedInclude = nullptr;

const std::string& RtnApplication::currentInclude()
{
    static const std::string none;
    return s_publishedInclude ? s_publishedInclude->value : none;
}

void RtnApplication::publishInclude()
{
    s_publishedInclude = &include;
}

RtnApplication::RtnApplication()
{
    name = "page";
    scripts.node.append(new RtnProcessor());
    auto* fb = new ScnFramebuffer();
    // Every framebuffer read from a document has 2 in its first flag word;
    // the default one starts that way so that a new file reads back unchanged.
    fb->flags.value.w[0] = 2;
    camera.node.append(fb);
    viewpoints.values.assign(kViewpoints, ScnMatrix16{});
}

RtnApplication::~RtnApplication()
{
    if (s_publishedInclude == &include) s_publishedInclude = nullptr;
    if (RtnMFRef::s_root == this) RtnMFRef::s_root = nullptr;
}

ScnNode* RtnApplication::getChild(int index)
{
    switch (index) {
    case World: return &openGL.node;
    case Gui: return &gui.node;
    case OpenCL: return &openCL.node;
    case Camera: return &camera.node;
    case Scripts: return &scripts.node;
    default: return nullptr;
    }
}

int RtnApplication::indexOfChild(const ScnNode* node)
{
    for (int i = 0; i < BranchCount; ++i)
        if (getChild(i) == node) return i;
    return -1;
}

void RtnApplication::read(ScnInStream& in)
{
    uint8_t header[kHeaderSize];
    if (!in.read(header, kHeaderSize)) return;
    std::memcpy(s_header, header, kHeaderSize);
    uint32_t version;
    std::memcpy(&version, header, 4);
    ScnFile::formatVersion = version;
    RtnMFRef::s_root = this;
    ScnGroup::read(in);
    if (in.failed()) return;
    if (!viewpoints.values.empty()) camera.node.setMatrix(viewpoints.values[0]);
    s_publishedInclude = &include;
}

void RtnApplication::write(ScnOutStream& out) const
{
    uint32_t version = ScnFile::kCurrentVersion;
    std::memcpy(s_header, &version, 4);
    out.write(s_header, kHeaderSize);
    ScnNode* savedRoot = RtnMFRef::s_root;
    RtnPathIndex* savedIndex = RtnMFRef::s_saveIndex;
    RtnMFRef::s_root = const_cast<RtnApplication*>(this);
    // Token paths are rebuilt through one index for the whole save: each
    // list is walked once, not once per path.
    RtnPathIndex index;
    RtnMFRef::s_saveIndex = &index;
    ScnGroup::write(out);
    RtnMFRef::s_saveIndex = savedIndex;
    RtnMFRef::s_root = savedRoot;
}

RtnApplication* RtnApplication::readBytes(const std::vector<uint8_t>& bytes, const std::string& path,
                                          std::string& error)
{
    ScnInStream in(bytes);
    return readStream(in, path, error);
}

RtnApplication* RtnApplication::readStream(ScnInStream& in, const std::string& path, std::string& error)
{
    // The header block and the root are only published when the read succeeds.
    uint8_t savedHeader[kHeaderSize];
    std::memcpy(savedHeader, s_header, kHeaderSize);
    uint32_t savedVersion = ScnFile::formatVersion;
    ScnNode* savedRoot = RtnMFRef::s_root;
    const ScnSFString* savedInclude = s_publishedInclude;

    std::unique_ptr<RtnApplication> app;
    if (in.size() < kHeaderSize) in.fail("shorter than the 256-byte header");
    try {
        app = std::make_unique<RtnApplication>();
        app->read(in);
    } catch (const std::bad_alloc&) {
        // Sizes are checked against the file, but a huge file may still
        // declare more than memory holds.
        in.fail("more data than memory holds");
    }
    if (!in.failed() && !in.atEnd()) in.fail("unexpected data after the document");
    if (in.failed()) {
        error = scnDamageMessage(path, in);
        std::memcpy(s_header, savedHeader, kHeaderSize);
        ScnFile::formatVersion = savedVersion;
        app.reset();
        RtnMFRef::s_root = savedRoot;
        s_publishedInclude = savedInclude;
        return nullptr;
    }
    RtnMFRef::s_root = savedRoot ? savedRoot : app.get();
    return app.release();
}

RtnApplication* RtnApplication::readFile(const std::string& path, std::string& error)
{
    ScnInStream in;
    if (!in.openFile(path, error)) return nullptr;
    RtnApplication* app = readStream(in, path, error);
    if (app) app->fileName = path;
    return app;
}

std::vector<uint8_t> RtnApplication::toBytes() const
{
    ScnOutStream out;
    write(out);
    return std::move(out.bytes());
}

bool RtnApplication::writeFile(const std::string& path, std::string& error) const
{
    return scnWriteFileBytes(path, toBytes(), error);
}

// -- editing operations ---------------------------------------------------------

void RtnApplication::setGlobalScript(const std::string& text)
{
    luaglobal = text;
    scriptChanged = true;
}

static ScnCamera* runtimeCamera(RtnApplication& app)
{
    return dynamic_cast<ScnCamera*>(app.camera.node.twin());
}

bool RtnApplication::storeViewpoint(int index)
{
    ScnCamera* cam = runtimeCamera(*this);
    if (!cam || index < 0 || index >= static_cast<int>(viewpoints.values.size())) return false;
    viewpoints.values[index] = cam->worldMatrix;
    return true;
}

bool RtnApplication::recallViewpoint(int index, bool keep)
{
    ScnCamera* cam = runtimeCamera(*this);
    if (!cam || index < 0 || index >= static_cast<int>(viewpoints.values.size())) return false;
    ScnMatrix16& slot = viewpoints.values[index];
    if (slot.isIdentity() || keep) slot = cam->worldMatrix;
    cam->setMatrix(slot);
    return true;
}

RtnProcessor* RtnApplication::addProcessor(const std::string& processorName)
{
    auto* p = new RtnProcessor();
    p->name = processorName;
    scripts.node.append(p);
    if (ScnGroup* twinGroup = dynamic_cast<ScnGroup*>(scripts.node.twin())) {
        auto* cp = static_cast<CmdProcessor*>(p->instantiate());
        cp->application = dynamic_cast<CmdApplication*>(twin());
        twinGroup->addFirst(cp);
        if (cp->application) {
            cp->application->create(cp);
            cp->application->update(cp);
        }
    }
    return p;
}

bool RtnApplication::moveProcessor(RtnProcessor* p, RtnProcessor* before)
{
    if (!p || indexOfProcessor(p) < 0 || p == before) return false;
    if (before && indexOfProcessor(before) < 0) return false;
    scripts.node.insertBefore(p, before);
    auto* twinGroup = dynamic_cast<ScnGroup*>(scripts.node.twin());
    if (twinGroup && p->twin()) twinGroup->insertBefore(p->twin(), before ? before->twin() : nullptr);
    return true;
}

void RtnApplication::deleteProcessor(RtnProcessor* p)
{
    if (!p || indexOfProcessor(p) < 0) return;
    for (int r = 0; r < RtnProcessor::kRegisters; ++r)
        if (RtnRegister* reg = p->getRegister(r)) reg->removeAll(true);
    for (int r = 0; r < RtnProcessor::kRegisters; ++r)
        if (RtnRegister* reg = p->getRegister(r)) {
            for (int i = 0; i < reg->marking.count(); ++i)
                if (ScnNode* n = reg->marking.path(i).resolve())
                    if (n->markingCount) --n->markingCount;
            reg->marking.clear();
        }
    // Other registers may hold this processor (or one of its registers) as a
    // token: they let it go while it is still whole.
    withdrawTokens(p);
    if (ScnNode* t = p->twin()) {
        auto* app = dynamic_cast<CmdApplication*>(twin());
        if (app) app->destroy(t);
        if (auto* g = dynamic_cast<ScnGroup*>(scripts.node.twin())) g->remove(t);
        delete t;
    }
    scripts.node.remove(p);
    delete p;
}

namespace {

bool isBelow(const ScnNode* n, const ScnNode* top)
{
    for (; n; n = n->parent())
        if (n == top) return true;
    return false;
}

}  // namespace

RtnApplication* RtnApplication::current()
{
    return dynamic_cast<RtnApplication*>(RtnMFRef::s_root);
}

template <class Visit>
void RtnApplication::forEachMarking(Visit visit)
{
    ScnNode* savedRoot = RtnMFRef::s_root;
    RtnMFRef::s_root = this;
    for (ScnNode* n = scripts.node.firstChild(); n; n = n->next()) {
        auto* p = dynamic_cast<RtnProcessor*>(n);
        if (!p) continue;
        for (int r = 0; r < RtnProcessor::kRegisters; ++r) {
            RtnRegister* reg = p->getRegister(r);
            if (!reg) continue;
            // From the back, so that a removal does not move what is still to be seen.
            for (int i = reg->marking.count() - 1; i >= 0; --i) {
                if (i >= reg->marking.count()) continue;  // an OnRemove may have changed the marking
                if (ScnNode* t = reg->marking.path(i).resolve()) visit(reg, i, t);
            }
        }
    }
    RtnMFRef::s_root = savedRoot;
}

void RtnApplication::withdrawTokens(ScnNode* node)
{
    if (!node) return;
    forEachMarking([node](RtnRegister* reg, int i, ScnNode* t) {
        if (isBelow(t, node)) reg->removeToken(i);
    });
}

void RtnApplication::passTokenTwins(ScnNode* node, bool hold)
{
    if (!node || !node->markingCount) return;
    forEachMarking([node, hold](RtnRegister* reg, int, ScnNode* t) {
        auto* cr = dynamic_cast<CmdRegister*>(reg->twin());
        if (t != node || !cr || !t->twin()) return;
        if (hold)
            cr->deposit(t->twin(), false);
        else
            cr->remove(t->twin(), false);
    });
}

RtnProcessor* RtnApplication::processorAt(int index)
{
    return dynamic_cast<RtnProcessor*>(scripts.node.getChild(index));
}

int RtnApplication::indexOfProcessor(RtnProcessor* p)
{
    return p ? scripts.node.indexOfChild(p) : -1;
}

int RtnApplication::processorCount()
{
    return scripts.node.childCount();
}
