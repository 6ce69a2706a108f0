// The Lua state's small-block pool: content kept through every kind of
// realloc, states on it that compute the right results, figures back at their
// start once the garbage is collected, and (under ASan) freed blocks poisoned.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <lua.hpp>

#include "runtime/AppGlobal.h"
#include "runtime/LuaAlloc.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#endif

namespace {

using LuaAlloc::kMaxSmall;

// A small deterministic generator (xorshift64*).
struct Rng {
    uint64_t s;
    size_t below(size_t n)
    {
        s ^= s >> 12, s ^= s << 25, s ^= s >> 27;
        return static_cast<size_t>((s * 2685821657736338717ull) % n);
    }
};

// A block filled with a pattern of its own seed.
struct Block {
    unsigned char* p = nullptr;
    size_t size = 0;
    uint32_t seed = 0;
    static unsigned char at(uint32_t seed, size_t i) { return static_cast<unsigned char>((seed * 131u + i * 7u + (i >> 8)) ^ (seed >> 3)); }
    void fill(uint32_t s)
    {
        seed = s;
        for (size_t i = 0; i < size; ++i) p[i] = at(seed, i);
    }
    bool holds(size_t n) const
    {
        for (size_t i = 0; i < n; ++i)
            if (p[i] != at(seed, i)) return false;
        return true;
    }
};

void* poolCall(LuaAlloc::Pool* pool, void* p, size_t osize, size_t nsize)
{
    return LuaAlloc::allocate(pool, p, osize, nsize);
}

// A size of every kind: small of any class, around the limit, large.
size_t anySize(Rng& r)
{
    switch (r.below(8)) {
    case 0: return kMaxSmall - 8 + r.below(17);
    case 1: return kMaxSmall + 1 + r.below(4000);
    default: return 1 + r.below(kMaxSmall);
    }
}

// Runs `code` with its arguments pushed by the caller; returns its first result
// as a number, or records the error.
double runNumber(lua_State* L, const char* code, int nargs = 0)
{
    if (luaL_loadstring(L, code) != 0) {
        ADD_FAILURE() << lua_tostring(L, -1);
        lua_pop(L, 1 + nargs);
        return -1;
    }
    lua_insert(L, -1 - nargs);
    if (lua_pcall(L, nargs, 1, 0) != 0) {
        ADD_FAILURE() << lua_tostring(L, -1);
        lua_pop(L, 1);
        return -1;
    }
    const double v = lua_tonumber(L, -1);
    lua_pop(L, 1);
    return v;
}

// Builds and drops tables and strings of every size, with incremental steps
// and full collections between the rounds; some rounds' tables live on for a
// while. Returns the sum of what it read back.
const char* kChurn = R"(
local n, rounds = ...
local total = 0
local keep = {}
for round = 1, rounds do
  local t = {}
  for i = 1, n do
    local s = "s" .. i .. ":" .. string.rep("x", i % 97)
    local e = { id = i, name = s, list = { i, i + 1, i + 2 } }
    if i % 7 == 0 then e.big = string.rep("y", 600 + i % 50) end
    t[i] = e
    if i % 100 == 0 then collectgarbage("step", 1) end
  end
  local sum = 0
  for i = 1, n do
    local e = t[i]
    sum = sum + e.id + #e.name + e.list[3] + (e.big and #e.big or 0)
  end
  local parts = {}
  for i = 1, 50 do parts[#parts + 1] = tostring(i * round) end
  sum = sum + #table.concat(parts, ",")
  total = total + sum
  keep[round % 3] = t
  if round % 2 == 0 then collectgarbage("step", 64) else collectgarbage("collect") end
end
keep = nil
return total
)";

// What kChurn returns, computed here.
double churnExpected(int n, int rounds)
{
    double total = 0;
    for (int round = 1; round <= rounds; ++round) {
        double sum = 0;
        for (int i = 1; i <= n; ++i) {
            const double nameLen = 2 + std::to_string(i).size() + i % 97;
            sum += i + nameLen + (i + 2) + (i % 7 == 0 ? 600 + i % 50 : 0);
        }
        std::string parts;
        for (int i = 1; i <= 50; ++i) parts += (i > 1 ? "," : "") + std::to_string(i * round);
        total += sum + parts.size();
    }
    return total;
}

double runChurn(lua_State* L, int n, int rounds)
{
    lua_pushinteger(L, n);
    lua_pushinteger(L, rounds);
    return runNumber(L, kChurn, 2);
}

// Full collections until the figures stop moving (string table and buffers
// shrink by halves, one step a cycle).
LuaAlloc::Stats settle(lua_State* L)
{
#if defined(VELMORA_LUAJIT)
    // Compiled traces are objects of the heap that may outlive the chunk that
    // made them: they are dropped with the rest of the garbage.
    EXPECT_EQ(runNumber(L, "jit.flush() return 0"), 0);
#endif
    LuaAlloc::Stats s{};
    size_t last = SIZE_MAX;
    for (int i = 0; i < 64; ++i) {
        lua_gc(L, LUA_GCCOLLECT, 0);
        EXPECT_TRUE(LuaAlloc::stats(L, s));
        if (s.bytesInUse() == last) break;
        last = s.bytesInUse();
    }
    return s;
}

size_t luaCount(lua_State* L)
{
    return static_cast<size_t>(lua_gc(L, LUA_GCCOUNT, 0)) * 1024 + static_cast<size_t>(lua_gc(L, LUA_GCCOUNTB, 0));
}

struct StateGuard {
    lua_State* L;
    ~StateGuard()
    {
        if (L) lua_close(L);
    }
};

}  // namespace

