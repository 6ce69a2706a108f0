// Scripts driving the device through an open document: buffers described by
// nodes, filled and read through `mem`, kernels launched through `cl`, and
// records laid over buffers with `struct`. Everything runs on the machine's
// own OpenCL platform.
#include <gtest/gtest.h>

#include <lua.hpp>

#include <string>

#include "compute/OclGlobal.h"
#include "compute/OclNodes.h"
#include "memory/MemNodes.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"

namespace {

const char* const kKernels =
    "__kernel void squares(__global float* v) { size_t i = get_global_id(0); v[i] = v[i] * v[i]; }\n"
    "__kernel void put4(__global float* out, float4 a) { out[0] = a.x; out[1] = a.y; out[2] = a.z; out[3] = a.w; }\n"
    "__kernel void scratch(__global float* out, __local float* tmp) { tmp[0] = 3.0f; out[0] = tmp[0]; }\n";

class ScriptMemory : public DocumentFixture {
protected:
    // An application with a program and the given memory nodes under one
    // platform, saved and opened as a user would.
    void open(const std::string& global, std::initializer_list<ScnNode*> nodes)
    {
        auto app = std::make_unique<RtnApplication>();
        app->setGlobalScript(global);
        auto* platform = new OclPlatform;
        auto* program = new OclProgram;
        program->source = kKernels;
        platform->append(program);
        for (ScnNode* n : nodes) platform->append(n);
        app->openCL.node.append(platform);
        std::string error;
        ASSERT_TRUE(app->writeFile(m_ws.path() + "/memory.3Dm", error)) << error;
        ASSERT_TRUE(m_doc.open("memory.3Dm", error)) << error;
        drain();
    }

    // Runs a chunk in the global environment: "" or the error text.
    std::string run(const std::string& code)
    {
        lua_State* L = AppGlobal::luaState();
        if (luaL_dostring(L, code.c_str()) == 0) return "";
        std::string e = lua_tostring(L, -1);
        lua_pop(L, 1);
        return e;
    }

    // The number a chunk leaves in the global `result`.
    double result()
    {
        lua_State* L = AppGlobal::luaState();
        lua_getglobal(L, "result");
        double v = lua_tonumber(L, -1);
        lua_pop(L, 1);
        return v;
    }

    // The run-time twin of the node of that name below the platform of the
    // open document (the nodes handed to open() went with the file).
    template <class T>
    T* live(const char* nodeName)
    {
        auto* platform = static_cast<ScnGroup*>(m_doc.application()->openCL.node.getChild(0));
        for (int i = 0; ScnNode* n = platform->getChild(i); ++i)
            if (n->getName() == nodeName) return dynamic_cast<T*>(n->twin());
        return nullptr;
    }

    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_NE(OclGlobal::currentContext(), nullptr) << "no OpenCL platform on this machine";
    }
};

OclBuffer* floatBuffer(const char* dim)
{
    auto* b = new OclBuffer;
    b->type = MemTypes::Float;
    b->dim0 = dim;
    return b;
}

}  // namespace

