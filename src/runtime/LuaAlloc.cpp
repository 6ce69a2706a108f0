#include "runtime/LuaAlloc.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include <lua.hpp>

#if defined(__SANITIZE_ADDRESS__)
#define VELMORA_POOL_ASAN 1
#include <sanitizer/asan_interface.h>
#else
#define VELMORA_POOL_ASAN 0
#endif

namespace LuaAlloc {

namespace {

#if VELMORA_POOL_ASAN
void poison(const void* p, size_t n) { ASAN_POISON_MEMORY_REGION(p, n); }
void unpoison(const void* p, size_t n) { ASAN_UNPOISON_MEMORY_REGION(p, n); }
// The links of free blocks live in poisoned memory: read and written
// unchecked.
__attribute__((no_sanitize_address, noinline)) void* loadLink(void* block)
{
    return *static_cast<void**>(block);
}
__attribute__((no_sanitize_address, noinline)) void storeLink(void* block, void* next)
{
    *static_cast<void**>(block) = next;
}
__attribute__((no_sanitize_address, noinline)) size_t loadWord(void* block, int i)
{
    return static_cast<size_t*>(block)[i];
}
__attribute__((no_sanitize_address, noinline)) void storeWord(void* block, int i, size_t v)
{
    static_cast<size_t*>(block)[i] = v;
}
// Freed blocks wait here, oldest first out, before they go back on their
// free list: a dangling pointer finds poisoned memory for a while, as it
// would behind ASan's own quarantine.
constexpr size_t kQuarantineBytes = size_t(1) << 20;
#else
inline void poison(const void*, size_t) {}
inline void unpoison(const void*, size_t) {}
inline void* loadLink(void* block) { return *static_cast<void**>(block); }
inline void storeLink(void* block, void* next) { *static_cast<void**>(block) = next; }
#endif

struct alignas(16) Chunk {
    Chunk* next;
    size_t size;  // bytes, this header included
};

std::atomic<size_t> g_livePools{0};

struct alignas(16) LargeHeader {
    LargeHeader* prev;
    LargeHeader* next;
};

constexpr size_t kFirstChunk = size_t(16) << 10;
constexpr size_t kMaxChunk = size_t(256) << 10;

inline size_t classOf(size_t size) { return (size - 1) / kGranule; }  // size in 1..kMaxSmall
inline size_t classBytes(size_t cls) { return (cls + 1) * kGranule; }

int panic(lua_State* L)
{
    // What luaL_newstate's handler prints; Lua exits the process after it.
    const char* s = lua_tostring(L, -1);
    std::fprintf(stderr, "PANIC: unprotected error in call to Lua API (%s)\n", s ? s : "?");
    std::fflush(stderr);
    return 0;
}

}  // namespace

class Pool {
public:
    Pool() { g_livePools.fetch_add(1, std::memory_order_relaxed); }
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;

    ~Pool()
    {
        for (LargeHeader* h = m_large.next; h != &m_large;) {
            LargeHeader* next = h->next;
            std::free(h);
            h = next;
        }
        for (Chunk* c = m_chunks; c;) {
            Chunk* next = c->next;
            unpoison(c, c->size);
            std::free(c);
            c = next;
        }
        g_livePools.fetch_sub(1, std::memory_order_relaxed);
    }

    void* realloc(void* p, size_t osize, size_t nsize)
    {
        if (nsize == 0) {
            if (p) release(p, osize);
            return nullptr;
        }
        if (!p) return acquire(nsize);

        const bool oldSmall = osize <= kMaxSmall;
        const bool newSmall = nsize <= kMaxSmall;
        if (oldSmall && newSmall) {
            const size_t oc = classOf(osize), nc = classOf(nsize);
            if (oc == nc) {
                poison(p, classBytes(oc));
                unpoison(p, nsize);
                m_stats.requestedBytes += nsize - osize;
                return p;
            }
            void* q = allocSmall(nc, nsize);
            if (!q) {
                if (nsize > osize) return nullptr;
                // Lua counts on a shrink never failing: the old block is big
                // enough, and is counted (and later freed) in the new class.
                m_stats.smallBytes -= classBytes(oc) - classBytes(nc);
                m_stats.requestedBytes -= osize - nsize;
                return p;
            }
            std::memcpy(q, p, std::min(osize, nsize));
            freeSmall(p, oc, osize);
            return q;
        }
        if (!oldSmall && !newSmall) {
            return reallocLarge(p, osize, nsize);
        }
        if (oldSmall) {  // into malloc
            void* q = allocLarge(nsize);
            if (!q) return nullptr;
            std::memcpy(q, p, osize);
            freeSmall(p, classOf(osize), osize);
            return q;
        }
        // Out of malloc, into the pool: a shrink.
        void* q = allocSmall(classOf(nsize), nsize);
        if (!q) {
            // Out of memory even for one small chunk. Lua counts on a shrink
            // never failing, so it keeps the malloc block, which from now on
            // passes for a pool block (it stays on the list of large blocks
            // and is freed with the pool).
            m_stats.largeBlocks -= 1;
            m_stats.largeBytes -= osize;
            m_stats.requestedBytes -= osize - nsize;
            m_stats.smallBlocks += 1;
            m_stats.smallBytes += classBytes(classOf(nsize));
            return p;
        }
        std::memcpy(q, p, nsize);
        freeLarge(p, osize);
        return q;
    }

