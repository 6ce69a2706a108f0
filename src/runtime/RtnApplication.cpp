#include "runtime/RtnApplication.h"

#include <cstring>

#include "render/ScnFramebuffer.h"

ScnNodeType RtnApplication::s_type;
uint8_t RtnApplication::s_header[kHeaderSize] = {};
const char* const RtnApplication::kDefaultInclude = "//global include for a all OpenCL programs \n\n";

static const ScnSFString* s_publishedInclude = nullptr;

const std::string& RtnApplication::currentInclude()
{
    static const std::string none;
    return s_publishedInclude ? s_publishedInclude->value : none;
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
    if (!viewpoints.values.empty()) camera.node.worldMatrix = viewpoints.values[0];
    s_publishedInclude = &include;
}

void RtnApplication::write(ScnOutStream& out) const
{
    uint32_t version = ScnFile::kCurrentVersion;
    std::memcpy(s_header, &version, 4);
    out.write(s_header, kHeaderSize);
    ScnNode* savedRoot = RtnMFRef::s_root;
    RtnMFRef::s_root = const_cast<RtnApplication*>(this);
    ScnGroup::write(out);
    RtnMFRef::s_root = savedRoot;
}

RtnApplication* RtnApplication::readBytes(const std::vector<uint8_t>& bytes, const std::string& path,
                                          std::string& error)
{
    // The header block and the root are only published when the read succeeds.
    uint8_t savedHeader[kHeaderSize];
    std::memcpy(savedHeader, s_header, kHeaderSize);
    uint32_t savedVersion = ScnFile::formatVersion;
    ScnNode* savedRoot = RtnMFRef::s_root;
    const ScnSFString* savedInclude = s_publishedInclude;

    auto* app = new RtnApplication();
    ScnInStream in(bytes);
    if (bytes.size() < kHeaderSize) in.fail("shorter than the 256-byte header");
    app->read(in);
    if (!in.failed() && !in.atEnd()) in.fail("unexpected data after the document");
    if (in.failed()) {
        error = scnDamageMessage(path, in);
        std::memcpy(s_header, savedHeader, kHeaderSize);
        ScnFile::formatVersion = savedVersion;
        delete app;
        RtnMFRef::s_root = savedRoot;
        s_publishedInclude = savedInclude;
        return nullptr;
    }
    RtnMFRef::s_root = savedRoot ? savedRoot : app;
    return app;
}

RtnApplication* RtnApplication::readFile(const std::string& path, std::string& error)
{
    std::vector<uint8_t> bytes;
    if (!scnReadFileBytes(path, bytes, error)) return nullptr;
    RtnApplication* app = readBytes(bytes, path, error);
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
