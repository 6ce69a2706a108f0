// The manipulator classes: registered after their parents, and stored as the
// groups they are, under their own class names.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "manipulators/ManManipulator.h"
#include "node/ScnNode.h"
#include "runtime/RtnApplication.h"

namespace {

using Bytes = std::vector<uint8_t>;

void putU32(Bytes& b, uint32_t v)
{
    const auto* p = reinterpret_cast<const uint8_t*>(&v);
    b.insert(b.end(), p, p + 4);
}

void putString(Bytes& b, const std::string& s)
{
    putU32(b, static_cast<uint32_t>(s.size()));
    b.insert(b.end(), s.begin(), s.end());
}

Bytes written(const ScnNode& n)
{
    ScnOutStream out;
    n.write(out);
    return out.bytes();
}

const char* const kClasses[] = {"ManManipulator", "ManManipulatorGui", "ManManipulator3D"};

}  // namespace

TEST(ManipulatorClasses, RegisteredUnderTheirParentsWithTheirCategories)
{
    EXPECT_EQ(ScnNodeRegistry::find("ManManipulator"), &ManManipulator::s_type);
    EXPECT_EQ(ScnNodeRegistry::parentOf(ManManipulator::s_type), &ScnGroup::s_type);
    EXPECT_EQ(ManManipulator::s_type.category, 2u);
    for (const ScnNodeType* t : {&ManManipulatorGui::s_type, &ManManipulator3D::s_type}) {
        EXPECT_EQ(ScnNodeRegistry::find(t->name), t);
        EXPECT_EQ(ScnNodeRegistry::parentOf(*t), &ManManipulator::s_type) << t->name;
        EXPECT_EQ(t->category, 32u) << t->name;
        EXPECT_NE(t->luaClassRef, 0) << t->name;
        EXPECT_GT(t->id, ManManipulator::s_type.id) << t->name;
    }
    EXPECT_STREQ(ManManipulatorGui::s_type.name, "ManManipulatorGui");
    EXPECT_STREQ(ManManipulator3D::s_type.name, "ManManipulator3D");
    EXPECT_NE(ManManipulator::s_type.luaClassRef, 0);
}

TEST(ManipulatorClasses, StoredAsAGroupWithTheirChildrenUnderTheirOwnName)
{
    for (const char* cls : kClasses) {
        bool known = false;
        std::unique_ptr<ScnNode> fresh(ScnNodeRegistry::create(cls, &known));
        ASSERT_TRUE(known) << cls;
        ASSERT_STREQ(fresh->getType()->name, cls);
        // A group's name and an empty child list, nothing more.
        Bytes empty;
        putString(empty, "group");
        putU32(empty, 0);
        EXPECT_EQ(written(*fresh), empty) << cls;

        auto* m = static_cast<ScnGroup*>(fresh.get());
        m->name = "held";
        auto* target = new ScnMatrix();
        target->name = "target";
        target->worldmatrix = ScnMatrix16::translation(4, 5, 6);
        m->append(target);

        ScnOutStream out;
        scnWriteObject(out, *m);
        std::string error;
        std::unique_ptr<ScnNode> back(scnReadObject(out.bytes(), "m.3Do", error));
        ASSERT_TRUE(back) << error;
        EXPECT_STREQ(back->getType()->name, cls);
        EXPECT_EQ(back->getName(), "held");
        ASSERT_EQ(back->childCount(), 1);
        EXPECT_EQ(back->getChild(0)->getName(), "target");
        ScnOutStream again;
        scnWriteObject(again, *back);
        EXPECT_EQ(again.bytes(), out.bytes()) << cls;
    }
}

TEST(ManipulatorClasses, SurviveAnApplicationFile)
{
    RtnApplication app;
    for (const char* cls : kClasses) {
        ScnNode* m = ScnNodeRegistry::create(cls);
        m->name = std::string("m-") + cls;
        static_cast<ScnGroup*>(m)->append(new ScnGroup());
        app.openGL.node.append(m);
    }
    Bytes first = app.toBytes();
    std::string error;
    std::unique_ptr<RtnApplication> back(RtnApplication::readBytes(first, "man.3Dm", error));
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(back->toBytes(), first);
    ASSERT_EQ(back->openGL.node.childCount(), 3);
    for (int i = 0; i < 3; ++i) {
        EXPECT_STREQ(back->openGL.node.getChild(i)->getType()->name, kClasses[i]);
        EXPECT_EQ(back->openGL.node.getChild(i)->childCount(), 1);
    }
}
