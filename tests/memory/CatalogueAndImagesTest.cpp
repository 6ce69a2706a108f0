// The element type catalogue and its format conversions, and images of every
// format the catalogue offers written and read back through `mem` on the
// machine's own OpenCL device.
#include <gtest/gtest.h>

#include <GL/gl.h>
#include <GL/glext.h>
#include <lua.hpp>

#include <string>
#include <vector>

#include "compute/OclGlobal.h"
#include "memory/MemObjects.h"
#include "memory/SourceFiles.h"
#include "runtime/LuaExt.h"

namespace {

struct Conversion {
    uint32_t order, type;
    uint32_t element, internal, format, glType;
};

cl_image_format fmt(uint32_t order, uint32_t type) { return cl_image_format{order, type}; }

using sources::run;

void setGlobalObject(const char* name, oclObject* object)
{
    lua_State* L = AppGlobal::luaState();
    velmora_pushtypeduserdata(L, object, LuaTag::kPointer);
    lua_setglobal(L, name);
}

}  // namespace

TEST(Catalogue, ImageFormatsConvertToElementTypesAndGLFormats)
{
    Channels::clearAll();
    EXPECT_EQ(std::vector<uint32_t>({clTypeSize(MemTypes::Half), clTypeSize(MemTypes::Char2), clTypeSize(MemTypes::Float2),
                                     clTypeSize(MemTypes::Double4)}),
              std::vector<uint32_t>({2, 2, 8, 32}));
    EXPECT_EQ(clTypeSize(31), 0u);
    EXPECT_EQ(drain(), Lines{"(clTypeSize):  unknown type in clTypeSize 31"});
    const Conversion cases[] = {
        {CL_RGBA, CL_UNORM_INT8, MemTypes::UChar4, GL_RGBA8, GL_RGBA, GL_UNSIGNED_BYTE},
        {CL_RGBA, CL_SIGNED_INT8, MemTypes::Char4, GL_RGBA8, GL_RGBA, GL_BYTE},
        {CL_BGRA, CL_FLOAT, MemTypes::Float4, GL_RGBA32F, GL_BGRA, GL_FLOAT},
        {CL_LUMINANCE, CL_UNSIGNED_INT16, MemTypes::UShort, GL_LUMINANCE16, GL_LUMINANCE, GL_UNSIGNED_SHORT},
        {CL_INTENSITY, CL_HALF_FLOAT, MemTypes::Float, GL_INTENSITY16F_ARB, GL_LUMINANCE, GL_FLOAT},
        {CL_RGBA, CL_HALF_FLOAT, MemTypes::Float4, GL_RGBA16F, GL_RGBA, GL_FLOAT},
    };
    for (const Conversion& c : cases) {
        const cl_image_format f = fmt(c.order, c.type);
        EXPECT_EQ(std::vector<uint32_t>({CLimageFromatToCLmemoryType(&f), CLimageFromatToGLinternalformat(&f),
                                         CLimageFromatToGLformat(&f), CLimageFromatToGLtype(&f)}),
                  std::vector<uint32_t>({c.element, c.internal, c.format, c.glType}))
            << c.order << "/" << c.type;
    }
    EXPECT_EQ(drain(), Lines{});

    // Fall-backs: each with its message under its own name.
    const cl_image_format rgb = fmt(CL_RGB, CL_UNORM_INT8);
    EXPECT_EQ(CLimageFromatToCLmemoryType(&rgb), 0u);
    EXPECT_EQ(CLimageFromatToGLinternalformat(&rgb), static_cast<uint32_t>(GL_RGBA));
    EXPECT_EQ(CLimageFromatToGLformat(&rgb), static_cast<uint32_t>(GL_RGBA));
    const cl_image_format packed = fmt(CL_RGBA, CL_UNORM_SHORT_565);
    EXPECT_EQ(CLimageFromatToCLmemoryType(&packed), 0u);
    EXPECT_EQ(CLimageFromatToGLtype(&packed), static_cast<uint32_t>(GL_UNSIGNED_INT));
    const cl_image_format int32 = fmt(CL_LUMINANCE, CL_SIGNED_INT32);
    EXPECT_EQ(CLimageFromatToGLinternalformat(&int32), static_cast<uint32_t>(GL_LUMINANCE));
    EXPECT_EQ(drain(),
              (Lines{"(clImageFormatCardinality): Unsupported Image Format ",
                     "(CLimageFromatToGLinternalformat): No conversion from CL_RGB to OpenGL texture internalformat : "
                     "using GL_RGBA",
                     "(CLimageFromatToGLformat): No conversion from CL_RGB to OpenGL format : using GL_RGBA",
                     "(CLimageFromatToCLmemoryType): Unsupported Image Format ",
                     "(CLimageFromatToGLtype): No conversion from cl_image_format.image_channel_data_type to OpenGL "
                     "texure data type : using GL_UNSIGNED_INT",
                     "(CLimageFromatToGLinternalformat): No Conversion from CL_SIGNED_INT32/CL_UNSIGNED_INT32 to "
                     "OpenGL internal format - using GL_LUMINANCE"}));
}