TEST_F(ScriptMemory, AScriptFillsABufferRunsAKernelOnItAndReadsTheSquaresBack)
{
    OclBuffer* buffer = floatBuffer("16");
    open("", {buffer});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "k = P.clProgram:getKernel('squares')\n"
                  "b = P.clBuffer:getBuffer()\n"
                  "mem.map(b, mem.WRITE)\n"
                  "for i = 0, mem.dim(b, 0) - 1 do mem.set(b, i, i + 0.5) end\n"
                  "mem.unmap(b)\n"
                  "cl.clSetKernelArg(k, 0, b)\n"
                  "cl.clEnqueueNDRangeKernel(k, 1, {mem.dim(b, 0)})\n"
                  "mem.map(b, mem.READ)\n"
                  "result = 0\n"
                  "for i = 0, 15 do\n"
                  "  local v = mem.get(b, i)\n"
                  "  assert(v == (i + 0.5) ^ 2, 'element ' .. i .. ' is ' .. v)\n"
                  "  result = result + 1\n"
                  "end"),
              "");
    EXPECT_EQ(result(), 16);
    ASSERT_EQ(run("result = mem.dim(b, 0) * 1000 + mem.size(b) + mem.elementsize(b) / 10"), "");
    EXPECT_EQ(result(), 16 * 1000 + 64 + 0.4);
    EXPECT_EQ(live<OclBuffer>("clBuffer")->object()->proxy->byteSize(), 64u);
    EXPECT_EQ(live<OclBuffer>("clBuffer")->object()->dim(0), 64u);

    // Errors are script errors: the script that catches them goes on.
    ASSERT_EQ(run("local ok, e = pcall(mem.get, b, 16)\n"
                  "assert(not ok and e:find('%(clBuffer%): invalid index 16 $'), e)\n"
                  "ok, e = pcall(mem.get, b, -1)\n"
                  "assert(not ok and e:find('invalid index %-1 $'), e)\n"
                  "ok, e = pcall(mem.set, b, 16, 1)\n"
                  "assert(not ok and e:find('invalid index 16/16 $'), e)\n"
                  "for _, i in ipairs({2^32, 1e20, -2^32 + 2, 2^32 + 3, 0/0}) do\n"
                  "  ok, e = pcall(mem.get, b, i)\n"
                  "  assert(not ok and e:find('invalid index'), 'index ' .. i .. ' reached an element')\n"
                  "  ok, e = pcall(mem.set, b, i, 7)\n"
                  "  assert(not ok and e:find('invalid index'), 'index ' .. i .. ' was written')\n"
                  "end\n"
                  "assert(mem.get(b, 0) == 0.25 and mem.get(b, 2) == 2.5 ^ 2, 'nothing was written')\n"
                  "ok, e = pcall(mem.dim, b, 2^32)\n"
                  "assert(not ok and e:find('1 dimension'), e)\n"
                  "ok, e = pcall(mem.map, b, mem.READ)\n"
                  "assert(not ok and e:find('%(clBuffer%): buffer already mapped$'), e)\n"
                  "assert(mem.get(b, 15) == 15.5 ^ 2, 'a refused map keeps the mapping')\n"
                  "mem.unmap(b)\n"
                  "ok, e = pcall(mem.get, b, 0)\n"
                  "assert(not ok and e:find('%(clBuffer%): buffer not mapped$'), e)\n"
                  "ok, e = pcall(mem.unmap, b)\n"
                  "assert(not ok and e:find('buffer not mapped$'), e)\n"
                  "ok, e = pcall(mem.dim, b, 1)\n"
                  "assert(not ok and e:find('%(clBuffer%): buffer only has 1 dimension$'), e)\n"
                  "ok, e = pcall(mem.get, {}, 0)\n"
                  "assert(not ok and e:find('memory object expected'), e)\n"
                  "ok, e = pcall(cl.clEnqueueWriteBuffer, b)\n"
                  "assert(not ok and e:find('image buffer not mapped'), e)\n"
                  "result = 1"),
              "");
    EXPECT_EQ(result(), 1);
}

TEST_F(ScriptMemory, SizeExpressionsFollowTheApplicationsGlobalsAndFallBackOnOne)
{
    OclBuffer* byExpression = floatBuffer("2^4 + n");
    byExpression->name = "byExpression";
    OclBuffer* byText = floatBuffer("\"twelve\"");
    byText->name = "byText";
    open("n = 4", {byExpression, byText});
    EXPECT_EQ(live<OclBuffer>("byExpression")->object()->proxy->getDim(0), 20u);
    EXPECT_EQ(live<OclBuffer>("byText")->object()->proxy->getDim(0), 1u);

    // setSize changes the value, not the expression: a new create reads the
    // expression again, with the global as it is then.
    ASSERT_EQ(run("OpenCL.clPlatform.byExpression:setSize(5)\n"
                  "result = mem.size(OpenCL.clPlatform.byExpression:getBuffer())"),
              "");
    EXPECT_EQ(result(), 20);
    EXPECT_EQ(live<OclBuffer>("byExpression")->dim0.value, "2^4 + n");
    ASSERT_EQ(run("n = 10"), "");
    m_doc.runtime()->create(live<OclBuffer>("byExpression"));
    EXPECT_EQ(live<OclBuffer>("byExpression")->object()->proxy->getDim(0), 26u);
}

