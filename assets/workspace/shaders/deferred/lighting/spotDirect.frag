#version 330

// The spot light of older applications: a hard-edged cone down the light's
// minus x axis, diffuse and ambient only. Same geometry buffer and
// attenuation as spotLight.frag, without the soft rim and the highlight.

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
    vec3 L = toLight / max(d, 1e-6);
    if (d >= gs_Light.range || dot(L, normalize(gs_Light.xAxis)) < gs_Light.spread)
        return;
    float a = gs_Light.intensity * pow(1.0 - d / gs_Light.range, gs_Light.attenuate);
    float lambert = max(dot(normalize(texture(gs_Input1, uv).xyz), L), 0.0);

    diffuseOut = vec4(gs_Light.diffuse.rgb * (a * lambert), 0.0);
    ambientOut = vec4(gs_Light.ambient.rgb * a, 0.0);
}
