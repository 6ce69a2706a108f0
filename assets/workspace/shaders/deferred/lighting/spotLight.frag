#version 330

// One spot light over the geometry buffer, added into the light buffer. The
// cone points down the light's minus x axis; `spread` is the cosine of its
// half angle, and the light fades out over the outer tenth of that cosine's
// distance to 1.
//
// The geometry buffer and the attenuation are those of pointLight.frag:
//   gs_Input1  normal in eye space (xyz); shininess / 128 in w, 0 for 32
//   gs_Input2  position in eye space (xyz); w is 1 where a surface was drawn
//   a = intensity * (1 - d / range) ^ attenuate * cone   for d < range

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
    float spread;
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
        return;

    vec3 toLight = gs_Light.ePos - position.xyz;
    float d = length(toLight);
    if (d >= gs_Light.range)
        return;
    vec3 L = toLight / max(d, 1e-6);
    float cosAngle = dot(-L, -normalize(gs_Light.xAxis));
    float cone = smoothstep(gs_Light.spread, mix(gs_Light.spread, 1.0, 0.1), cosAngle);
    float a = gs_Light.intensity * pow(1.0 - d / gs_Light.range, gs_Light.attenuate) * cone;

    vec4 normal = texture(gs_Input1, uv);
    vec3 N = normalize(normal.xyz);
    vec3 H = normalize(L + normalize(-position.xyz));
    float lambert = max(dot(N, L), 0.0);
    float shininess = normal.w > 0.0 ? normal.w * 128.0 : 32.0;
    float shine = lambert > 0.0 ? pow(max(dot(N, H), 0.0), shininess) : 0.0;

    diffuseOut = vec4(gs_Light.diffuse.rgb * (a * lambert), 0.0);
    specularOut = vec4(gs_Light.specular.rgb * (a * shine), 0.0);
    ambientOut = vec4(gs_Light.ambient.rgb * a, 0.0);
}
