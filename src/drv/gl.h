#pragma once

// The driver table and the GL enums for the layer's own drawing. Prototypes
// stay off: every call goes through the drv:: slots.

#include "velour/entry_points.h"

#define GL_GLES_PROTOTYPES 0
#include <GLES3/gl32.h>
// After the core header, which defines what the extensions' header needs.
#include <GLES2/gl2ext.h>

// Desktop names that the format routines still answer for.
#define VELOUR_GL_TEXTURE_1D 0x0DE0
#define VELOUR_GL_TEXTURE_BINDING_1D 0x8068
#define VELOUR_GL_TEXTURE_RECTANGLE 0x84F5
#define VELOUR_GL_TEXTURE_BINDING_RECTANGLE 0x84F6
#define VELOUR_GL_TEXTURE_1D_ARRAY 0x8C18
#define VELOUR_GL_TEXTURE_BINDING_1D_ARRAY 0x8C1C
#define VELOUR_GL_BGR 0x80E0
#define VELOUR_GL_BGRA 0x80E1
#define VELOUR_GL_R3_G3_B2 0x2A10
#define VELOUR_GL_RGB4 0x804F
#define VELOUR_GL_RGB5 0x8050
#define VELOUR_GL_RGB10 0x8052
#define VELOUR_GL_RGB12 0x8053
#define VELOUR_GL_RGBA2 0x8055
#define VELOUR_GL_RGBA12 0x805A
#define VELOUR_GL_DEPTH_COMPONENT32 0x81A7
#define VELOUR_GL_POLYGON_MODE 0x0B40
#define VELOUR_GL_STENCIL_INDEX1 0x8D46
#define VELOUR_GL_STENCIL_INDEX4 0x8D47
#define VELOUR_GL_STENCIL_INDEX16 0x8D49
#define VELOUR_GL_R16 0x822A
#define VELOUR_GL_RG16 0x822C
#define VELOUR_GL_RGB16 0x8054
#define VELOUR_GL_RGBA16 0x805B
#define VELOUR_GL_R16_SNORM 0x8F98
#define VELOUR_GL_RG16_SNORM 0x8F99
#define VELOUR_GL_RGB16_SNORM 0x8F9A
#define VELOUR_GL_RGBA16_SNORM 0x8F9B
