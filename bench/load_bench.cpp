// Opening and saving large applications through the document, as the runner
// does: applications of 1k, 3k and 10k processors that each have a small
// global text, and one of about 100,000 scene nodes with 1,000 processors
// whose registers hold tokens among many siblings and deep in the tree.
// Prints the open and save times and the open time per processor, which
// should not grow with the number of processors.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include <unistd.h>

#include "BenchLua.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"
#include "runtime/Clock.h"
#include "runtime/RtnApplication.h"
#include "runtime/RtnDocument.h"
#include "runtime/RtnNodes.h"

namespace {

using SteadyClock = std::chrono::steady_clock;

double since(SteadyClock::time_point t0)
{
    return std::chrono::duration<double>(SteadyClock::now() - t0).count();
}

std::string executableFolder()
{
    std::error_code ec;
    std::filesystem::path exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    return ec ? std::filesystem::current_path().string() : exe.parent_path().string();
}

std::vector<char> fileBytes(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

// Every global text makes a little garbage and keeps one value.
const char* const kGlobalText =
    "local t = {}\n"
    "for i = 1, 4 do t[i] = {i, tostring(i)} end\n"
    "kept = #t\n";

constexpr int kRounds = 3;

struct Case {
    const char* label;
    int processors;
    bool tree;  // the large scene with token paths
};

// The large scene: a group of 40,000 siblings, 300 groups of 199 children and
// a chain 90 deep, about 100,000 nodes in all. Each processor's register 0
// holds 8 tokens: 4 among the siblings, 2 in the groups, 2 down the chain.
int buildScene(RtnApplication& app)
{
    const int flatCount = 40000, gridGroups = 300, gridEach = 199, chainDepth = 90;
    auto* flat = new ScnGroup();
    flat->name = "flat";
    app.openGL.node.append(flat);
    std::vector<ScnNode*> flatNodes;
    flatNodes.reserve(flatCount);
    for (int i = 0; i < flatCount; ++i) {
        auto* g = new ScnGroup();
        g->name = "f" + std::to_string(i);
        flat->append(g);
        flatNodes.push_back(g);
    }
    auto* grid = new ScnGroup();
    grid->name = "grid";
    app.openGL.node.append(grid);
    std::vector<std::vector<ScnNode*>> gridNodes(gridGroups);
    for (int r = 0; r < gridGroups; ++r) {
        auto* row = new ScnGroup();
        row->name = "row" + std::to_string(r);
        grid->append(row);
        for (int c = 0; c < gridEach; ++c) {
            auto* g = new ScnGroup();
            g->name = "c" + std::to_string(c);
            row->append(g);
            gridNodes[r].push_back(g);
        }
    }
    std::vector<ScnNode*> chain;
    ScnGroup* at = &app.openGL.node;
    for (int d = 0; d < chainDepth; ++d) {
        auto* g = new ScnGroup();
        g->name = "d" + std::to_string(d);
        at->append(g);
        chain.push_back(g);
        at = g;
    }
    const int nodes = 2 + flatCount + gridGroups * (1 + gridEach) + chainDepth;

    int p = 0;
    for (ScnNode* n = app.scripts.node.firstChild(); n; n = n->next(), ++p) {
        auto* proc = static_cast<RtnProcessor*>(n);
        RtnRegister* reg = proc->getRegister(0);
        for (int k = 0; k < 4; ++k) reg->deposit(flatNodes[(p * 37 + k * 9973) % flatCount]);
        for (int k = 0; k < 2; ++k) reg->deposit(gridNodes[(p + k * 150) % gridGroups][(p * 13 + k) % gridEach]);
        for (int k = 0; k < 2; ++k) reg->deposit(chain[chainDepth - 1 - (p + k * 7) % 40]);
    }
    return nodes;
}

RtnApplication* makeApplication(const Case& c, int& nodes)
{
    auto* app = new RtnApplication();
    for (int p = 0; p < c.processors; ++p) {
        RtnProcessor* proc = p == 0 ? app->processorAt(0) : nullptr;
        if (!proc) {
            proc = new RtnProcessor();
            proc->name = "P" + std::to_string(p);
            app->scripts.node.append(proc);
        }
        proc->luaglobal = kGlobalText;
        proc->createRegister(0);
    }
    nodes = c.tree ? buildScene(*app) : 0;
    return app;
}

}  // namespace

int main(int argc, char** argv)
{
    printLuaBuild("load_bench");
    // An optional argument runs only the cases of at most that many processors.
    const int most = argc > 1 ? std::max(1, std::atoi(argv[1])) : 1 << 30;
    char tmpl[] = "/tmp/velmora-load-bench-XXXXXX";
    if (!mkdtemp(tmpl)) {
        std::perror("load_bench: mkdtemp");
        return 1;
    }
    const std::string workspace = tmpl;
    AppGlobal::setProgramFolder(executableFolder());
    if (!AppGlobal::setProjectPath(workspace)) {
        std::fprintf(stderr, "load_bench: cannot enter %s\n", workspace.c_str());
        return 1;
    }
    AppGlobal::startModules();
    Channels::clearAll();

    const Case cases[] = {{"1k processors", 1000, false},
                          {"3k processors", 3000, false},
                          {"10k processors", 10000, false},
                          {"100k nodes + 1k processors", 1000, true}};
    std::printf("load_bench: open and save through the document, best of %d; each processor has a global text\n",
                kRounds);
    std::printf("%-28s %9s %9s %9s %14s %6s\n", "case", "nodes", "open s", "save s", "open/proc us", "same");
    int status = 0;
    double perProcFirst = 0, perProcTenK = 0, openTenK = -1, openTree = -1;
    for (const Case& c : cases) {
        if (c.processors > most) continue;
        int nodes = 0;
        const std::string file = std::string("case") + std::to_string(c.processors) + (c.tree ? "t" : "") + ".3Dm";
        std::string error;
        {
            std::unique_ptr<RtnApplication> app(makeApplication(c, nodes));
            RtnMFRef::s_root = app.get();
            bool written = app->writeFile(workspace + "/" + file, error);
            RtnMFRef::s_root = nullptr;
            if (!written) {
                std::fprintf(stderr, "load_bench: %s\n", error.c_str());
                status = 1;
                continue;
            }
        }
        // Best of three rounds: the machine may be shared.
        double open = 1e30, save = 1e30;
        bool opened = true, saved = true;
        const std::string copy = "saved-" + file;
        for (int round = 0; round < kRounds && opened && saved; ++round) {
            ManualClock clock;
            RtnDocument doc(clock);
            auto t0 = SteadyClock::now();
            opened = doc.open(file, error);
            open = std::min(open, since(t0));
            if (!opened) break;
            t0 = SteadyClock::now();
            saved = doc.saveAs(copy);
            save = std::min(save, since(t0));
            doc.close();
            // Whatever the scripts or the load reported is not part of the figures.
            Channels::clearAll();
        }
        if (!opened || !saved) {
            std::fprintf(stderr, "load_bench: %s\n", opened ? ("saving " + copy + " failed").c_str() : error.c_str());
            status = 1;
            continue;
        }
        const bool same = fileBytes(workspace + "/" + file) == fileBytes(workspace + "/" + copy);
        if (!same) status = 1;
        const double perProc = open / c.processors;
        std::printf("%-28s %9d %9.3f %9.3f %14.1f %6s\n", c.label, nodes, open, save, perProc * 1e6,
                    same ? "yes" : "NO");
        std::fflush(stdout);
        if (!c.tree && c.processors == 1000) perProcFirst = perProc;
        if (!c.tree && c.processors == 10000) {
            perProcTenK = perProc;
            openTenK = open;
        }
        if (c.tree) openTree = open;
        std::filesystem::remove(workspace + "/" + file);
        std::filesystem::remove(workspace + "/" + copy);
    }
    if (perProcFirst > 0 && perProcTenK > 0)
        std::printf("open time per processor, 10k / 1k:           %6.2f (1.00 is linear)\n",
                    perProcTenK / perProcFirst);
    if (openTenK >= 0)
        std::printf("open 10k processors with global texts:       %6.3f s (target <= 1 s: %s)\n", openTenK,
                    openTenK <= 1.0 ? "met" : "missed");
    if (openTree >= 0)
        std::printf("open 100k nodes + 1k processors:             %6.3f s (target <= 2 s: %s)\n", openTree,
                    openTree <= 2.0 ? "met" : "missed");
    std::printf("\"same\": the saved file has the bytes of the file that was opened\n");

    std::error_code ec;
    std::filesystem::current_path("/", ec);
    std::filesystem::remove_all(workspace, ec);
    return status;
}
