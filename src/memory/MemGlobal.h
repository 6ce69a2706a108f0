// Start of the memory module: the script modules struct and mem, and what the
// textures shared with OpenGL need to know of the GL driver.
#pragma once

namespace MemGlobal {
// Reads the largest texture anisotropy (with the GL context current), opens
// the struct and mem modules; traces its start and end.
void init();
// GL_MAX_TEXTURE_MAX_ANISOTROPY_EXT as read by init; 0 without a GL context
// or without the extension.
int maxAnisotropy();
}
