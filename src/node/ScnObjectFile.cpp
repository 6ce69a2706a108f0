// .3Do object files: u32 class-name length, the class name, then the node's
// fields. No payload size and no version.
#include <cstring>
#include <memory>
#include <new>

#include "node/ScnNode.h"

std::string scnDamageMessage(const std::string& path, const ScnInStream& in)
{
    return path + ": file is truncated or damaged at byte " + std::to_string(in.failPos()) + " (" + in.error() + ")";
}

void scnWriteObject(ScnOutStream& out, const ScnNode& node)
{
    const char* cls = node.getType()->name ? node.getType()->name : "ScnGroup";
    uint32_t len = static_cast<uint32_t>(std::strlen(cls));
    out.writeU32(len);
    out.write(cls, len);
    node.write(out);
}

bool scnWriteObject(const std::string& path, const ScnNode& node, std::string& error)
{
    ScnOutStream out;
    scnWriteObject(out, node);
    return scnWriteFileBytes(path, out.bytes(), error);
}

namespace {

ScnNode* readObject(ScnInStream& in, const std::string& path, std::string& error)
{
    uint32_t n = 0;
    std::string cls;
    if (in.readU32(n)) {
        if (n > 255)
            in.fail("class name of " + std::to_string(n) + " bytes");
        else
            in.readString(cls, n);
    }
    if (in.failed()) {
        error = scnDamageMessage(path, in);
        return nullptr;
    }
    uint32_t savedVersion = ScnFile::formatVersion;
    ScnFile::formatVersion = ScnFile::kCurrentVersion;
    std::unique_ptr<ScnNode> node;
    try {
        node.reset(ScnNodeRegistry::create(cls));
        if (in.enter()) node->read(in);
    } catch (const std::bad_alloc&) {
        // Sizes are checked against the file, but a huge file may still
        // declare more than memory holds.
        in.fail("more data than memory holds");
    }
    in.leave();
    ScnFile::formatVersion = savedVersion;
    if (!in.failed() && !in.atEnd()) in.fail("unexpected data after the object");
    if (in.failed()) {
        error = scnDamageMessage(path, in);
        return nullptr;
    }
    return node.release();
}

}  // namespace

ScnNode* scnReadObject(const std::vector<uint8_t>& bytes, const std::string& path, std::string& error)
{
    ScnInStream in(bytes);
    return readObject(in, path, error);
}

ScnNode* scnReadObject(const std::string& path, std::string& error)
{
    ScnInStream in;
    if (!in.openFile(path, error)) return nullptr;
    return readObject(in, path, error);
}
