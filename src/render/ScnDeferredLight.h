// Lights of the light pass, each drawn with its own shader, and the light
// buffer that adds them up and combines them with a geometry buffer.
#pragma once

#include "node/ScnNode.h"
#include "render/ScnFramebuffer.h"
#include "render/ScnShader.h"

class ScnDeferredLight : public ScnNode {
    SCN_NODE(ScnDeferredLight, ScnNode)
public:
    ScnDeferredLight();

    ScnSFBool visible{this, "visible", true};
    ScnSFColor diffuse{this, "diffuse", ScnColor{1, 1, 1, 1}};
    ScnSFColor ambient{this, "ambient", ScnColor{0, 0, 0, 1}};
    ScnSFColor specular{this, "specular", ScnColor{1, 1, 1, 1}};
    ScnSF<float> range{this, "range", 6.0f};
    ScnSF<float> intensity{this, "intensity", 1.0f};
    ScnSF<float> attenuate{this, "attenuate", 2.0f};
    ScnSFNode<ScnShader> direct{this, "direct", "glShader"};
};

class ScnDeferredPointLight : public ScnDeferredLight {
    SCN_NODE(ScnDeferredPointLight, ScnDeferredLight)
public:
    ScnDeferredPointLight();
};

class ScnDeferredSpotLight : public ScnDeferredLight {
    SCN_NODE(ScnDeferredSpotLight, ScnDeferredLight)
public:
    ScnDeferredSpotLight();

    ScnSF<float> spread{this, "spread", 0.96f};

    // Files older than 1016 had another spot shader: it is reloaded.
    void read(ScnInStream& in) override;
};

// Three additive targets (diffuse, specular, ambient) in half floats, with
// no pixel buffer; `lighting` combines them.
class ScnLightbuffer : public ScnFramebuffer {
    SCN_NODE(ScnLightbuffer, ScnFramebuffer)
public:
    ScnLightbuffer();

    ScnSFNode<ScnShader> lighting{this, "lighting"};
};