TEST(LuaAllocTest, EveryClassKeepsItsContentThroughReallocAndFree)
{
    LuaAlloc::Pool* pool = LuaAlloc::createPool();
    ASSERT_NE(pool, nullptr);
    Rng r{0x9e3779b97f4a7c15ull};
    std::vector<Block> blocks;
    uint32_t seed = 1;
    auto add = [&](size_t size) {
        Block b;
        b.size = size;
        b.p = static_cast<unsigned char*>(poolCall(pool, nullptr, 0, size));
        ASSERT_NE(b.p, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(b.p) % 16, 0u) << size;
        b.fill(seed++);
        blocks.push_back(b);
    };
    // One block of every size up to past the limit, all alive at once.
    for (size_t size = 1; size <= kMaxSmall + 64; ++size) add(size);
    for (const Block& b : blocks) ASSERT_TRUE(b.holds(b.size)) << b.size;

    // Reallocations up and down, inside a class, across classes and across
    // the limit, and frees and new blocks, checking everything as it goes.
    for (int step = 0; step < 60000; ++step) {
        const size_t k = r.below(blocks.size() + 1);
        if (k == blocks.size()) {
            add(anySize(r));
            continue;
        }
        Block& b = blocks[k];
        ASSERT_TRUE(b.holds(b.size)) << "step " << step << " size " << b.size;
        if (r.below(5) == 0) {
            EXPECT_EQ(poolCall(pool, b.p, b.size, 0), nullptr);
            blocks[k] = blocks.back();
            blocks.pop_back();
            continue;
        }
        const size_t way = r.below(4);
        const size_t nsize = way == 0   ? b.size + 1 + r.below(16)
                             : way == 1 ? std::max<size_t>(1, b.size - r.below(b.size))
                                        : anySize(r);
        auto* q = static_cast<unsigned char*>(poolCall(pool, b.p, b.size, nsize));
        ASSERT_NE(q, nullptr);
        EXPECT_EQ(reinterpret_cast<uintptr_t>(q) % 16, 0u);
        if (b.size <= kMaxSmall && nsize <= kMaxSmall && (b.size - 1) / 16 == (nsize - 1) / 16)
            EXPECT_EQ(q, b.p) << "a realloc inside a class keeps the block";
        b.p = q;
        ASSERT_TRUE(b.holds(std::min(b.size, nsize))) << b.size << " -> " << nsize;
        b.size = nsize;
        b.fill(seed++);
    }

    // Every block alive is still its own: no two overlap.
    size_t requested = 0, small = 0, large = 0;
    for (const Block& b : blocks) {
        ASSERT_TRUE(b.holds(b.size));
        requested += b.size;
        (b.size <= kMaxSmall ? small : large) += 1;
    }
    LuaAlloc::Stats s = LuaAlloc::poolStats(pool);
    EXPECT_EQ(s.requestedBytes, requested);
    EXPECT_EQ(s.smallBlocks, small);
    EXPECT_EQ(s.largeBlocks, large);
    EXPECT_LE(s.smallBytes + s.freeBytes, s.chunkBytes);
    for (const Block& b : blocks) poolCall(pool, b.p, b.size, 0);
    s = LuaAlloc::poolStats(pool);
    EXPECT_EQ(s.bytesInUse(), 0u);
    EXPECT_EQ(s.requestedBytes, 0u);
    EXPECT_EQ(s.smallBlocks + s.largeBlocks, 0u);
    LuaAlloc::destroyPool(pool);
}

