// libFuzzer harness of the PLY reader of the `ply` plug-in: every input is
// read as a model, header and then each element's data. Whatever the bytes,
// the reader must end with the values or with a message, never with a crash,
// an overrun, a hang or memory that grows with the counts a header claims.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "plugins/ply/PlyReader.h"

namespace {

void require(bool ok, const char* what)
{
    if (ok) return;
    std::fprintf(stderr, "ply_fuzz: %s\n", what);
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ply::Header header;
    std::string error;
    {
        ply::MemoryInput in(data, size);
        ply::Reader reader(in);
        if (!reader.readHeader(header, error)) {
            require(!error.empty(), "a refused header says why");
            return 0;
        }
    }
    for (size_t e = 0; e < header.elements.size(); ++e) {
        ply::MemoryInput in(data, size);
        ply::Reader reader(in);
        ply::Header again;
        require(reader.readHeader(again, error), "a header reads the same twice");
        uint64_t values = 0;
        error.clear();
        const bool ok = reader.readElement(
            again, e, [&](uint64_t, size_t, uint32_t, double) { return ++values < (1u << 20); }, error);
        require(ok || !error.empty(), "a refused element says why");
        // Every value takes at least one byte of the input.
        require(values <= size, "more values than bytes");
    }
    return 0;
}
