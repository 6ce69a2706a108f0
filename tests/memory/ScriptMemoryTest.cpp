// Scripts driving the device through an open document: buffers described by
// nodes, filled and read through `mem`, kernels launched through `cl`, and
// records laid over buffers with `struct`, on the machine's own platform.
#include <gtest/gtest.h>

#include <lua.hpp>

#include <string>

#include "memory/SourceFiles.h"
#include "runtime/CmdNodes.h"

using namespace sources;

namespace {

const char* const kKernels =
    "__kernel void squares(__global float* v) { size_t i = get_global_id(0); v[i] = v[i] * v[i]; }\n"
    "__kernel void put4(__global float* out, float4 a) { out[0] = a.x; out[1] = a.y; out[2] = a.z; out[3] = a.w; }\n"
    "__kernel void scratch(__global float* out, __local float* tmp) { tmp[0] = 3.0f; out[0] = tmp[0]; }\n";

class ScriptMemory : public PlatformDocument {
protected:
    // The nodes after a program holding the kernels above.
    void openWith(std::initializer_list<ScnNode*> nodes, const std::string& global = "")
    {
        auto* program = new OclProgram;
        program->source = kKernels;
        std::vector<ScnNode*> all{program};
        all.insert(all.end(), nodes.begin(), nodes.end());
        open(all, global);
        drain();
    }
    double result() { return number("result"); }
};

}  // namespace

TEST_F(ScriptMemory, AScriptFillsABufferRunsAKernelOnItAndReadsTheSquaresBack)
{
    openWith({buffer("clBuffer", MemTypes::Float, "16")});
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
    ASSERT_EQ(run("fails('%(clBuffer%): invalid index 16 $', mem.get, b, 16)\n"
                  "fails('invalid index %-1 $', mem.get, b, -1)\n"
                  "fails('invalid index 16/16 $', mem.set, b, 16, 1)\n"
                  "for _, i in ipairs({2^32, 1e20, -2^32 + 2, 2^32 + 3, 0/0}) do\n"
                  "  fails('invalid index', mem.get, b, i)\n"
                  "  fails('invalid index', mem.set, b, i, 7)\n"
                  "end\n"
                  "assert(mem.get(b, 0) == 0.25 and mem.get(b, 2) == 2.5 ^ 2, 'nothing was written')\n"
                  "fails('1 dimension', mem.dim, b, 2^32)\n"
                  "fails('%(clBuffer%): buffer already mapped$', mem.map, b, mem.READ)\n"
                  "assert(mem.get(b, 15) == 15.5 ^ 2, 'a refused map keeps the mapping')\n"
                  "mem.unmap(b)\n"
                  "fails('%(clBuffer%): buffer not mapped$', mem.get, b, 0)\n"
                  "fails('buffer not mapped$', mem.unmap, b)\n"
                  "fails('%(clBuffer%): buffer only has 1 dimension$', mem.dim, b, 1)\n"
                  "fails('memory object expected', mem.get, {}, 0)\n"
                  "fails('image buffer not mapped', cl.clEnqueueWriteBuffer, b)"),
              "");
}

TEST_F(ScriptMemory, SizeExpressionsFollowTheApplicationsGlobalsAndFallBackOnOne)
{
    openWith({buffer("byExpression", MemTypes::Float, "2^4 + n"), buffer("byText", MemTypes::Float, "\"twelve\"")},
             "n = 4");
    OclBuffer* b = live<OclBuffer>("byExpression");
    EXPECT_EQ(b->object()->proxy->getDim(0), 20u);
    EXPECT_EQ(live<OclBuffer>("byText")->object()->proxy->getDim(0), 1u);

    // setSize changes the value, not the expression: a new create reads the
    // expression again, with the global as it is then.
    ASSERT_EQ(run("OpenCL.clPlatform.byExpression:setSize(5)\n"
                  "result = mem.size(OpenCL.clPlatform.byExpression:getBuffer())"),
              "");
    EXPECT_EQ(result(), 20);
    EXPECT_EQ(b->dim0.value, "2^4 + n");
    ASSERT_EQ(run("n = 10"), "");
    m_doc.runtime()->create(b);
    EXPECT_EQ(b->object()->proxy->getDim(0), 26u);
}

TEST_F(ScriptMemory, RebuildsHappenOnlyForTheirFieldsAndKeepAMapping)
{
    openWith({buffer("clBuffer", MemTypes::Float, "8")});
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
    openWith({buffer("clBuffer", MemTypes::Float, "8")});
    ASSERT_EQ(run("old = OpenCL.clPlatform.clBuffer:getBuffer()"), "");
    OclBuffer* b = live<OclBuffer>("clBuffer");
    b->type = MemTypes::Int;
    m_doc.runtime()->update(b, &b->type);
    ASSERT_EQ(run("fails('memory object expected', mem.size, old)\n"
                  "result = mem.size(OpenCL.clPlatform.clBuffer:getBuffer())"),
              "");
    EXPECT_EQ(result(), 32);
}