TEST(LuaAllocTest, FreedBlocksAreServedAgainAndThePoolTakesItsLiveBlocksAlong)
{
    LuaAlloc::Pool* pool = LuaAlloc::createPool();
    // The pool does not grow for a block freed and asked for again (once the
    // quarantine of a sanitizer build is full).
    for (int i = 0; i < 100000; ++i) poolCall(pool, poolCall(pool, nullptr, 0, 48), 48, 0);
    const size_t chunks = LuaAlloc::poolStats(pool).chunkBytes;
    for (int i = 0; i < 100000; ++i) poolCall(pool, poolCall(pool, nullptr, 0, 48), 48, 0);
    EXPECT_EQ(LuaAlloc::poolStats(pool).chunkBytes, chunks);
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(chunks, size_t(64) << 10);
#endif
    // Blocks still in use when the pool goes, large ones too, go with it (the
    // sanitizer suite's leak check would report them otherwise).
    poolCall(pool, nullptr, 0, 100);
    poolCall(pool, nullptr, 0, 10000);
    poolCall(pool, poolCall(pool, nullptr, 0, 600), 600, 7000);
    LuaAlloc::destroyPool(pool);
}

TEST(LuaAllocTest, ProgramStatesAllocateFromAPoolAndKeepAPanicFunction)
{
    lua_State* L = AppGlobal::newLuaState("/nonexistent-velmora-workspace");
    ASSERT_NE(L, nullptr);
    StateGuard guard{L};
    EXPECT_TRUE(LuaAlloc::usesPool(L)) << LuaAlloc::luaBuild();
    lua_CFunction previous = lua_atpanic(L, nullptr);
    EXPECT_NE(previous, nullptr) << "the state has a panic function, as luaL_newstate's has";
    lua_atpanic(L, previous);
    // Lua's own count of its bytes is the pool's count of requested bytes.
    LuaAlloc::Stats s{};
    ASSERT_TRUE(LuaAlloc::stats(L, s));
    EXPECT_EQ(s.requestedBytes, luaCount(L));
    EXPECT_GT(s.smallBlocks, 100u);

    lua_State* plain = luaL_newstate();
    EXPECT_FALSE(LuaAlloc::usesPool(plain));
    EXPECT_FALSE(LuaAlloc::stats(plain, s));
    lua_close(plain);
}

TEST(LuaAllocTest, LuaCloseFreesTheStatesPool)
{
    const size_t before = LuaAlloc::livePools();
    std::vector<lua_State*> states;
    for (int i = 0; i < 4; ++i) {
        lua_State* L = LuaAlloc::newState();
        ASSERT_NE(L, nullptr);
        ASSERT_TRUE(LuaAlloc::usesPool(L));
        luaL_openlibs(L);
        states.push_back(L);
    }
    EXPECT_EQ(LuaAlloc::livePools(), before + 4);
    // Each state has its own pool: what one allocates shows in its figures only.
    LuaAlloc::Stats a0{}, b0{}, a1{}, b1{};
    ASSERT_TRUE(LuaAlloc::stats(states[0], a0));
    ASSERT_TRUE(LuaAlloc::stats(states[1], b0));
    EXPECT_GT(runNumber(states[0], "t = {} for i = 1, 1000 do t[i] = {i} end return #t"), 999);
    ASSERT_TRUE(LuaAlloc::stats(states[0], a1));
    ASSERT_TRUE(LuaAlloc::stats(states[1], b1));
    EXPECT_GT(a1.smallBlocks, a0.smallBlocks + 900);  // a block or two a table, less some garbage
    EXPECT_EQ(b1.smallBlocks, b0.smallBlocks);
    for (lua_State* L : states) lua_close(L);
    EXPECT_EQ(LuaAlloc::livePools(), before);
}

TEST(LuaAllocTest, AStateKeptForTheProcessKeepsItsBlocksReachable)
{
    // Like the program's own state, never closed. Its large blocks are
    // referenced by Lua values only, which LuaJIT's GC64 stores tagged: the
    // pool's list keeps them reachable for the sanitizer suite's leak check.
    static lua_State* kept = nullptr;
    if (!kept) kept = LuaAlloc::newState();
    ASSERT_NE(kept, nullptr);
    luaL_openlibs(kept);
    std::memset(lua_newuserdata(kept, 4000), 7, 4000);
    lua_setglobal(kept, "blob");
    EXPECT_EQ(runNumber(kept, "held = { blob, string.rep('k', 5000) } return #held[2]"), 5000);
    // Hot loops: under LuaJIT the compiler's buffers come from the pool too.
    EXPECT_EQ(runNumber(kept, "local s = 0 for i = 1, 100000 do s = s + i % 7 end return s"), 300000);
    LuaAlloc::Stats s{};
    ASSERT_TRUE(LuaAlloc::stats(kept, s));
    EXPECT_GE(s.largeBlocks, 2u);
}