TEST_F(ScriptMemory, RebuildsHappenOnlyForTheirFieldsAndKeepAMapping)
{
    OclBuffer* buffer = floatBuffer("8");
    open("", {buffer});
    OclBuffer* b = live<OclBuffer>("clBuffer");
    MemTypeBuffer* first = b->object();
    ASSERT_NE(first->mem, nullptr);

    // An unrelated field (the name) changes nothing. The object is marked,
    // since a new one may well be allocated at the old address.
    first->failed = 12345;
    m_doc.runtime()->update(b, &b->name);
    ASSERT_EQ(b->object(), first);
    EXPECT_EQ(b->object()->failed, 12345);

    ASSERT_TRUE(first->map(CL_MAP_WRITE, 0));
    b->dim0 = "12";
    m_doc.runtime()->update(b, &b->dim0);
    ASSERT_NE(b->object(), nullptr);
    EXPECT_EQ(b->object()->proxy->getDim(0), 12u);
    EXPECT_EQ(b->object()->mapFlags, static_cast<cl_map_flags>(CL_MAP_WRITE)) << "mapped again after the rebuild";

    EXPECT_EQ(b->object()->failed, 0) << "a new object";

    b->type = MemTypes::Float4;
    b->object()->failed = 777;
    m_doc.runtime()->update(b, &b->type);
    EXPECT_EQ(b->object()->failed, 0) << "a new object";
    EXPECT_EQ(b->object()->proxy->typeCode(), static_cast<uint32_t>(MemTypes::Float4));
    EXPECT_EQ(b->object()->proxy->byteSize(), 12u * 16u);
}

TEST_F(ScriptMemory, AStalePointerFromBeforeARebuildIsRefusedNotFollowed)
{
    OclBuffer* buffer = floatBuffer("8");
    open("", {buffer});
    ASSERT_EQ(run("old = OpenCL.clPlatform.clBuffer:getBuffer()"), "");
    OclBuffer* b = live<OclBuffer>("clBuffer");
    b->type = MemTypes::Int;
    m_doc.runtime()->update(b, &b->type);
    ASSERT_EQ(run("local ok, e = pcall(mem.size, old)\n"
                  "assert(not ok and e:find('memory object expected'), e)\n"
                  "result = mem.size(OpenCL.clPlatform.clBuffer:getBuffer())"),
              "");
    EXPECT_EQ(result(), 32);
}

TEST_F(ScriptMemory, ElementsConvertPrintAndStayPutAsTheirTypesSay)
{
    auto* bytes = new OclBuffer;
    bytes->name = "bytes";
    bytes->type = MemTypes::UChar;
    bytes->dim0 = "4";
    auto* pairs = new OclBuffer;
    pairs->name = "pairs";
    pairs->type = MemTypes::Float2;
    pairs->dim0 = "4";
    auto* longs = new OclBuffer;
    longs->name = "longs";
    longs->type = MemTypes::Long;
    longs->dim0 = "2";
    auto* halves = new OclBuffer;
    halves->name = "halves";
    halves->type = MemTypes::Half;
    halves->dim0 = "2";
    auto* pixels = new OclBuffer;
    pixels->name = "pixels";
    pixels->type = MemTypes::UChar4;
    pixels->dim0 = "2";
    open("", {bytes, pairs, longs, halves, pixels});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "u = P.bytes:getBuffer(); f2 = P.pairs:getBuffer(); l = P.longs:getBuffer()\n"
                  "h = P.halves:getBuffer(); px = P.pixels:getBuffer()\n"
                  "for _, b in ipairs({u, f2, l, h, px}) do mem.map(b, mem.READ_WRITE) end\n"
                  "mem.set(u, 0, 300); mem.set(u, 1, -1); mem.set(u, 2, 7.9); mem.set(u, 3, 9)\n"
                  "assert(mem.get(u, 0) == 44 and mem.get(u, 1) == 255 and mem.get(u, 2) == 7)\n"
                  "mem.set(u, 3, nil)\n"
                  "assert(mem.get(u, 3) == 9, 'nil leaves the element')\n"
                  "mem.set(f2, 1, 1.5, 2.5)\n"
                  "mem.set(f2, 1, nil, 4)\n"
                  "local a, b2, c = mem.get(f2, 1)\n"
                  "assert(a == 1.5 and b2 == 4 and c == nil, 'two results')\n"
                  "assert(select('#', mem.get(u, 0)) == 1)\n"
                  "mem.set(h, 0, 65535); mem.set(h, 1, 15360)\n"
                  "assert(mem.get(h, 0) == 65535 and mem.get(h, 1) == 15360)\n"
                  "mem.set(px, 1, 255, 0, 0, 255)\n"
                  "mem.print(u, 2); mem.print(f2, 1); mem.print(l, 0); mem.print(px, 1)\n"
                  "mem.print(f2, 99)\n"
                  "local ok, e = pcall(mem.set, f2, 0, 'x')\n"
                  "assert(not ok and e:find('number or null expected'), e)\n"
                  "ok, e = pcall(mem.pack, u)\n"
                  "assert(not ok and e:find('pack is not a valid operation for buffer $'), e)\n"
                  "assert(mem.sizeof(cl.cl_float4) == 16 and mem.sizeof(cl.cl_half) == 2)\n"
                  "ok, e = pcall(mem.sizeof, 31)\n"
                  "assert(not ok and e:find('mem.CL_.. data type expected'), e)"),
              "");
    EXPECT_EQ(drain(), (Lines{"(): [2] :7", "(): [1] : (1.500000, 4.000000)",
                              "(): [0] : prtEntry1 not implemented for given type ", "(): [1] : (255, 0, 0, 255)"}));
}