class Images : public ::testing::Test {
protected:
    void SetUp() override
    {
        m_context = OclGlobal::currentContext();
        ASSERT_NE(m_context, nullptr) << "no OpenCL platform on this machine";
        Channels::clearAll();
    }

    // The formats of the catalogue (an element type exists for them) that
    // the device offers for images of this kind.
    std::vector<cl_image_format> offered(cl_mem_object_type kind)
    {
        cl_uint n = 0;
        clGetSupportedImageFormats(m_context->handle(), CL_MEM_READ_WRITE, kind, 0, nullptr, &n);
        std::vector<cl_image_format> all(n);
        clGetSupportedImageFormats(m_context->handle(), CL_MEM_READ_WRITE, kind, n, all.data(), nullptr);
        std::vector<cl_image_format> out;
        for (const cl_image_format& f : all) {
            const uint32_t order = f.image_channel_order, type = f.image_channel_data_type;
            const bool orderKnown = order == CL_R || order == CL_A || order == CL_INTENSITY || order == CL_LUMINANCE ||
                                    order == CL_RGBA || order == CL_BGRA || order == CL_ARGB;
            const bool typeKnown = type >= CL_SNORM_INT8 && type <= CL_FLOAT && type != CL_UNORM_SHORT_565 &&
                                   type != CL_UNORM_SHORT_555 && type != CL_UNORM_INT_101010;
            if (orderKnown && typeKnown) out.push_back(f);
        }
        return out;
    }

    // Writes a pattern of small whole numbers into every component of every
    // element, unmaps, maps again for reading and compares.
    void roundTrip(oclMem* image, const std::string& coords, const std::string& loops, const cl_image_format& f)
    {
        setGlobalObject("img", image);
        const std::string v = "local function v(x, y, z, c) return (x * 7 + y * 3 + z * 5 + c) % 50 + 1 end\n";
        const std::string code = v + "mem.map(img, mem.WRITE)\n" + loops +
                                 "  mem.set(img, " + coords + ", v(x, y, z, 0), v(x, y, z, 1), v(x, y, z, 2), v(x, y, z, 3))\n"
                                 "end end end\n"
                                 "mem.unmap(img)\n"
                                 "mem.map(img, mem.READ)\n" +
                                 loops +
                                 "  local r = {mem.get(img, " + coords + ")}\n"
                                 "  for c = 1, #r do\n"
                                 "    if r[c] ~= v(x, y, z, c - 1) then error(('(%d,%d,%d)[%d] = %s'):format(x, y, z, c, r[c])) end\n"
                                 "  end\n"
                                 "end end end\n"
                                 "mem.unmap(img)";
        EXPECT_EQ(run(code), "") << clChannelOrderName(f.image_channel_order) << " "
                                      << clChannelTypeName(f.image_channel_data_type);
    }

    oclContext* m_context = nullptr;
};

TEST_F(Images, EveryOfferedFormatOfTheCatalogueReadsBackWhatWasWrittenIn2DAnd3D)
{
    const std::vector<cl_image_format> flat = offered(CL_MEM_OBJECT_IMAGE2D), deep = offered(CL_MEM_OBJECT_IMAGE3D);
    ASSERT_FALSE(flat.empty() || deep.empty());
    for (const cl_image_format& f : flat) {
        MemTypeImage2D image(m_context, 5, 3, CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR, &f, "img");
        ASSERT_NE(image.mem, nullptr);
        EXPECT_EQ(image.proxy->getDim(1), 3u);
        EXPECT_EQ(image.proxy->byteSize(), 15 * clTypeSize(image.proxy->typeCode()));
        roundTrip(&image, "x, y", "for z = 0, 0 do for y = 0, 2 do for x = 0, 4 do\n", f);
    }
    for (const cl_image_format& f : deep) {
        MemTypeImage3D image(m_context, 4, 3, 2, CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR, &f, "vol");
        ASSERT_NE(image.mem, nullptr);
        roundTrip(&image, "x, y, z", "for z = 0, 1 do for y = 0, 2 do for x = 0, 3 do\n", f);
    }
    EXPECT_EQ(drain(), Lines{});
    setGlobalObject("img", nullptr);
}

