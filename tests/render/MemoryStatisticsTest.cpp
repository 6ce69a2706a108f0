// The tracked memory follows the GPU resources that their owners make and
// release: a framebuffer's depth buffer and the widget root's picture.
#include <string>

#include "memory/MemStatistics.h"
#include "render/ScnCamera.h"
#include "render/ScnFramebuffer.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"
#include "widgets/GuiRoot.h"
#include "RenderSupport.h"

class TrackedMemory : public DocumentFixture {};

TEST_F(TrackedMemory, FollowsTheDepthBuffersAndTheRootPictureAndReturnsAtClose)
{
    ASSERT_NE(GlContext::active(), nullptr) << "no headless OpenGL context (Mesa's EGL is needed)";
    const int64_t before = MemStatistics::bytes();
    {
        RtnApplication app;
        auto& fb = *static_cast<ScnFramebuffer*>(app.camera.node.getChild(0));
        fb.width = 64;
        fb.height = 32;
        app.gui.node.dim0 = 100;
        app.gui.node.dim1 = 50;
        std::string error;
        ASSERT_TRUE(app.writeFile(m_ws / "stats.3Dm", error)) << error;
    }
    std::string error;
    ASSERT_TRUE(m_doc.open("stats.3Dm", error)) << error;
    // Three bytes a depth pixel; the root's picture four of colour and three of depth.
    EXPECT_EQ(MemStatistics::bytes() - before, 64 * 32 * 3 + 100 * 50 * 7);

    // A new size releases what the old one counted, whatever it was.
    auto& fb = *static_cast<ScnFramebuffer*>(m_doc.runtime()->branch(CmdApplication::Camera)->getChild(0));
    fb.width = 16;
    m_doc.runtime()->update(&fb, &fb.width);
    EXPECT_EQ(MemStatistics::bytes() - before, 16 * 32 * 3 + 100 * 50 * 7);
    auto& root = *static_cast<GuiRoot*>(m_doc.runtime()->branch(CmdApplication::Gui));
    root.dim1 = 10;
    m_doc.runtime()->update(&root, &root.dim1);
    EXPECT_EQ(MemStatistics::bytes() - before, 16 * 32 * 3 + 100 * 10 * 7);

    m_doc.close();
    EXPECT_EQ(MemStatistics::bytes(), before);
}