    Stats stats() const
    {
        Stats s = m_stats;
        s.freeBytes = m_carvedBytes - m_stats.smallBytes;
        return s;
    }

    // The state's own block: the first one served when the pool was made for
    // a state. Its free is lua_close's last call.
    bool forState = false;
    void* m_stateBlock = nullptr;
    bool* closedFlag = nullptr;  // set to true when lua_close frees the pool
    bool servedAny = false;

private:
    void* acquire(size_t nsize)
    {
        void* p = nsize <= kMaxSmall ? allocSmall(classOf(nsize), nsize) : allocLarge(nsize);
        if (!servedAny && p) {
            servedAny = true;
            if (forState) m_stateBlock = p;
        }
        return p;
    }

    void release(void* p, size_t osize)
    {
        if (osize <= kMaxSmall)
            freeSmall(p, classOf(osize), osize);
        else
            freeLarge(p, osize);
    }

    // Large blocks carry a header that links them into a list of the pool:
    // they stay reachable from it for leak checks (LuaJIT's GC64 tags the
    // pointers in its values, so a block referenced only by Lua values looks
    // unreferenced), and the pool frees what is left of them with itself.
    static LargeHeader* headerOf(void* p) { return static_cast<LargeHeader*>(p) - 1; }

    void link(LargeHeader* h)
    {
        h->prev = &m_large;
        h->next = m_large.next;
        m_large.next->prev = h;
        m_large.next = h;
    }

    static void unlink(LargeHeader* h)
    {
        h->prev->next = h->next;
        h->next->prev = h->prev;
    }

    void* allocLarge(size_t nsize)
    {
        auto* h = static_cast<LargeHeader*>(std::malloc(sizeof(LargeHeader) + nsize));
        if (!h) return nullptr;
        link(h);
        m_stats.largeBlocks += 1;
        m_stats.largeBytes += nsize;
        m_stats.requestedBytes += nsize;
        return h + 1;
    }

    void* reallocLarge(void* p, size_t osize, size_t nsize)
    {
        LargeHeader* h = headerOf(p);
        unlink(h);
        auto* q = static_cast<LargeHeader*>(std::realloc(h, sizeof(LargeHeader) + nsize));
        if (!q) {
            link(h);
            return nsize < osize ? p : nullptr;
        }
        link(q);
        m_stats.largeBytes += nsize - osize;
        m_stats.requestedBytes += nsize - osize;
        return q + 1;
    }

    void freeLarge(void* p, size_t osize)
    {
        LargeHeader* h = headerOf(p);
        unlink(h);
        std::free(h);
        m_stats.largeBlocks -= 1;
        m_stats.largeBytes -= osize;
        m_stats.requestedBytes -= osize;
    }

    void* allocSmall(size_t cls, size_t nsize)
    {
        void* p = m_free[cls];
        if (p) {
            m_free[cls] = loadLink(p);
        } else {
            const size_t bytes = classBytes(cls);
            if (static_cast<size_t>(m_end - m_cur) < bytes && !refill(bytes)) return nullptr;
            p = m_cur;
            m_cur += bytes;
            m_carvedBytes += bytes;
        }
        unpoison(p, nsize);
        m_stats.smallBlocks += 1;
        m_stats.smallBytes += classBytes(cls);
        m_stats.requestedBytes += nsize;
        return p;
    }

    void freeSmall(void* p, size_t cls, size_t osize)
    {
        m_stats.smallBlocks -= 1;
        m_stats.smallBytes -= classBytes(cls);
        m_stats.requestedBytes -= osize;
        poison(p, classBytes(cls));
#if VELMORA_POOL_ASAN
        quarantine(p, cls);
#else
        storeLink(p, m_free[cls]);
        m_free[cls] = p;
#endif
    }

