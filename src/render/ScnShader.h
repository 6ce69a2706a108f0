// A node that owns one GLSL program; its source texts are fields.
#pragma once

#include <string>

#include "node/ScnNode.h"

class ScnShader : public ScnNode {
    SCN_NODE_NO_FACTORY(ScnShader, ScnNode)
public:
    // Empty texts: shaders made by other nodes are filled by their owner.
    ScnShader();
    // A shader for the tree, with the default texts and the name "glShader".
    static ScnNode* factory();

    static const char* const kDefaultVertex;
    static const char* const kDefaultGeometry;
    static const char* const kDefaultFragment;

    ScnSFString vertex{this, "vertex"};
    ScnSFString fragment{this, "fragment"};
    ScnSFString geometry{this, "geometry"};
    ScnSF<int> inputtype{this, "inputtype", 0};
    ScnSF<int> outputtype{this, "outputtype", 0};
    ScnSF<int> vertexcount{this, "vertexcount", 1};
    ScnSFBool usegeom{this, "usegeom", false};

    // Files older than 1013 lack the four geometry settings.
    void read(ScnInStream& in) override;

    // Loads "<workspace>/shaders/<name>.vert", ".frag" and ".geom" into the
    // texts, each only where the file exists; no build.
    void loadSources(const std::string& sourceName);
    // The name of the last loadSources, not stored.
    const std::string& sourceName() const { return m_sourceName; }

    // Run-time members, not stored.
    unsigned vertexShader = 0, fragmentShader = 0, geometryShader = 0, program = 0;
    bool compiled = false;

private:
    std::string m_sourceName;
};