TEST(LuaAllocTest, ChurnOnThePoolGivesTheComputedResults)
{
    const int n = 3000, rounds = 12;
    const double expected = churnExpected(n, rounds);

    StateGuard pooled{LuaAlloc::newState()};
    ASSERT_NE(pooled.L, nullptr);
    ASSERT_TRUE(LuaAlloc::usesPool(pooled.L));
    luaL_openlibs(pooled.L);
    EXPECT_EQ(runChurn(pooled.L, n, rounds), expected);

    // Incremental collection only, with a short pause: many cycles run while
    // the tables are built.
    lua_gc(pooled.L, LUA_GCSETPAUSE, 110);
    lua_gc(pooled.L, LUA_GCSETSTEPMUL, 400);
    EXPECT_EQ(runNumber(pooled.L, R"(
      local live, made = {}, 0
      for i = 1, 200000 do
        local t = { i, tostring(i), { i } }
        made = made + 1
        if i % 10 == 0 then live[#live + 1] = t end
      end
      local sum = 0
      for _, t in ipairs(live) do sum = sum + t[1] + #t[2] + t[3][1] end
      return sum
    )"),
              [] {
                  double sum = 0;
                  for (int i = 10; i <= 200000; i += 10) sum += 2.0 * i + std::to_string(i).size();
                  return sum;
              }());
    LuaAlloc::Stats s{};
    ASSERT_TRUE(LuaAlloc::stats(pooled.L, s));
    EXPECT_EQ(s.requestedBytes, luaCount(pooled.L));
}

TEST(LuaAllocTest, BytesInUseReturnToTheirStartOnceTheGarbageIsCollected)
{
    StateGuard g{LuaAlloc::newState()};
    lua_State* L = g.L;
    ASSERT_NE(L, nullptr);
    ASSERT_TRUE(LuaAlloc::usesPool(L));
    luaL_openlibs(L);
    // A first run grows what Lua keeps for itself (string table, stack,
    // buffer) to its size for this work; the start is taken after it.
    const double expected = churnExpected(2000, 6);
    EXPECT_EQ(runChurn(L, 2000, 6), expected);
    const LuaAlloc::Stats start = settle(L);
    EXPECT_EQ(start.requestedBytes, luaCount(L));

    EXPECT_EQ(runChurn(L, 2000, 6), expected);
    LuaAlloc::Stats during{};
    ASSERT_TRUE(LuaAlloc::stats(L, during));
    EXPECT_GE(during.chunkBytes, start.chunkBytes);

    const LuaAlloc::Stats end = settle(L);
    EXPECT_EQ(end.bytesInUse(), start.bytesInUse());
    EXPECT_EQ(end.smallBlocks, start.smallBlocks);
    EXPECT_EQ(end.largeBlocks, start.largeBlocks);
    EXPECT_EQ(end.requestedBytes, start.requestedBytes);
    EXPECT_EQ(end.requestedBytes, luaCount(L));
#if !defined(__SANITIZE_ADDRESS__)
    // The second run fitted in the chunks of the first (a sanitizer build
    // keeps freed blocks in quarantine a while, and takes more).
    EXPECT_EQ(end.chunkBytes, start.chunkBytes);
#endif
}

#if defined(__SANITIZE_ADDRESS__)
TEST(LuaAllocTest, FreedBlocksAndSlackArePoisonedForTheCppCode)
{
    LuaAlloc::Pool* pool = LuaAlloc::createPool();
    auto* p = static_cast<char*>(poolCall(pool, nullptr, 0, 20));
    EXPECT_FALSE(__asan_region_is_poisoned(p, 20));
    EXPECT_TRUE(__asan_address_is_poisoned(p + 20)) << "past the requested size";
    p = static_cast<char*>(poolCall(pool, p, 20, 30));
    EXPECT_FALSE(__asan_region_is_poisoned(p, 30));
    EXPECT_TRUE(__asan_address_is_poisoned(p + 30));
    poolCall(pool, p, 30, 0);
    EXPECT_TRUE(__asan_address_is_poisoned(p));
    EXPECT_TRUE(__asan_address_is_poisoned(p + 16));
    LuaAlloc::destroyPool(pool);

    // A string that the collector freed, still held by C++ code.
    StateGuard g{LuaAlloc::newState()};
    lua_State* L = g.L;
    lua_pushstring(L, "a string of the pool, soon collected");
    const char* dangling = lua_tostring(L, -1);
    EXPECT_FALSE(__asan_address_is_poisoned(dangling));
    lua_pop(L, 1);
    lua_gc(L, LUA_GCCOLLECT, 0);
    EXPECT_TRUE(__asan_address_is_poisoned(dangling));
}
#endif
