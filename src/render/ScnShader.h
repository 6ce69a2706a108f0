// A node that owns one GLSL program; its source texts are fields.
#pragma once

#include <functional>
#include <string>

#include "node/ScnNode.h"

class ScnActionRender;

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

    // Stages as the diagnostics name them.
    enum Stage { Vertex = 1, Fragment = 2, Geometry = 3 };

    // The preset uniforms whose locations are cached after each link.
    enum Preset {
        ModelMatrix, ModelViewMatrix, ModelViewProjectionMatrix, ProjectionMatrix, ProjectionMatrixInverse,
        CameraMatrix, CameraMatrixInverse, NormalMatrix, Aspect, Viewport, Time, PresetCount
    };
    static const char* const kPresetNames[PresetCount];
    int location(Preset p) const { return m_locations[p]; }

    // Run with the program in use, right after every link (samplers of the
    // light shaders are set there).
    std::function<void(unsigned program)> afterLink;

    // Compiles and links the texts; needs a current context (without one the
    // program stays 0). True when a program was linked.
    bool build();
    // Detaches and deletes the stages and the program.
    void destroyProgram();
    // Destroys the program, loads the sources by name and builds.
    void setProgram(const std::string& sourceName);
    // Destroys the program and builds again when an update's field is one of
    // this shader's (a shader held inside a light or light buffer included).
    // True when it rebuilt.
    bool rebuildFor(const ScnAction& action);

    // Sends the preset matrices and vectors for `model` under the action's
    // camera; the program must be in use.
    void pushMatrices(const ScnActionRender& action, const ScnMatrix16& model) const;
    // Makes this program current for one draw outside the tree walk, saving
    // the current shader; end() restores it (or program 0).
    void begin(const ScnActionRender& action);
    void end();

    void onCreate(ScnAction& action) override;
    void onDestroy(ScnAction& action) override;
    void onUpdate(ScnAction& action) override;
    void onTransform(ScnAction& action) override;
    void onRender(ScnAction& action) override;
    void afterWalkOn(ScnAction& action, void* saved, int flag) override;
    ScnShader* getShaderNode() override { return this; }

    // Script methods: setProgram(name), glId().
    static void addLuaMethods(ScnLuaClass<ScnShader>& c);
    int luaSetProgram(lua_State* L);
    int luaGlId(lua_State* L);

private:
    // What afterWalkOn undoes.
    enum AfterWalk { RestoreShader = 1, RestoreProgram = 2, DestroyProgram = 4 };
    bool compileStage(unsigned& shader, unsigned type, const std::string& text, Stage stage);
    void link();
    void cacheLocations();

    std::string m_sourceName;
    int m_locations[PresetCount] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
    ScnShader* m_saved = nullptr;  // the shader current before begin()
};