TEST_F(Images, CoordinatesAreCheckedWithTheMessagesOfEachShape)
{
    const cl_image_format f = fmt(CL_RGBA, CL_FLOAT);
    MemTypeImage2D flat(m_context, 4, 2, CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR, &f, "flat");
    MemTypeImage3D deep(m_context, 2, 2, 2, CL_MEM_READ_WRITE | CL_MEM_ALLOC_HOST_PTR, &f, "deep");
    EXPECT_EQ(flat.proxy->byteSize(), 4u * 2u * 16u);
    setGlobalObject("flat", &flat);
    setGlobalObject("deep", &deep);
    EXPECT_EQ(run("mem.map(flat, mem.READ_WRITE); mem.map(deep, mem.READ_WRITE)\n"
                       "fails('%(flat%): invalid x coordinate 4 $', mem.get, flat, 4, 0)\n"
                       "fails('%(flat%): invalid y coordinate %-1 $', mem.get, flat, 0, -1)\n"
                       "fails('%(deep%): x coordinate out of range 2 $', mem.get, deep, 2, 0, 0)\n"
                       "fails('%(deep%): y coordinate out of range %-  2 $', mem.get, deep, 0, 2, 0)\n"
                       "fails('%(deep%): z coordinate out of range %- 2 $', mem.get, deep, 0, 0, 2)\n"
                       "fails('%(flat%): buffer only has 2 dimensions', mem.dim, flat, 2)\n"
                       "fails('%(deep%): buffer only has 3 dimensions', mem.dim, deep, 3)\n"
                       "assert(mem.dim(deep, 2) == 2)\n"
                       "mem.set(flat, 3, 1, 1, 2, 3, 4)\n"
                       "mem.set(flat, 3, 1, nil, 0.5)\n"
                       "local a, b = mem.get(flat, 3, 1)\n"
                       "assert(a == 1 and b == 0.5, 'one component alone')\n"
                       "mem.init(deep, 1, 2, 3, 4)\n"
                       "mem.print(flat, 3, 1); mem.print(deep, 1, 1, 1)\n"
                       "assert(select(4, mem.get(deep, 1, 1, 1)) == 4)\n"
                       "mem.unmap(flat); mem.unmap(deep)"),
              "");
    EXPECT_EQ(drain(), (Lines{"(): [3,1] : (1.000000, 0.500000, 3.000000, 4.000000)",
                              "(): [1,1,1] : (1.000000, 2.000000, 3.000000, 4.000000)"}));
    setGlobalObject("flat", nullptr);
    setGlobalObject("deep", nullptr);
}

TEST_F(Images, HostStoresArePageAlignedAndOnlyGrow)
{
    const cl_mem_flags flags = CL_MEM_READ_WRITE | CL_MEM_USE_HOST_PTR;
    MemTypeBuffer buffer(m_context, 1000, MemTypes::Float, "store", flags);
    ASSERT_NE(buffer.mem, nullptr);
    ASSERT_NE(buffer.data, nullptr);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(buffer.data) % 4096, 0u);
    EXPECT_EQ(buffer.hostSize, 4000u);
    void* store = buffer.data;
    ASSERT_TRUE(buffer.resize(400, nullptr));
    EXPECT_EQ(buffer.data, store) << "a smaller size keeps the store";
    EXPECT_EQ(buffer.hostSize, 4000u);
    EXPECT_EQ(buffer.proxy->getDim(0), 100u);
    EXPECT_EQ(buffer.dim(0), 400u);
    ASSERT_TRUE(buffer.resize(8000, nullptr));
    EXPECT_EQ(buffer.hostSize, 8000u);
    EXPECT_EQ(buffer.proxy->getDim(0), 2000u);

    const cl_image_format f = fmt(CL_RGBA, CL_UNSIGNED_INT8);
    MemTypeImage2D image(m_context, 16, 16, flags, &f, "stored image");
    ASSERT_NE(image.mem, nullptr);
    EXPECT_EQ(image.hostSize, 16u * 16u * 4u);
    ASSERT_TRUE(image.resize(8, 8, nullptr));
    EXPECT_EQ(image.hostSize, 16u * 16u * 4u);
    EXPECT_EQ(image.dim(0), 8u);
    EXPECT_EQ(drain(), Lines{});
}
