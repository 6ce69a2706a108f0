#include "render/ScnBuffers.h"

ScnNodeType ScnBufferArray::s_type;
ScnNodeType ScnBufferElement::s_type;
ScnNodeType ScnBufferAttrib::s_type;

ScnBufferArray::ScnBufferArray()
{
    name = "glDrawArrays";
}

ScnBufferElement::ScnBufferElement()
{
    name = "glDrawElements";
}

ScnBufferAttrib::ScnBufferAttrib()
{
    name = "glVertexAttrib";
}