TEST_F(ScriptMemory, ElementsConvertPrintAndStayPutAsTheirTypesSay)
{
    openWith({buffer("bytes", MemTypes::UChar, "4"), buffer("pairs", MemTypes::Float2, "4"),
              buffer("longs", MemTypes::Long, "2"), buffer("halves", MemTypes::Half, "2"),
              buffer("pixels", MemTypes::UChar4, "2")});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "u = P.bytes:getBuffer(); f2 = P.pairs:getBuffer(); l = P.longs:getBuffer()\n"
                  "h = P.halves:getBuffer(); px = P.pixels:getBuffer()\n"
                  "for _, b in ipairs({u, f2, l, h, px}) do mem.map(b, mem.READ_WRITE) end\n"
                  "mem.set(u, 0, 300); mem.set(u, 1, -1); mem.set(u, 2, 7.9); mem.set(u, 3, 9)\n"
                  "assert(mem.get(u, 0) == 44 and mem.get(u, 1) == 255 and mem.get(u, 2) == 7)\n"
                  "mem.set(u, 3, nil)\n"
                  "assert(mem.get(u, 3) == 9, 'nil leaves the element')\n"
                  "mem.set(f2, 1, 1.5, 2.5); mem.set(f2, 1, nil, 4)\n"
                  "local a, b2, c = mem.get(f2, 1)\n"
                  "assert(a == 1.5 and b2 == 4 and c == nil, 'two results')\n"
                  "assert(select('#', mem.get(u, 0)) == 1)\n"
                  "mem.set(h, 0, 65535); mem.set(h, 1, 15360)\n"
                  "assert(mem.get(h, 0) == 65535 and mem.get(h, 1) == 15360)\n"
                  "mem.set(px, 1, 255, 0, 0, 255)\n"
                  "mem.print(u, 2); mem.print(f2, 1); mem.print(l, 0); mem.print(px, 1)\n"
                  "mem.print(f2, 99)\n"
                  "fails('number or null expected', mem.set, f2, 0, 'x')\n"
                  "fails('pack is not a valid operation for buffer $', mem.pack, u)\n"
                  "assert(mem.sizeof(cl.cl_float4) == 16 and mem.sizeof(cl.cl_half) == 2)\n"
                  "fails('mem.CL_.. data type expected', mem.sizeof, 31)"),
              "");
    EXPECT_EQ(drain(), (Lines{"(): [2] :7", "(): [1] : (1.500000, 4.000000)",
                              "(): [0] : prtEntry1 not implemented for given type ", "(): [1] : (255, 0, 0, 255)"}));
}

TEST_F(ScriptMemory, InitFillsAnUnmappedBufferAndBytecopyGathersAChannel)
{
    openWith({buffer("pixels", MemTypes::UChar4, "4"), buffer("reds", MemTypes::UChar, "16")});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "px = P.pixels:getBuffer(); r = P.reds:getBuffer()\n"
                  "mem.init(px, 1, 2, 3, 4)\n"
                  "fails('not mapped', mem.get, px, 0)\n"
                  "fails('number expected', mem.init, r, 'x')\n"
                  "fails('not mapped', mem.get, r, 0)\n"
                  "mem.init(r, 0)\n"
                  "mem.map(px, mem.READ_WRITE); mem.map(r, mem.READ_WRITE)\n"
                  "assert(select(4, mem.get(px, 3)) == 4, 'init filled every element')\n"
                  "for i = 0, 3 do mem.set(px, i, 10 + i, 0, 0, 0) end\n"
                  "mem.bytecopy(4, 1, px, 4, r, 1)\n"
                  "for i = 0, 3 do assert(mem.get(r, i) == 10 + i) end\n"
                  "assert(mem.get(r, 4) == 0)\n"
                  "fails('out of range', mem.bytecopy, 5, 4, px, 4, r, 4)\n"
                  "result = select(4, mem.get(px, 3))"),
              "");
    EXPECT_EQ(result(), 0);
}

