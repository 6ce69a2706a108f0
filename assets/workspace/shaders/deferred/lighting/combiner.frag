#version 330

// The lit colour: the surface colour (gs_Input0) times the diffuse and
// ambient light that reached it, plus the highlights. Where nothing was
// drawn (gs_Input2's w is 0) the geometry buffer's colour passes through.

uniform sampler2D gs_Input0;
uniform sampler2D gs_Input2;
uniform sampler2D gs_DiffuseLights;
uniform sampler2D gs_SpecularLights;
uniform sampler2D gs_AmbientLights;

in vec2 uv;

layout(location = 0) out vec4 outColor;

void main()
{
    vec4 surface = texture(gs_Input0, uv);
    if (texture(gs_Input2, uv).w == 0.0) {
        outColor = surface;
        return;
    }
    vec3 light = texture(gs_DiffuseLights, uv).rgb + texture(gs_AmbientLights, uv).rgb;
    outColor = vec4(surface.rgb * light + texture(gs_SpecularLights, uv).rgb, surface.a);
}
