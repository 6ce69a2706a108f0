// Geometry buffers: a draw call is a node (ScnBufferArray, ScnBufferElement)
// whose children are its vertex attributes (ScnBufferAttrib), each named
// after the attribute of the shader it feeds.
#pragma once

#include "node/ScnNode.h"

class ScnBufferArray : public ScnGroup {
    SCN_NODE(ScnBufferArray, ScnGroup)
public:
    ScnBufferArray();

    ScnSFEnum primitive{this, "primitive", "gl_primitive", 0};
};

class ScnBufferElement : public ScnGroup {
    SCN_NODE(ScnBufferElement, ScnGroup)
public:
    ScnBufferElement();

    ScnSFEnum primitive{this, "primitive", "gl_primitive", 4};
    // Number of indices.
    ScnSFScript dim{this, "dim", 256};
    // Stored with the node; the draw reads the index buffer.
    ScnMFUInt indecies{this, "indecies"};
    // PLY file of the indices, relative to the workspace.
    ScnSFString data{this, "data"};
    ScnSFPlyLoadInfo source{this, "source", ScnPlyLoadInfo{4}};
};

class ScnBufferAttrib : public ScnNode {
    SCN_NODE(ScnBufferAttrib, ScnNode)
public:
    ScnBufferAttrib();

    // GL type of one component (GL_FLOAT).
    ScnSFEnum type{this, "type", "gl_vertexattrib_type", 5126};
    // Number of elements.
    ScnSFScript dim0{this, "dim0", "256*4", 1024};
    // PLY file, relative to the workspace.
    ScnSFString path{this, "path"};
    // Components per vertex in the first word, then the PLY columns.
    ScnSFPlyLoadInfo source{this, "source", ScnPlyLoadInfo{4}};
};
