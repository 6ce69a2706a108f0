// The compute branch of an open document on the machine's own OpenCL
// platform: contexts handed down by platform nodes, programs built on the
// run-time tree, and build errors addressed to lines of the node's own text.
#include <gtest/gtest.h>
#include <lua.hpp>

#include <string>
#include <vector>

#include "compute/OclBuildLog.h"
#include "compute/OclGlobal.h"
#include "compute/OclNodes.h"
#include "compute/oclObject.h"
#include "runtime/CmdNodes.h"
#include "runtime/RtnApplication.h"
#include "support/DocumentFixture.h"

namespace {

struct Diagnostic {
    ScnNode* node;
    int line;
    std::string text;
};

std::vector<Diagnostic> drainRing(LogRing& ring)
{
    std::vector<Diagnostic> out;
    for (LogRecord r; ring.pop(r);) out.push_back({r.node, r.line, r.text});
    return out;
}

// Runs a chunk in the global environment; the error text when it fails.
std::string runLua(const char* code)
{
    lua_State* L = AppGlobal::luaState();
    if (luaL_dostring(L, code) == 0) return "";
    std::string e = lua_tostring(L, -1);
    lua_pop(L, 1);
    return e;
}

bool contains(const Lines& lines, const std::string& part)
{
    for (const std::string& l : lines)
        if (l.find(part) != std::string::npos) return true;
    return false;
}

class ComputeBranch : public DocumentFixture {
protected:
    void SetUp() override
    {
        DocumentFixture::SetUp();
        if (HasFatalFailure()) return;
        ASSERT_NE(OclGlobal::currentContext(), nullptr) << "no OpenCL platform on this machine";
        std::string error;
        ASSERT_TRUE(m_doc.open("compute.3Dm", error)) << error;
        drain();
    }

    // A platform node (on the current context by default), appended to the design branch.
    OclPlatform* addPlatform(const std::string& platformName = OclGlobal::currentContext()->name())
    {
        auto* p = new OclPlatform;
        p->platform = platformName;
        m_doc.application()->openCL.node.append(p);
        return p;
    }

    template <class T>
    T* addSource(OclPlatform* platform, const std::string& text)
    {
        auto* n = new T;
        n->source = text;
        platform->append(n);
        return n;
    }

    // Rebuilds the run-time tree from the design, as "reset" does.
    void rebuild() { m_doc.reset(); }

    static OclSourceNode* twinOf(ScnNode* design) { return static_cast<OclSourceNode*>(design->twin()); }
};

const char* const kSquares =
    "__kernel void squares(__global float* v) { v[get_global_id(0)] *= v[get_global_id(0)]; }\n"
    "__kernel void twice(__global float* v) { v[get_global_id(0)] *= 2.0f; }\n";

}  // namespace

TEST_F(ComputeBranch, TheCurrentContextIsFoundByItsFirstFiveCharactersAndIsANewPlatformsDefault)
{
    oclContext* current = OclGlobal::currentContext();
    std::string name = current->name();
    ASSERT_GE(name.size(), 5u);
    EXPECT_EQ(OclGlobal::currentContextName(), name);
    EXPECT_EQ(OclGlobal::findContext(name), current);
    EXPECT_EQ(OclGlobal::findContext(name.substr(0, 5) + " spelled otherwise"), current);
    EXPECT_EQ(OclGlobal::findContext(name.substr(0, 4)), nullptr);
    EXPECT_EQ(OclGlobal::findContext("Nobody Inc."), nullptr);

    EXPECT_EQ(OclPlatform().platform.value, name);
    const std::vector<std::string> info = OclGlobal::deviceInfo(current->device(0));
    ASSERT_FALSE(info.empty());
    EXPECT_EQ(info[0].rfind("CL_DEVICE_TYPE : CPU", 0), 0u) << info[0];
}

TEST_F(ComputeBranch, ProgramsAndFileReferencesBuildOnTheTwinAndFindTheirKernelsByName)
{
    OclPlatform* platform = addPlatform();
    auto* program = addSource<OclProgram>(platform, kSquares);
    auto* file = addSource<OclFileRef>(platform, "__kernel void fromFile(__global int* v) { v[0] = 7; }");
    rebuild();

    // The design nodes hold text only; the twins hold the builds.
    EXPECT_EQ(program->program(), nullptr);
    OclSourceNode* p = twinOf(program);
    OclSourceNode* f = twinOf(file);
    ASSERT_TRUE(p && f);
    ASSERT_NE(p->program(), nullptr);
    EXPECT_EQ(p->context(), OclGlobal::currentContext());
    ASSERT_NE(p->getKernel("squares"), nullptr);
    EXPECT_STREQ(p->getKernel("twice")->name(), "twice");
    EXPECT_EQ(p->getKernel("absent"), nullptr);
    EXPECT_NE(f->getKernel("fromFile"), nullptr);
    EXPECT_TRUE(drainRing(OclBuildLog::errors()).empty());
    EXPECT_TRUE(drainRing(OclBuildLog::warnings()).empty());
    EXPECT_EQ(drain(), Lines{});

    // An edit marks the node changed: the next update builds the new text.
    p->source = "__kernel void renamed(__global int* v) { }";
    p->changed = true;
    m_doc.runtime()->update(p);
    EXPECT_EQ(p->getKernel("squares"), nullptr);
    EXPECT_NE(p->getKernel("renamed"), nullptr);
}

