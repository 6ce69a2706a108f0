// The Lua state's own allocator: a small-block pool per state.
//
// Blocks of up to kMaxSmall bytes come from size classes of kGranule bytes
// (16, 32, ... 512), carved one after the other from large chunks and kept on
// a free list per class once freed; nothing is stored beside a block, since
// Lua hands the old size back on every call. Larger blocks go to
// malloc/realloc/free, behind a 16-byte header that keeps them on a list of
// the pool (reachable for leak checks, freed with the pool). A realloc inside one class keeps the block; one across
// classes (or between pool and malloc) copies. The heap of a state is so
// denser than with malloc (no header per block, small objects side by side),
// and the collector's sweep touches fewer cache lines.
//
// The pool belongs to its state: it is made by newState() and freed by
// lua_close on that state (the state's own block is the last one Lua frees;
// the pool goes with it). Chunks are kept until then: a pool does not shrink.
// One state is used by one thread at a time, and so is its pool: no locks.
//
// Under AddressSanitizer the pool keeps ASan's checks for the C++ code that
// touches Lua's blocks: free blocks, the slack of a block past its requested
// size and the unused part of a chunk are poisoned, and freed blocks wait in a
// quarantine before they are handed out again, so a dangling pointer into a
// collected string or userdata is reported as it would be with malloc.
#pragma once

#include <cstddef>

struct lua_State;

namespace LuaAlloc {

constexpr size_t kGranule = 16;
constexpr size_t kMaxSmall = 512;
constexpr size_t kClasses = kMaxSmall / kGranule;

struct Stats {
    size_t smallBlocks = 0;     // live blocks served by the pool
    size_t smallBytes = 0;      // their bytes, counted as their class sizes
    size_t largeBlocks = 0;     // live blocks served by malloc
    size_t largeBytes = 0;      // their bytes, as requested
    size_t requestedBytes = 0;  // every live block as requested (Lua's own count)
    size_t chunks = 0;          // chunks taken from the system
    size_t chunkBytes = 0;      // their bytes
    size_t freeBytes = 0;       // bytes waiting on the free lists (and in quarantine)

    // What the state's live blocks take: the pool's class bytes and malloc's.
    size_t bytesInUse() const { return smallBytes + largeBytes; }
};

class Pool;

// A pool on its own, for the tests and the benchmarks: `allocate` with the
// pool as `ud` is a lua_Alloc. destroyPool frees every chunk.
Pool* createPool();
void destroyPool(Pool* pool);
Stats poolStats(const Pool* pool);

// The lua_Alloc of the pool (`ud` is the Pool*). A free of the block that the
// pool served first, when the pool was made by newState(), also frees the
// pool: that block is the state's own, which lua_close frees last.
void* allocate(void* ud, void* ptr, size_t osize, size_t nsize);

// A new Lua state on a pool of its own, with a panic function like
// luaL_newstate's. Falls back to luaL_newstate where the library refuses a
// custom allocator (LuaJIT on 64-bit targets without GC64). Null when no state
// can be made.
lua_State* newState();

// True when `L` allocates from a pool of this file.
bool usesPool(lua_State* L);

// The figures of the pool of `L`; false (and `out` untouched) when `L` is not
// on a pool.
bool stats(lua_State* L, Stats& out);

// Pools alive in the process (made by createPool or newState and not yet
// freed), for the tests of a state's pool going with lua_close.
size_t livePools();

// Which Lua the engine is built against, e.g. "Lua 5.1.5" or
// "LuaJIT 2.1.0-beta3 (GC64)".
const char* luaBuild();

}  // namespace LuaAlloc
