#version 330

// The screen quad over the whole geometry buffer.
uniform mat4 gs_ModelViewProjectionMatrix;

in vec4 gs_Vertex;
in vec2 gs_Texture;

out vec2 uv;

void main()
{
    uv = gs_Texture;
    gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex;
}