// A program's line 3 is reported as line 3 behind the default include; a
// file reference has no include in front, so its lines are the compiler's.
TEST_F(ComputeBranch, BuildErrorsAreReportedAtTheLinesOfTheNodesOwnText)
{
    ASSERT_EQ(m_doc.application()->include.value, RtnApplication::kDefaultInclude);
    OclPlatform* platform = addPlatform();
    auto* program =
        addSource<OclProgram>(platform, "__kernel void broken(__global float* v)\n{\n    v[0] = undeclared_name;\n}\n");
    auto* file = addSource<OclFileRef>(platform, "__kernel void k(__global int* v)\n{ v[0] = missing; }\n");
    rebuild();
    ASSERT_NE(twinOf(program)->program(), nullptr);
    EXPECT_EQ(twinOf(program)->getKernel("broken"), nullptr);

    const std::vector<Diagnostic> errors = drainRing(OclBuildLog::errors());
    auto first = [&](ScnNode* twin) {
        for (const Diagnostic& d : errors)
            if (d.node == twin) return d;
        return Diagnostic{nullptr, 0, "none"};
    };
    const Diagnostic p = first(twinOf(program)), f = first(twinOf(file));
    EXPECT_EQ(p.line, 3);
    EXPECT_EQ(p.text.rfind("(clProgram): ", 0), 0u) << p.text;
    EXPECT_NE(p.text.find("undeclared_name"), std::string::npos) << p.text;
    EXPECT_EQ(f.line, 2);
    EXPECT_EQ(f.text.rfind("(clFile): ", 0), 0u) << f.text;
    EXPECT_TRUE(contains(drain(), "Failure in call to clBuildProgram : CL_BUILD_PROGRAM_FAILURE"));
}

TEST_F(ComputeBranch, WarningsGoToTheirOwnRingAndTheKernelStillBuilds)
{
    OclPlatform* platform = addPlatform();
    // Falling off the end of a function that returns a value: a warning of
    // the compiler's defaults, not an error.
    auto* program = addSource<OclProgram>(platform,
                                          "int pick(int a)\n{\n    if (a) return 1;\n}\n"
                                          "__kernel void k(__global int* v)\n{\n    v[0] = pick(v[0]);\n}\n");
    rebuild();
    EXPECT_NE(twinOf(program)->getKernel("k"), nullptr);
    EXPECT_TRUE(drainRing(OclBuildLog::errors()).empty());
    std::vector<Diagnostic> warnings = drainRing(OclBuildLog::warnings());
    ASSERT_FALSE(warnings.empty()) << "the build's warning did not reach the warning ring";
    for (const Diagnostic& w : warnings)
        EXPECT_TRUE(w.line == 4 && w.node == twinOf(program) && w.text.find("warning") != std::string::npos) << w.text;
}

// It falls back on the current context with one message per walk, and
// destroy passes over it.
TEST_F(ComputeBranch, AnUnknownPlatformNameFallsBackOnTheCurrentContext)
{
    auto* program = addSource<OclProgram>(addPlatform("Nobody Inc."), kSquares);
    rebuild();
    const std::string expected =
        std::string("Platform not found, using ") + OclGlobal::currentContext()->name() + " instead";
    int count = 0;
    for (const std::string& l : drain()) count += l.find(expected) != std::string::npos;
    EXPECT_EQ(count, 2) << "one for the create walk, one for the update walk";
    OclSourceNode* twin = twinOf(program);
    EXPECT_NE(twin->getKernel("squares"), nullptr);
    m_doc.runtime()->destroyTree();
    // Left as it was: the walk did not enter the platform.
    EXPECT_NE(twin->program(), nullptr);
    EXPECT_EQ(twin->context(), OclGlobal::currentContext());
}

TEST_F(ComputeBranch, ComputeFiresOnComputeOfTheRegisterHoldingTheProgram)
{
    OclPlatform* platform = addPlatform();
    auto* program = addSource<OclProgram>(platform, kSquares);
    rebuild();
    RtnRegister* reg = m_doc.application()->processorAt(0)->createRegister(0);
    ASSERT_NE(reg, nullptr);
    reg->deposit(program);
    int onCompute = reg->functions.indexOf("OnCompute");
    ASSERT_GE(onCompute, 0);
    reg->setFunctionCode(onCompute, "print('computed ' .. tostring(event))");
    ASSERT_TRUE(reg->compileFunction(onCompute));
    drain();

    ASSERT_EQ(runLua("local p = OpenCL:getChild(0):getChild(0)\n"
                     "assert(p:getKernel('squares') ~= nil and p:getKernel(42) == nil)\n"
                     "p:compute()"),
              "");
    EXPECT_TRUE(contains(drain(), "computed OclProgram (clProgram)"));
}
