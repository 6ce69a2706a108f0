#include "render/ScnInstance.h"

#include <sys/stat.h>

#include <vector>

#include "node/ScnAction.h"
#include "node/ScnMFFunction.h"
#include "render/ScnTransform.h"
#include "runtime/AppGlobal.h"
#include "runtime/Channels.h"

ScnNodeType ScnInstance::s_type;

namespace {
// Object files that hold instances load them while they are read; a file
// that holds an instance of itself would never end.
int s_loadDepth = 0;
}  // namespace

ScnInstance::ScnInstance()
{
    name = "instance";
}

void ScnInstance::read(ScnInStream& in)
{
    path.read(in);
    name.read(in);
    transform.read(in);
    if (!in.failed()) load();
}

void ScnInstance::write(ScnOutStream& out) const
{
    path.write(out);
    name.write(out);
    transform.write(out);
}

bool ScnInstance::load()
{
    children.release();
    // A new instance names no file yet: nothing is missing.
    if (path.value.empty()) return false;
    const std::string file = AppGlobal::projectPath() + "/" + path.value;
    struct stat st;
    if (::stat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) {
        LogStream(Channels::error(), "ScnInstance") << "File missing : " << file;
        return false;
    }
    if (s_loadDepth >= ScnAction::kInstanceDepth) {
        LogStream(Channels::error(), "ScnInstance")
            << file << ": instances nested deeper than " << ScnAction::kInstanceDepth << ", not loaded";
        return false;
    }
    ++s_loadDepth;
    std::string error;
    ScnNode* loaded = scnReadObject(file, error);
    --s_loadDepth;
    if (!loaded) {
        LogStream(Channels::error(), "ScnInstance") << error;
        return false;
    }
    if (!transform.value.isIdentity()) place(loaded);
    children.append(loaded);
    return true;
}

// World matrices are absolute: every transform of the object takes the
// placement, or the ones nested below the first would stay where the file
// put them.
void ScnInstance::place(ScnNode* loaded) const
{
    std::vector<ScnNode*> open{loaded};
    while (!open.empty()) {
        ScnNode* n = open.back();
        open.pop_back();
        if (n->isA(ScnTransform::s_type)) {
            ScnActionTransform move(transform.value);
            move.apply(n);
        }
        for (int i = n->childCount() - 1; i >= 0; --i)
            if (ScnNode* c = n->getChild(i)) open.push_back(c);
    }
}

// The walk ends at an instance: nodes after it in the same list are not
// reached (only a transform walk goes on). An instance that must be followed
// by more nodes sits in a group of its own.
void ScnInstance::enter(ScnAction& action, bool walkChildren)
{
    if (walkChildren && root()) {
        action.pushInstance(getName().c_str());
        action.walk(this, ScnAction::Children);
        action.popInstance();
    }
}

void ScnInstance::onRender(ScnAction& action)
{
    enter(action, enabled());
}

void ScnInstance::onEvent(ScnAction& action)
{
    enter(action, enabled());
}

void ScnInstance::onCreate(ScnAction& action)
{
    enter(action, true);
}

void ScnInstance::onDestroy(ScnAction& action)
{
    enter(action, true);
}

void ScnInstance::onUpdate(ScnAction& action)
{
    enter(action, true);
}

void ScnInstance::addEvents(ScnMFFunction& functions)
{
    if (ScnNode* r = root()) r->addEvents(functions);
}

void ScnInstance::removeEvents(ScnMFFunction& functions)
{
    if (ScnNode* r = root()) r->removeEvents(functions);
}
