#include "render/ScnTransform.h"

#include "node/ScnAction.h"
#include "render/ScnScene.h"

// -- ScnTransform -----------------------------------------------------------------

ScnNodeType ScnTransform::s_type;

ScnTransform::ScnTransform()
{
    name = "transform";
}

void ScnTransform::onTransform(ScnAction& action)
{
    auto* move = dynamic_cast<ScnActionTransform*>(&action);
    if (!move) {
        ScnMatrix::onTransform(action);
        return;
    }
    if (pathLink) {
        // On the way: world matrices are absolute, so the push multiplies nothing.
        action.pushMatrix(worldmatrix.value);
        ScnTransform* saved = ScnScene::currentTransform;
        ScnScene::currentTransform = this;
        action.walk(this, ScnAction::Children);
        ScnScene::currentTransform = saved;
        action.popMatrix();
        action.walk(this, ScnAction::Siblings);
        return;
    }
    ScnMatrix16 world = scnMultiply(move->frameInverse, worldmatrix.value);
    if (move->hasScale) {
        // Only the position relative to the frame is scaled; the node's own
        // axes keep their length. The product is taken in floats: rounding a
        // double product to float instead is lost in two of the three lanes
        // when g++ 12 vectorises the loop at -O2.
        for (int i = 0; i < 3; ++i)
            world.m[12 + i] = static_cast<float>(world.m[12 + i]) * static_cast<float>(move->scale.m[i * 5]);
    }
    if (move->hasDelta) world = scnMultiply(move->delta, world);
    worldmatrix.value = scnMultiply(move->frame, world);
    action.walk(this, ScnAction::Siblings);
}

// -- ScnInstance ------------------------------------------------------------------

ScnNodeType ScnInstance::s_type;

ScnInstance::ScnInstance()
{
    name = "instance";
}

void ScnInstance::read(ScnInStream& in)
{
    path.read(in);
    name.read(in);
    transform.read(in);
}

void ScnInstance::write(ScnOutStream& out) const
{
    path.write(out);
    name.write(out);
    transform.write(out);
}
