// Cost per element of typed memory access from scripts: mem.set and mem.get
// on a mapped float buffer, struct.set and struct.get on records laid over a
// buffer, beside a plain Lua table write measured in the same run.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <lua.hpp>
#include <unistd.h>

#include "BenchLua.h"
#include "compute/OclGlobal.h"
#include "compute/OclLua.h"
#include "memory/MemObjects.h"
#include "runtime/AppGlobal.h"
#include "runtime/LuaExt.h"

namespace {

using SteadyClock = std::chrono::steady_clock;
constexpr int kElements = 1 << 20;
constexpr int kRounds = 5;

// Best time of a chunk over the rounds, in ns per element; -1 on failure.
double perElement(lua_State* L, const char* what, const std::string& code, int elements)
{
    double best = 1e30;
    for (int r = 0; r < kRounds; ++r) {
        if (luaL_loadstring(L, code.c_str()) != 0) {
            std::fprintf(stderr, "mem_bench: %s: %s\n", what, lua_tostring(L, -1));
            return -1;
        }
        auto t0 = SteadyClock::now();
        if (lua_pcall(L, 0, 0, 0) != 0) {
            std::fprintf(stderr, "mem_bench: %s: %s\n", what, lua_tostring(L, -1));
            return -1;
        }
        best = std::min(best, std::chrono::duration<double>(SteadyClock::now() - t0).count());
    }
    return best * 1e9 / elements;
}

}  // namespace

int main()
{
    printLuaBuild("mem_bench");
    char tmpl[] = "/tmp/velmora-mem-bench-XXXXXX";
    if (mkdtemp(tmpl)) setenv("POCL_CACHE_DIR", tmpl, 1);
    AppGlobal::startModules();
    lua_State* L = AppGlobal::luaState();
    oclContext* context = OclGlobal::currentContext();
    if (!L || !context) {
        std::fprintf(stderr, "mem_bench: needs a Lua state and an OpenCL context\n");
        return 1;
    }
    MemTypeBuffer floats(context, kElements, MemTypes::Float, "floats", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    MemTypeBuffer records(context, kElements * 32, MemTypes::UChar, "records", CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR);
    if (!floats.mem || !records.mem || !floats.map(CL_MAP_READ | CL_MAP_WRITE, 0) ||
        !records.map(CL_MAP_READ | CL_MAP_WRITE, 0)) {
        std::fprintf(stderr, "mem_bench: cannot make and map the buffers\n");
        return 1;
    }
    OclLua::push(L, &floats);  // the value a script gets from getBuffer
    lua_setglobal(L, "b");
    OclLua::push(L, &records);
    lua_setglobal(L, "r");
    const std::string n = std::to_string(kElements);
    if (luaL_dostring(L, ("t = {}; for i = 0, " + n + " - 1 do t[i] = 0 end\n"
                          "struct.create('bench'); struct.field('pos', cl.cl_float4); struct.field('id', cl.cl_int)\n"
                          "struct.interpret(r, 'bench')").c_str()) != 0) {
        std::fprintf(stderr, "mem_bench: %s\n", lua_tostring(L, -1));
        return 1;
    }
    const double table = perElement(L, "table", "local t = t for i = 0, " + n + " - 1 do t[i] = i end", kElements);
    const double set = perElement(L, "mem.set", "local set, b = mem.set, b for i = 0, " + n + " - 1 do set(b, i, i) end",
                                  kElements);
    const double get = perElement(L, "mem.get", "local get, b = mem.get, b for i = 0, " + n + " - 1 do get(b, i) end",
                                  kElements);
    const int recs = kElements / 8;
    const std::string m = std::to_string(recs);
    const double sset =
        perElement(L, "struct.set",
                   "local map, set, r = struct.map, struct.set, r for i = 0, " + m +
                       " - 1 do map(r, i) set('id', i) end",
                   recs);
    const double sget =
        perElement(L, "struct.get",
                   "local map, get, r = struct.map, struct.get, r for i = 0, " + m + " - 1 do map(r, i) get('id') end",
                   recs);
    if (table < 0 || set < 0 || get < 0 || sset < 0 || sget < 0) return 1;
    std::printf("plain Lua table write      : %6.1f ns per element\n", table);
    std::printf("mem.set (cl_float buffer)  : %6.1f ns per element (%.1fx the table write)\n", set, set / table);
    std::printf("mem.get (cl_float buffer)  : %6.1f ns per element (%.1fx)\n", get, get / table);
    std::printf("struct.map + struct.set    : %6.1f ns per record  (%.1fx)\n", sset, sset / table);
    std::printf("struct.map + struct.get    : %6.1f ns per record  (%.1fx)\n", sget, sget / table);
    lua_pushnil(L);
    lua_setglobal(L, "b");
    lua_pushnil(L);
    lua_setglobal(L, "r");
    floats.unmap(0);
    records.unmap(0);
    std::string rm = std::string("rm -rf ") + tmpl;
    return std::system(rm.c_str()) == 0 ? 0 : 1;
}
