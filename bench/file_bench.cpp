// Writes and reads back an application with 100,000 nodes and prints the
// throughput both ways.
#include <chrono>
#include <cstdio>
#include <string>

#include "BenchLua.h"
#include "node/ScnNode.h"
#include "render/ScnShader.h"
#include "runtime/AppGlobal.h"
#include "runtime/RtnApplication.h"

int main(int argc, char** argv)
{
    printLuaBuild("file_bench");
    int nodes = argc > 1 ? std::atoi(argv[1]) : 100000;
    AppGlobal::startModules();

    RtnApplication app;
    // A balanced tree: groups of 100 under the world, with a mix of classes.
    int made = 0;
    while (made < nodes) {
        auto* g = new ScnGroup();
        g->name = "group" + std::to_string(made);
        app.openGL.node.append(g);
        ++made;
        for (int i = 0; i < 99 && made < nodes; ++i, ++made) {
            ScnNode* n = (i % 10 == 0) ? ScnShader::factory() : new ScnMatrix();
            n->name = "n" + std::to_string(made);
            g->append(n);
        }
    }

    using clock = std::chrono::steady_clock;
    const int rounds = 5;
    double writeSec = 1e9, readSec = 1e9;
    size_t bytes = 0;
    for (int r = 0; r < rounds; ++r) {
        auto t0 = clock::now();
        std::vector<uint8_t> data = app.toBytes();
        auto t1 = clock::now();
        std::string error;
        RtnApplication* back = RtnApplication::readBytes(data, "bench.3Dm", error);
        auto t2 = clock::now();
        if (!back) {
            std::fprintf(stderr, "file_bench: %s\n", error.c_str());
            return 1;
        }
        delete back;
        bytes = data.size();
        writeSec = std::min(writeSec, std::chrono::duration<double>(t1 - t0).count());
        readSec = std::min(readSec, std::chrono::duration<double>(t2 - t1).count());
    }
    double mb = static_cast<double>(bytes) / (1024.0 * 1024.0);
    std::printf("file_bench: %d nodes, %.2f MB per file (best of %d rounds)\n", nodes, mb, rounds);
    std::printf("write: %8.1f MB/s  (%.1f ms)\n", mb / writeSec, writeSec * 1e3);
    std::printf("read:  %8.1f MB/s  (%.1f ms)\n", mb / readSec, readSec * 1e3);
    return 0;
}