TEST_F(ScriptMemory, KernelArgumentsTakeScalarsVectorsLocalSizesAndRefuseWhatIsNotOffered)
{
    openWith({buffer("clBuffer", MemTypes::Float, "4")});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "k = P.clProgram:getKernel('put4')\n"
                  "o = P.clBuffer:getBuffer()\n"
                  "local function put(...)\n"
                  "  cl.clSetKernelArg(k, 0, o); cl.clSetKernelArg(k, 1, cl.cl_float4, ...); cl.clEnqueueTask(k)\n"
                  "  mem.map(o, mem.READ)\n"
                  "  local r = {mem.get(o, 0), mem.get(o, 1), mem.get(o, 2), mem.get(o, 3)}\n"
                  "  mem.unmap(o)\n"
                  "  return table.concat(r, ',')\n"
                  "end\n"
                  "assert(put({1, 2, 3, 4}) == '1,2,3,4')\n"
                  "assert(put(5, 6, 7, 8) == '5,6,7,8')\n"
                  "local s = P.clProgram:getKernel('scratch')\n"
                  "cl.clSetKernelArg(s, 0, o); cl.clSetKernelArg(s, 1, 1024)\n"
                  "cl.clEnqueueNDRangeKernel(s, 1, {1})\n"
                  "mem.map(o, mem.READ); assert(mem.get(o, 0) == 3); mem.unmap(o)\n"
                  "fails('argument type not supported', cl.clSetKernelArg, k, 1, cl.cl_long, 1)\n"
                  "fails('global worksize array size < workdim', cl.clEnqueueNDRangeKernel, k, 2, {4})\n"
                  "local big = {}\n"
                  "for i = 1, 150 do big[i] = 1 end\n"
                  "cl.clEnqueueNDRangeKernel(s, 1, big)\n"
                  "fails('kernel expected', cl.clSetKernelArg, P.clProgram:getKernel('none'), 0, o)\n"
                  "fails('^%(put4%) : error calling clSetKernelArg : CL_INVALID_ARG_INDEX',\n"
                  "      cl.clSetKernelArg, k, 7, o)\n"
                  "fails('cl.CL_MAP_READ, cl.CL_MAP_WRITE', cl.clEnqueueMapBuffer, o, 'r')\n"
                  "result = cl.clGetKernelWorkGroupInfo(k, cl.CL_KERNEL_WORK_GROUP_SIZE)"),
              "");
    EXPECT_GT(result(), 0);
}

TEST_F(ScriptMemory, BuffersCopyAndTransferPartsThroughTheClModule)
{
    openWith({buffer("a", MemTypes::Float, "8"), buffer("b", MemTypes::Float, "4")});
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
                  "cl.clEnqueueWriteBuffer(a); cl.clEnqueueWriteBuffer(a, 16, 8); cl.clEnqueueReadBuffer(a)\n"
                  "fails('', cl.clEnqueueReadBuffer, a, 0, 33)\n"
                  "fails('byte offset expected', cl.clEnqueueReadBuffer, a, 'x', 4)\n"
                  "result = mem.get(a, 7)"),
              "");
    EXPECT_EQ(result(), 7);
}

TEST_F(ScriptMemory, RecordsAreLaidOutAsOpenCLCDoesAndReadBackAsWritten)
{
    openWith({buffer("records", MemTypes::UChar, "64")});
    // A failed map clears the current type, as a fresh start has none.
    ASSERT_EQ(run("pcall(struct.map, nil)\n"
                  "fails('must call struct.create first', struct.field, 'x', cl.cl_int)\n"
                  "fails('buffer not mapped', struct.unmap)\n"
                  "fails('1D buffer expected', struct.interpret, {}, 'rec')"),
              "");
    ASSERT_EQ(run("struct.create('rec'); struct.field('pos', cl.cl_float4); struct.field('id', cl.cl_int)\n"
                  "assert(struct.size('rec') == 32)\n"
                  "struct.create('small'); struct.field('c', cl.cl_char); struct.field('f', cl.cl_float)\n"
                  "assert(struct.size('small') == 16)\n"
                  "struct.create('mixed'); struct.field('a', cl.cl_char); struct.field('b', cl.cl_double2)\n"
                  "struct.field('c', cl.cl_char)\n"
                  "assert(struct.size('mixed') == 48)\n"
                  "assert(struct.size('gs_camera') == 128 and struct.size('gs_light') == 144)\n"
                  "fails('cltype expected', struct.field, 'x', 31)\n"
                  "fails('struct not found: nothing', struct.size, 'nothing')\n"
                  "b = OpenCL.clPlatform.records:getBuffer()\n"
                  "struct.interpret(b, 'rec')\n"
                  "mem.map(b, mem.READ_WRITE)\n"
                  "for i = 0, 1 do\n"
                  "  struct.map(b, i); struct.set('pos', i, i + 0.5, -i, 8)\n"
                  "  struct.set('id', 100 + i); struct.unmap()\n"
                  "end\n"
                  "struct.map(b, 1)\n"
                  "local x, y, z, w = struct.get('pos')\n"
                  "assert(x == 1 and y == 1.5 and z == -1 and w == 8)\n"
                  "assert(struct.get('id') == 101)\n"
                  "assert(mem.get(b, 32 + 16) == 101, 'the int lies behind the float4')\n"
                  "fails('field not found: nope', struct.get, 'nope')\n"
                  "struct.map(b, 2)\n"
                  "fails('out of range', struct.set, 'id', 1)\n"
                  "fails('memory address out of range for buffer', struct.map, b, 3)\n"
                  "for _, i in ipairs({1e20, 2^32, -2^32 + 2, 0/0}) do fails('out of range', struct.map, b, i) end\n"
                  "struct.create('twice'); struct.field('v', cl.cl_int); struct.field('v', cl.cl_float)\n"
                  "struct.interpret(b, 'twice')\n"
                  "struct.map(b, 0); struct.set('v', 7.5)\n"
                  "assert(struct.get('v') == 7, 'the first field of a name is the one used')\n"
                  "struct.unmap()\n"
                  "struct.interpret(b, 'rec')\n"
                  "fails('struct not mapped', struct.set, 'id', 1)\n"
                  "mem.unmap(b)\n"
                  "fails('buffer not mapped %(records%)', struct.map, b, 0)\n"
                  "struct.create('rec'); struct.field('other', cl.cl_int)\n"
                  "mem.map(b, mem.READ)\n"
                  "fails('no structure type associated', struct.map, b, 0)\n"
                  "mem.unmap(b)"),
              "");
}

