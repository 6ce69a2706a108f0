#version 330

// The light's volume, placed by the light's world matrix.
uniform mat4 gs_ModelViewProjectionMatrix;

in vec4 gs_Vertex;

void main()
{
    gl_Position = gs_ModelViewProjectionMatrix * gs_Vertex;
}