TEST_F(ScriptMemory, InitFillsAnUnmappedBufferAndBytecopyGathersAChannel)
{
    auto* pixels = new OclBuffer;
    pixels->name = "pixels";
    pixels->type = MemTypes::UChar4;
    pixels->dim0 = "4";
    auto* reds = new OclBuffer;
    reds->name = "reds";
    reds->type = MemTypes::UChar;
    reds->dim0 = "16";
    open("", {pixels, reds});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "px = P.pixels:getBuffer(); r = P.reds:getBuffer()\n"
                  "mem.init(px, 1, 2, 3, 4)\n"
                  "local ok, e = pcall(mem.get, px, 0)\n"
                  "assert(not ok, 'init leaves the buffer unmapped')\n"
                  "ok, e = pcall(mem.init, r, 'x')\n"
                  "assert(not ok and e:find('number expected'), e)\n"
                  "ok, e = pcall(mem.get, r, 0)\n"
                  "assert(not ok and e:find('not mapped'), 'a refused init unmaps too')\n"
                  "mem.init(r, 0)\n"
                  "mem.map(px, mem.READ_WRITE); mem.map(r, mem.READ_WRITE)\n"
                  "for i = 0, 3 do mem.set(px, i, 10 + i, 0, 0, 0) end\n"
                  "mem.bytecopy(4, 1, px, 4, r, 1)\n"
                  "for i = 0, 3 do assert(mem.get(r, i) == 10 + i) end\n"
                  "assert(mem.get(r, 4) == 0)\n"
                  "ok, e = pcall(mem.bytecopy, 5, 4, px, 4, r, 4)\n"
                  "assert(not ok and e:find('out of range'), e)\n"
                  "result = select(4, mem.get(px, 3))"),
              "");
    EXPECT_EQ(result(), 0);
}

