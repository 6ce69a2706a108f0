/* What the file plug-ins (image, video, volume, ply) see of a memory object.
 * A plug-in gets the object as the script value a script would pass to `mem`,
 * maps it with mem.map, writes the bytes straight into the mapped store and
 * unmaps it with mem.unmap: no pixel or vertex passes through Lua values.
 * The store's address and layout come from a view function that the program
 * publishes in the Lua registry under VELMORA_MEM_API_KEY as a light userdata
 * pointing at a VelmoraMemApi. Plain C, so that a plug-in needs none of the
 * program's classes. */
#ifndef VELMORA_MEM_PLUGIN_API_H
#define VELMORA_MEM_PLUGIN_API_H

#include <stddef.h>
#include <stdint.h>

struct lua_State;

#define VELMORA_MEM_API_KEY "velmora.memapi"
#define VELMORA_MEM_API_VERSION 1

typedef struct VelmoraMemView {
    /* The mapped store, null while the object is not mapped. Rows and slices
     * are packed: element (x, y, z) lies at ((z * dim[1] + y) * dim[0] + x)
     * times elementSize. */
    void* data;
    /* Bytes of the whole object, as mem.size gives them. */
    size_t byteSize;
    /* Elements along each axis; 1 for an axis the object does not have. */
    uint32_t dim[3];
    /* Number of axes: 1 buffer, 2 or 3 image. */
    uint32_t dimensions;
    /* Element type code (0 cl_char .. 30 cl_double2) and its size in bytes. */
    uint32_t typeCode;
    uint32_t elementSize;
    /* OpenCL image format of an image (CL_RGBA, CL_UNORM_INT8, ...); 0 and 0
     * for a buffer, whose element type alone tells the layout. */
    uint32_t channelOrder;
    uint32_t channelType;
    /* The flags of the current map, 0 when not mapped. */
    uint64_t mapFlags;
} VelmoraMemView;

typedef struct VelmoraMemApi {
    int version;
    /* Fills `view` for the memory object at stack index `idx`: 1, or 0 when
     * that value is no live memory object. Raises no Lua error. */
    int (*view)(struct lua_State* L, int idx, VelmoraMemView* view);
} VelmoraMemApi;

#endif
