#version 330

// One point light over the geometry buffer, added into the light buffer.
//
// The geometry buffer, as the scene's shaders fill it:
//   gs_Input0  surface colour (rgb)
//   gs_Input1  normal in eye space (xyz); shininess / 128 in w, 0 for 32
//   gs_Input2  position in eye space (xyz); w is 1 where a surface was drawn
//
// With d the distance from the light, a light reaches
//   a = intensity * (1 - d / range) ^ attenuate   for d < range, else 0
// and adds  diffuse * a * max(N.L, 0),  specular * a * max(N.H, 0) ^ shininess
// (Blinn), and  ambient * a.

struct Light
{
    vec4 diffuse;
    vec4 ambient;
    vec4 specular;
    vec3 xAxis;
    vec3 yAxis;
    vec3 zAxis;
    vec3 ePos;
    float range;
    float intensity;
    float attenuate;
    int visible;
};

uniform Light gs_Light;
uniform sampler2D gs_Input1;
uniform sampler2D gs_Input2;
uniform vec2 gs_Viewport;

layout(location = 0) out vec4 diffuseOut;
layout(location = 1) out vec4 specularOut;
layout(location = 2) out vec4 ambientOut;

void main()
{
    diffuseOut = vec4(0.0);
    specularOut = vec4(0.0);
    ambientOut = vec4(0.0);

    vec2 uv = gl_FragCoord.xy / gs_Viewport;
    vec4 position = texture(gs_Input2, uv);
    if (position.w == 0.0)
        return;  // no surface here

    vec3 toLight = gs_Light.ePos - position.xyz;
    float d = length(toLight);
    if (d >= gs_Light.range)
        return;
    float a = gs_Light.intensity * pow(1.0 - d / gs_Light.range, gs_Light.attenuate);

    vec4 normal = texture(gs_Input1, uv);
    vec3 N = normalize(normal.xyz);
    vec3 L = toLight / max(d, 1e-6);
    vec3 H = normalize(L + normalize(-position.xyz));
    float lambert = max(dot(N, L), 0.0);
    float shininess = normal.w > 0.0 ? normal.w * 128.0 : 32.0;
    float shine = lambert > 0.0 ? pow(max(dot(N, H), 0.0), shininess) : 0.0;

    diffuseOut = vec4(gs_Light.diffuse.rgb * (a * lambert), 0.0);
    specularOut = vec4(gs_Light.specular.rgb * (a * shine), 0.0);
    ambientOut = vec4(gs_Light.ambient.rgb * a, 0.0);
}