    // A new chunk for at least `bytes`; the rest of the current one goes on
    // the free list of its size.
    bool refill(size_t bytes)
    {
        const size_t want = m_nextChunk;
        const size_t least = sizeof(Chunk) + bytes;
        auto* c = static_cast<Chunk*>(std::malloc(want));
        size_t got = want;
        if (!c) {
            c = static_cast<Chunk*>(std::malloc(least));
            got = least;
        }
        if (!c) return false;
        const size_t tail = static_cast<size_t>(m_end - m_cur);
        if (tail >= kGranule) {
            const size_t cls = classOf(tail);  // tail < kMaxSmall, a multiple of kGranule
            storeLink(m_cur, m_free[cls]);
            m_free[cls] = m_cur;
            m_carvedBytes += tail;
        }
        c->next = m_chunks;
        c->size = got;
        m_chunks = c;
        m_cur = reinterpret_cast<char*>(c) + sizeof(Chunk);
        m_end = reinterpret_cast<char*>(c) + got;
        poison(m_cur, static_cast<size_t>(m_end - m_cur));
        m_stats.chunks += 1;
        m_stats.chunkBytes += got;
        m_nextChunk = std::min(m_nextChunk * 2, kMaxChunk);
        return true;
    }

#if VELMORA_POOL_ASAN
    // A quarantined block holds its successor and its class.
    void quarantine(void* p, size_t cls)
    {
        storeWord(p, 0, 0);
        storeWord(p, 1, cls);
        if (m_qTail)
            storeWord(m_qTail, 0, reinterpret_cast<size_t>(p));
        else
            m_qHead = p;
        m_qTail = p;
        m_qBytes += classBytes(cls);
        while (m_qBytes > kQuarantineBytes) {
            void* b = m_qHead;
            m_qHead = reinterpret_cast<void*>(loadWord(b, 0));
            if (!m_qHead) m_qTail = nullptr;
            const size_t c = loadWord(b, 1);
            m_qBytes -= classBytes(c);
            storeLink(b, m_free[c]);
            m_free[c] = b;
        }
    }
    void* m_qHead = nullptr;
    void* m_qTail = nullptr;
    size_t m_qBytes = 0;
#endif

    void* m_free[kClasses] = {};
    char* m_cur = nullptr;
    char* m_end = nullptr;
    Chunk* m_chunks = nullptr;
    LargeHeader m_large{&m_large, &m_large};  // the list's sentinel
    size_t m_nextChunk = kFirstChunk;
    size_t m_carvedBytes = 0;
    Stats m_stats;
};

Pool* createPool() { return new (std::nothrow) Pool; }

void destroyPool(Pool* pool) { delete pool; }

Stats poolStats(const Pool* pool) { return pool ? pool->stats() : Stats{}; }

void* allocate(void* ud, void* ptr, size_t osize, size_t nsize)
{
    auto* pool = static_cast<Pool*>(ud);
    if (nsize == 0 && ptr && ptr == pool->m_stateBlock) {
        // lua_close frees the state's block last: the pool goes with it.
        if (pool->closedFlag) *pool->closedFlag = true;
        delete pool;
        return nullptr;
    }
    return pool->realloc(ptr, osize, nsize);
}

lua_State* newState()
{
    Pool* pool = createPool();
    if (!pool) return nullptr;
    pool->forState = true;
    bool closed = false;
    pool->closedFlag = &closed;
    lua_State* L = lua_newstate(allocate, pool);
    if (L) {
        pool->closedFlag = nullptr;
        lua_atpanic(L, panic);
        return L;
    }
    // A state whose start failed half-way was closed, and the pool with it.
    if (closed) return nullptr;
    const bool refused = !pool->servedAny;
    delete pool;
    // LuaJIT refuses lua_newstate with a custom allocator on 64-bit targets
    // built without GC64 ("Must use luaL_newstate() for 64 bit target"): the
    // state then gets LuaJIT's own allocator. Debian's amd64 LuaJIT is GC64
    // and takes the pool.
    if (refused) return luaL_newstate();
    return nullptr;
}

bool usesPool(lua_State* L)
{
    void* ud = nullptr;
    return L && lua_getallocf(L, &ud) == allocate;
}

bool stats(lua_State* L, Stats& out)
{
    void* ud = nullptr;
    if (!L || lua_getallocf(L, &ud) != allocate) return false;
    out = static_cast<Pool*>(ud)->stats();
    return true;
}

size_t livePools() { return g_livePools.load(std::memory_order_relaxed); }

const char* luaBuild()
{
#if defined(LUAJIT_VERSION)
    static const std::string name = [] {
        std::string s = LUAJIT_VERSION;
        lua_State* L = luaL_newstate();
        if (!L) return s;
        luaL_openlibs(L);
        if (luaL_dostring(L, "local ok, ffi = pcall(require, 'ffi') return ok and ffi.abi('gc64')") == 0)
            s += lua_toboolean(L, -1) ? " (GC64)" : " (no GC64)";
        lua_close(L);
        return s;
    }();
    return name.c_str();
#else
    return LUA_RELEASE;
#endif
}

}  // namespace LuaAlloc
