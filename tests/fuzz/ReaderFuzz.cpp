// libFuzzer harness of the file reader: every input is read as a document
// (.3Dm) and as an object file (.3Do) through the reader's own entry points.
// Whatever the bytes, a read must end with a tree or with a message, never
// with a crash, an overrun or a leak; and what was read must save and read
// back to the same bytes.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "node/ScnNode.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnApplication.h"

namespace {

void require(bool ok, const char* what)
{
    if (ok) return;
    std::fprintf(stderr, "reader_fuzz: %s\n", what);
    std::abort();
}

std::vector<uint8_t> objectBytes(const ScnNode& node)
{
    ScnOutStream out;
    scnWriteObject(out, node);
    return out.bytes();
}

void readDocument(const std::vector<uint8_t>& bytes)
{
    std::string error;
    std::unique_ptr<RtnApplication> app(RtnApplication::readBytes(bytes, "fuzz.3Dm", error));
    require(app || !error.empty(), "a document was refused without a message");
    if (!app) return;
    // A second cycle writes what the first wrote: a read keeps all it takes.
    std::vector<uint8_t> first = app->toBytes();
    app.reset();
    std::unique_ptr<RtnApplication> again(RtnApplication::readBytes(first, "again.3Dm", error));
    require(again != nullptr, "a saved document was refused");
    require(again->toBytes() == first, "a saved document read back differently");
}

void readObject(const std::vector<uint8_t>& bytes)
{
    std::string error;
    std::unique_ptr<ScnNode> node(scnReadObject(bytes, "fuzz.3Do", error));
    require(node || !error.empty(), "an object file was refused without a message");
    if (!node) return;
    std::vector<uint8_t> first = objectBytes(*node);
    node.reset();
    std::unique_ptr<ScnNode> again(scnReadObject(first, "again.3Do", error));
    require(again != nullptr, "a saved object was refused");
    require(objectBytes(*again) == first, "a saved object read back differently");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // The class registry is filled by the module chain, as in the tools. The
    // reader needs no OpenCL platform: with none the chain starts at once
    // and the driver's own allocations stay out of the leak checks.
    static char noVendors[] = "/tmp/velmora-fuzz-no-icd-XXXXXX";
    bool made = mkdtemp(noVendors) != nullptr;
    if (made) setenv("OCL_ICD_VENDORS", noVendors, 1);
    AppGlobal::startModules();
    if (made) rmdir(noVendors);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::vector<uint8_t> bytes(data, data + size);
    readDocument(bytes);
    readObject(bytes);
    return 0;
}