TEST_F(ScriptMemory, ImageNodesReportTheirSizesAndResizeTheirObjects)
{
    auto* flat = new OclImage2D;
    flat->dim0 = "8";
    flat->dim1 = "4";
    auto* deep = new OclImage3D;
    deep->dim0 = "2", deep->dim1 = "2", deep->dim2 = "2";
    openWith({flat, deep});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "local i2, i3 = P.clImage2D, P.clImage3D\n"
                  "assert(i2:dim(0) == 8 and i2:dim(1) == 4 and i3:dim(2) == 2)\n"
                  "fails('0 or 1', i2.dim, i2, 2)\n"
                  "fails('0, 1 or 2 expected', i3.dim, i3, 3)\n"
                  "i2:setSize(16, 2)\n"
                  "local b = i2:getBuffer()\n"
                  "assert(mem.dim(b, 0) == 16 and mem.dim(b, 1) == 2)\n"
                  "assert(mem.size(b) == 16 * 2 * 4, 'RGBA bytes')\n"
                  "fails('number expected', i2.setSize, i2, 'wide', 2)\n"
                  "i3:setSize(4, 4, 4)\n"
                  "result = mem.size(i3:getBuffer())"),
              "");
    EXPECT_EQ(result(), 4 * 4 * 4 * 4);
    EXPECT_EQ(live<OclImage2D>("clImage2D")->dim0.value, "8") << "setSize leaves the expression";
    EXPECT_EQ(live<OclImage2D>("clImage2D")->object()->dim(0), 16u);
}

TEST_F(ScriptMemory, AKernelArgumentOfARebuiltBufferFailsTheLaunchUntilSetAgain)
{
    openWith({buffer("clBuffer", MemTypes::Float, "8")});
    ASSERT_EQ(run("P = OpenCL.clPlatform\n"
                  "k = P.clProgram:getKernel('squares')\n"
                  "cl.clSetKernelArg(k, 0, P.clBuffer:getBuffer())\n"
                  "P.clBuffer:setSize(16)\n"),
              "");
    // The argument still names the released object: refused, not launched.
    EXPECT_TRUE(raises("cl.clEnqueueNDRangeKernel(k, 1, {8})",
                       "argument 0 names a memory object that was rebuilt or released; set it again"));
    EXPECT_TRUE(raises("cl.clEnqueueTask(k)", "argument 0"));

    // Set again with the new object, the launch runs on the new buffer.
    ASSERT_EQ(run("b = P.clBuffer:getBuffer()\n"
                  "mem.map(b, mem.WRITE)\n"
                  "for i = 0, 15 do mem.set(b, i, i) end\n"
                  "mem.unmap(b)\n"
                  "cl.clSetKernelArg(k, 0, b)\n"
                  "cl.clEnqueueNDRangeKernel(k, 1, {16})\n"
                  "mem.map(b, mem.READ); result = mem.get(b, 15); mem.unmap(b)"),
              "");
    EXPECT_EQ(result(), 225);

    // A memory argument replaced by a __local size is no memory argument any more.
    ASSERT_EQ(run("k2 = P.clProgram:getKernel('scratch')\n"
                  "cl.clSetKernelArg(k2, 0, b); cl.clSetKernelArg(k2, 1, 4)\n"
                  "P.clBuffer:setSize(4)\n"
                  "b = P.clBuffer:getBuffer()\n"
                  "cl.clSetKernelArg(k2, 0, b)\n"
                  "cl.clEnqueueNDRangeKernel(k2, 1, {1})\n"
                  "mem.map(b, mem.READ); result = mem.get(b, 0); mem.unmap(b)"),
              "");
    EXPECT_EQ(result(), 3);
}
