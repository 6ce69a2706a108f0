// A point light: its volume is a cube of half size `range` around it.
#pragma once

#include "render/ScnDeferredLight.h"

class ScnDeferredPointLight : public ScnDeferredLight {
    SCN_NODE(ScnDeferredPointLight, ScnDeferredLight)
public:
    ScnDeferredPointLight();

    Kind kind() const override { return PointKind; }
    bool drawVolume(const ScnActionRender& action, const Frustum& frustum, double nearPlane) override;

    static void addLuaMethods(ScnLuaClass<ScnDeferredPointLight>& c);

protected:
    // 12 triangles, counter-clockwise from outside, faces +x, -x, +y, -y, +z, -z.
    void makeVolume(std::vector<float>& vertices) const override;
};