TEST_F(ScriptMemory, KernelArgumentsTakeScalarsVectorsLocalSizesAndRefuseWhatIsNotOffered)
{
    OclBuffer* out = floatBuffer("4");
    open("", {out});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "k = P.clProgram:getKernel('put4')\n"
                  "o = P.clBuffer:getBuffer()\n"
                  "local function put(...)\n"
                  "  cl.clSetKernelArg(k, 0, o)\n"
                  "  cl.clSetKernelArg(k, 1, cl.cl_float4, ...)\n"
                  "  cl.clEnqueueTask(k)\n"
                  "  mem.map(o, mem.READ)\n"
                  "  local r = {mem.get(o, 0), mem.get(o, 1), mem.get(o, 2), mem.get(o, 3)}\n"
                  "  mem.unmap(o)\n"
                  "  return table.concat(r, ',')\n"
                  "end\n"
                  "assert(put({1, 2, 3, 4}) == '1,2,3,4')\n"
                  "assert(put(5, 6, 7, 8) == '5,6,7,8')\n"
                  "local s = P.clProgram:getKernel('scratch')\n"
                  "cl.clSetKernelArg(s, 0, o)\n"
                  "cl.clSetKernelArg(s, 1, 1024)\n"
                  "cl.clEnqueueNDRangeKernel(s, 1, {1})\n"
                  "mem.map(o, mem.READ); assert(mem.get(o, 0) == 3); mem.unmap(o)\n"
                  "local ok, e = pcall(cl.clSetKernelArg, k, 1, cl.cl_long, 1)\n"
                  "assert(not ok and e:find('argument type not supported'), e)\n"
                  "ok, e = pcall(cl.clEnqueueNDRangeKernel, k, 2, {4})\n"
                  "assert(not ok and e:find('global worksize array size < workdim'), e)\n"
                  "local big = {}\n"
                  "for i = 1, 150 do big[i] = 1 end\n"
                  "cl.clEnqueueNDRangeKernel(s, 1, big)\n"
                  "ok, e = pcall(cl.clSetKernelArg, P.clProgram:getKernel('none'), 0, o)\n"
                  "assert(not ok and e:find('kernel expected'), e)\n"
                  "ok, e = pcall(cl.clSetKernelArg, k, 7, o)\n"
                  "assert(not ok and e:find('^%(put4%) : error calling clSetKernelArg : CL_INVALID_ARG_INDEX'), e)\n"
                  "ok, e = pcall(cl.clEnqueueMapBuffer, o, 'r')\n"
                  "assert(not ok and e:find('cl.CL_MAP_READ, cl.CL_MAP_WRITE'), e)\n"
                  "result = cl.clGetKernelWorkGroupInfo(k, cl.CL_KERNEL_WORK_GROUP_SIZE)"),
              "");
    EXPECT_GT(result(), 0);
}

TEST_F(ScriptMemory, BuffersCopyAndTransferPartsThroughTheClModule)
{
    OclBuffer* a = floatBuffer("8");
    a->name = "a";
    OclBuffer* b = floatBuffer("4");
    b->name = "b";
    open("", {a, b});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "a = P.a:getBuffer(); b = P.b:getBuffer()\n"
                  "cl.clEnqueueMapBuffer(a, cl.CL_MAP_WRITE)\n"
                  "for i = 0, 7 do mem.set(a, i, i) end\n"
                  "cl.clEnqueueUnmapMemObject(a)\n"
                  "cl.clEnqueueCopyBuffer(a, b)\n"
                  "mem.map(b, mem.READ)\n"
                  "for i = 0, 3 do assert(mem.get(b, i) == i) end\n"
                  "mem.unmap(b)\n"
                  "cl.clEnqueueCopyBuffer(a, b, 16, 0, 8)\n"
                  "mem.map(b, mem.READ_WRITE)\n"
                  "assert(mem.get(b, 0) == 4 and mem.get(b, 1) == 5 and mem.get(b, 2) == 2)\n"
                  "mem.unmap(b)\n"
                  // The mapped block is the host side of a transfer; while
                  // mapped, drivers may or may not share it with the device,
                  // so only a round trip has a defined result.
                  "mem.map(a, mem.READ_WRITE)\n"
                  "cl.clEnqueueWriteBuffer(a)\n"
                  "cl.clEnqueueWriteBuffer(a, 16, 8)\n"
                  "cl.clEnqueueReadBuffer(a)\n"
                  "local ok, e = pcall(cl.clEnqueueReadBuffer, a, 0, 33)\n"
                  "assert(not ok, 'more than the buffer holds')\n"
                  "ok, e = pcall(cl.clEnqueueReadBuffer, a, 'x', 4)\n"
                  "assert(not ok and e:find('byte offset expected'), e)\n"
                  "result = mem.get(a, 7)"),
              "");
    EXPECT_EQ(result(), 7);
}

