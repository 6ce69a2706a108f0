// A cube of smooth noise for shaders: a 32 by 32 by 32 texture on unit 10,
// seen by every shader that follows the node and declares the sampler3D
// gs_Noise3D. Not a script class.
#pragma once

#include <cstdint>

#include "node/ScnNode.h"

class ScnNoise3D : public ScnNode {
    SCN_NODE(ScnNoise3D, ScnNode)
public:
    ScnNoise3D();
    ~ScnNoise3D() override;

    static constexpr int kSize = 32;
    static constexpr int kUnit = 10;

    // Kept for the property page; nothing reads it.
    ScnSFString extension{this, "extension"};

    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    // Binds the cube on unit 10 for the siblings that follow.
    void onRender(ScnAction& action) override;
    void afterWalkOn(ScnAction& action, void* saved, int flag) override;
    void onRenderPass(ScnAction& action, ScnShader* shader) override;

    unsigned texture() const { return m_texture; }
    // The texels every cube is made from, x fastest, then y, then z; the
    // noise repeats with the cube's size, as the texture's wrapping does.
    static const uint16_t* table();

private:
    void release();
    unsigned m_texture = 0;
};
