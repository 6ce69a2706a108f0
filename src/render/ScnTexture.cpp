#include "render/ScnTexture.h"

ScnNodeType ScnTexture2D::s_type;
ScnNodeType ScnTexture3D::s_type;

ScnTexture2D::ScnTexture2D()
{
    name = "glTexture2D";
}

ScnTexture3D::ScnTexture3D()
{
    name = "glTexture3D";
}