TEST_F(ScriptMemory, RecordsAreLaidOutAsOpenCLCDoesAndReadBackAsWritten)
{
    auto* records = new OclBuffer;
    records->name = "records";
    records->type = MemTypes::UChar;
    records->dim0 = "64";
    open("", {records});
    ASSERT_EQ(run("struct.create('rec')\n"
                  "struct.field('pos', cl.cl_float4)\n"
                  "struct.field('id', cl.cl_int)\n"
                  "assert(struct.size('rec') == 32)\n"
                  "struct.create('small'); struct.field('c', cl.cl_char); struct.field('f', cl.cl_float)\n"
                  "assert(struct.size('small') == 16)\n"
                  "struct.create('mixed'); struct.field('a', cl.cl_char); struct.field('b', cl.cl_double2)\n"
                  "struct.field('c', cl.cl_char)\n"
                  "assert(struct.size('mixed') == 48)\n"
                  "assert(struct.size('gs_camera') == 128 and struct.size('gs_light') == 144)\n"
                  "local ok, e = pcall(struct.field, 'x', 31)\n"
                  "assert(not ok and e:find('cltype expected'), e)\n"
                  "ok, e = pcall(struct.size, 'nothing')\n"
                  "assert(not ok and e:find('struct not found: nothing'), e)\n"
                  "b = OpenCL.clPlatform.records:getBuffer()\n"
                  "struct.interpret(b, 'rec')\n"
                  "mem.map(b, mem.READ_WRITE)\n"
                  "for i = 0, 1 do\n"
                  "  struct.map(b, i)\n"
                  "  struct.set('pos', i, i + 0.5, -i, 8)\n"
                  "  struct.set('id', 100 + i)\n"
                  "  struct.unmap()\n"
                  "end\n"
                  "struct.map(b, 1)\n"
                  "local x, y, z, w = struct.get('pos')\n"
                  "assert(x == 1 and y == 1.5 and z == -1 and w == 8)\n"
                  "assert(struct.get('id') == 101)\n"
                  "assert(mem.get(b, 32 + 16) == 101, 'the int lies behind the float4')\n"
                  "ok, e = pcall(struct.get, 'nope')\n"
                  "assert(not ok and e:find('field not found: nope'), e)\n"
                  "struct.map(b, 2)\n"
                  "ok, e = pcall(struct.set, 'id', 1)\n"
                  "assert(not ok and e:find('out of range'), 'the record past the end is not written')\n"
                  "ok, e = pcall(struct.map, b, 3)\n"
                  "assert(not ok and e:find('memory address out of range for buffer'), e)\n"
                  "for _, i in ipairs({1e20, 2^32, -2^32 + 2, 0/0}) do\n"
                  "  ok, e = pcall(struct.map, b, i)\n"
                  "  assert(not ok and e:find('out of range'), 'record ' .. i .. ' was mapped')\n"
                  "end\n"
                  "struct.create('twice'); struct.field('v', cl.cl_int); struct.field('v', cl.cl_float)\n"
                  "struct.interpret(b, 'twice')\n"
                  "struct.map(b, 0)\n"
                  "struct.set('v', 7.5)\n"
                  "assert(struct.get('v') == 7, 'the first field of a name is the one used')\n"
                  "struct.unmap()\n"
                  "struct.interpret(b, 'rec')\n"
                  "ok, e = pcall(struct.set, 'id', 1)\n"
                  "assert(not ok and e:find('struct not mapped'), e)\n"
                  "mem.unmap(b)\n"
                  "ok, e = pcall(struct.map, b, 0)\n"
                  "assert(not ok and e:find('buffer not mapped %(records%)'), e)\n"
                  "struct.create('rec'); struct.field('other', cl.cl_int)\n"
                  "mem.map(b, mem.READ)\n"
                  "ok, e = pcall(struct.map, b, 0)\n"
                  "assert(not ok and e:find('no structure type associated'), 'a redeclared type is not followed')\n"
                  "mem.unmap(b)\n"
                  "result = 1"),
              "");
    EXPECT_EQ(result(), 1);
}

TEST_F(ScriptMemory, AFieldNeedsACreateFirstAndUnmapNeedsAMap)
{
    open("", {});
    // A failed map clears the current type, as a fresh start has none.
    ASSERT_EQ(run("pcall(struct.map, nil)\n"
                  "local ok, e = pcall(struct.field, 'x', cl.cl_int)\n"
                  "assert(not ok and e:find('must call struct.create first'), e)\n"
                  "ok, e = pcall(struct.unmap)\n"
                  "assert(not ok and e:find('buffer not mapped'), e)\n"
                  "ok, e = pcall(struct.interpret, {}, 'rec')\n"
                  "assert(not ok and e:find('1D buffer expected'), e)"),
              "");
}

