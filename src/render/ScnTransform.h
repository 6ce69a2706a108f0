// Placement in the scene: a transform's world matrix is the whole placement
// of the node, so a child's world matrix does not depend on the walk's stack.
// At edit time the world matrix is what the tree holds and the update walk
// derives the local matrix from it; at run time scripts change the local
// matrix and the event walk derives the world matrix.
#pragma once

#include "node/ScnNode.h"

class ScnTransform : public ScnMatrix {
    SCN_NODE(ScnTransform, ScnMatrix)
public:
    ScnTransform();

    // Relative to the transform above, or to nothing; not stored.
    ScnMatrix16 local;

    // Each walk below a transform has it current (ScnScene::currentTransform)
    // and its world matrix as the top of the action's stack, unmultiplied.
    void onRender(ScnAction& action) override;
    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // local := parent world^-1 x world.
    void onUpdate(ScnAction& action) override;
    // world := parent world x local (world := local with no parent).
    void onEvent(ScnAction& action) override;
    // Under a transform action: on the way to the action's target the node
    // is the current transform for the walk below it; at the target its
    // world matrix becomes frame x delta x frame^-1 x world, with the
    // translation scaled about the frame first when the action has a scale.
    void onTransform(ScnAction& action) override;

    // Script methods on the local matrix; the world matrix follows in the
    // next event walk. setTranslation(x, y, z), translate(x, y, z),
    // setRotation(angle, ax, ay, az), rotate(angle, ax, ay, az).
    static void addLuaMethods(ScnLuaClass<ScnTransform>& c);
    int luaSetTranslation(lua_State* L);
    int luaTranslate(lua_State* L);
    int luaSetRotation(lua_State* L);
    int luaRotate(lua_State* L);

    // The upper left 3 by 3 of the local matrix becomes the rotation of the
    // quaternion of `angle` about `axis`, the axis taken as it is (not
    // normalised); the translation stays.
    void setRotation(double angle, double ax, double ay, double az);
    // The same rotation composed ahead of the present one (quaternion product
    // new x present).
    void rotate(double angle, double ax, double ay, double az);

private:
    // Walks the children with this node current and its world matrix on top.
    void descend(ScnAction& action);
};
