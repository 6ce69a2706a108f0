// The update walk of the application: widgets get the box that their fields
// give, one pixel short of the event box at the far sides; other nodes are
// boxed as by the base walk. Shaders learn the size of the picture that is
// drawn into.
#pragma once

#include "node/ScnAction.h"

class GuiActionUpdate : public ScnActionUpdate {
public:
    GuiActionUpdate(bool flag = false, void* pointer = nullptr) : ScnActionUpdate(flag, pointer) {}

    void continueWalk(ScnNode* node, int mask) override;
    void walk(ScnNode* node, int mask) override;

    // (x, y) to (x + width - 1, y + height - 1), empty in z.
    static ScnBox updateBox(const ScnVec3& position, const ScnVec3& size);
    // Sets gs_Viewport of `program` (in use) to (width, height, 1, 1), or to
    // (width, height) where the program declares it as a vec2; nothing where
    // it has no such uniform.
    static void setViewportUniform(unsigned program, float width, float height);

protected:
    void visit(ScnNode* node) override;
};