TEST_F(ScriptMemory, ImageNodesReportTheirSizesAndResizeTheirObjects)
{
    auto* flat = new OclImage2D;
    flat->dim0 = "8";
    flat->dim1 = "4";
    auto* deep = new OclImage3D;
    deep->dim0 = "2";
    deep->dim1 = "2";
    deep->dim2 = "2";
    open("", {flat, deep});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "local i2, i3 = P.clImage2D, P.clImage3D\n"
                  "assert(i2:dim(0) == 8 and i2:dim(1) == 4 and i3:dim(2) == 2)\n"
                  "local ok, e = pcall(i2.dim, i2, 2)\n"
                  "assert(not ok and e:find('0 or 1'), e)\n"
                  "ok, e = pcall(i3.dim, i3, 3)\n"
                  "assert(not ok and e:find('0, 1 or 2 expected'), e)\n"
                  "i2:setSize(16, 2)\n"
                  "local b = i2:getBuffer()\n"
                  "assert(mem.dim(b, 0) == 16 and mem.dim(b, 1) == 2)\n"
                  "assert(mem.size(b) == 16 * 2 * 4, 'RGBA bytes')\n"
                  "ok, e = pcall(i2.setSize, i2, 'wide', 2)\n"
                  "assert(not ok and e:find('number expected'), e)\n"
                  "i3:setSize(4, 4, 4)\n"
                  "result = mem.size(i3:getBuffer())"),
              "");
    EXPECT_EQ(result(), 4 * 4 * 4 * 4);
    EXPECT_EQ(live<OclImage2D>("clImage2D")->dim0.value, "8") << "setSize leaves the expression";
    EXPECT_EQ(live<OclImage2D>("clImage2D")->object()->dim(0), 16u);
}

TEST_F(ScriptMemory, AKernelArgumentOfARebuiltBufferFailsTheLaunchUntilSetAgain)
{
    open("", {floatBuffer("8")});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "k = P.clProgram:getKernel('squares')\n"
                  "b = P.clBuffer:getBuffer()\n"
                  "cl.clSetKernelArg(k, 0, b)\n"
                  "P.clBuffer:setSize(16)\n"),
              "");
    // The argument still names the released object: refused, not launched.
    std::string e = run("cl.clEnqueueNDRangeKernel(k, 1, {8})");
    EXPECT_NE(e.find("argument 0 names a memory object that was rebuilt or released; set it again"),
              std::string::npos)
        << e;
    e = run("cl.clEnqueueTask(k)");
    EXPECT_NE(e.find("argument 0"), std::string::npos) << e;

    // Set again with the new object, the launch runs on the new buffer.
    ASSERT_EQ(run("b = P.clBuffer:getBuffer()\n"
                  "mem.map(b, mem.WRITE)\n"
                  "for i = 0, 15 do mem.set(b, i, i) end\n"
                  "mem.unmap(b)\n"
                  "cl.clSetKernelArg(k, 0, b)\n"
                  "cl.clEnqueueNDRangeKernel(k, 1, {16})\n"
                  "mem.map(b, mem.READ)\n"
                  "result = mem.get(b, 15)\n"
                  "mem.unmap(b)\n"),
              "");
    EXPECT_EQ(result(), 225);

    // A memory argument replaced by a __local size is no memory argument any more.
    ASSERT_EQ(run("k2 = P.clProgram:getKernel('scratch')\n"
                  "cl.clSetKernelArg(k2, 0, b)\n"
                  "cl.clSetKernelArg(k2, 1, 4)\n"
                  "P.clBuffer:setSize(4)\n"
                  "b = P.clBuffer:getBuffer()\n"
                  "cl.clSetKernelArg(k2, 0, b)\n"
                  "cl.clEnqueueNDRangeKernel(k2, 1, {1})\n"
                  "mem.map(b, mem.READ)\n"
                  "result = mem.get(b, 0)\n"
                  "mem.unmap(b)\n"),
              "");
    EXPECT_EQ(result(), 3);
}
