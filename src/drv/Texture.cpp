#include "drv/Texture.h"

#include <cstdint>
#include <cstring>

namespace velour::drv {

void Texture::open() {
    if (opened) return;
    drv::glGenTextures(1, &name);
    opened = true;
}

void Texture::close() {
    if (!opened) return;
    drv::glDeleteTextures(1, &name);
    opened = false;
}

void Texture2D::bind() {
    drv::glBindTexture(GL_TEXTURE_2D, name);
}

void Texture2D::texParameteri(GLenum parameter, GLint value) {
    drv::glTexParameteri(GL_TEXTURE_2D, parameter, value);
}

void Texture2D::storage2D() {
    drv::glTexStorage2D(GL_TEXTURE_2D, levels, internalFormat, width, height);
}

void Texture2D::copyTexSubImage2D(GLint level, GLint xoffset, GLint yoffset, GLint x, GLint y,
                                  GLsizei copyWidth, GLsizei copyHeight) {
    drv::glCopyTexSubImage2D(GL_TEXTURE_2D, level, xoffset, yoffset, x, y, copyWidth, copyHeight);
    if (drv::glGetError) drv::glGetError();
}

namespace {

// One row of the colour table: the format for each component type. A row
// marked `anyType` answers `normalized` for every type but float, int and
// signed normalized.
struct ColorRow {
    int depth;
    GLenum normalized;  // GL_UNSIGNED_NORMALIZED and GL_UNSIGNED_INT
    GLenum floating;
    GLenum integer;
    GLenum signedNormalized;
    bool anyType;
};

// Kept as the table stands, odd cells included (16-bit RGB answers the 8-bit
// formats, 16-bit unsigned RG an RGB format).
constexpr ColorRow RGBA_ROWS[] = {
    {8, GL_RGBA8, GL_RGBA8, GL_RGBA8I, GL_RGBA8_SNORM, true},
    {16, GL_RGBA16UI, GL_RGBA16F, GL_RGBA16I, GL_RGBA16I, false},
    {32, GL_RGBA32UI, GL_RGBA32F, GL_RGBA32I, GL_RGBA32I, false},
};
constexpr ColorRow RGB_ROWS[] = {
    {8, GL_RGB8, GL_RGB8, GL_RGB8I, GL_RGB8_SNORM, true},
    {16, GL_RGB8, GL_RGB16F, GL_RGB8I, GL_RGB8I, false},
    {32, GL_RGB32UI, GL_RGB32F, GL_RGB32I, GL_RGB32I, false},
};
constexpr ColorRow RG_ROWS[] = {
    {8, GL_RG8, 0, GL_RG8I, GL_RG8_SNORM, false},
    {16, GL_RGB16UI, GL_RG16F, GL_RG16I, GL_RG16I, false},
    {32, GL_RG32UI, GL_RG32F, GL_RG32I, GL_RG32I, false},
};
constexpr ColorRow R_ROWS[] = {
    {8, GL_R8, 0, GL_R8I, GL_R8_SNORM, false},
    {16, GL_R16UI, GL_R16F, GL_R16I, GL_R16I, false},
    {32, GL_R32UI, GL_R32F, GL_R32I, 0, false},
};

template <size_t N>
GLenum lookUp(const ColorRow (&rows)[N], int depth, GLenum componentType) {
    for (const ColorRow& row : rows) {
        if (row.depth != depth) continue;
        switch (componentType) {
            case GL_UNSIGNED_NORMALIZED:
            case GL_UNSIGNED_INT:
                return row.normalized;
            case GL_FLOAT:
                return row.floating;
            case GL_INT:
                return row.integer;
            case GL_SIGNED_NORMALIZED:
                return row.signedNormalized;
            default:
                return row.anyType ? row.normalized : 0;
        }
    }
    return 0;
}

}  // namespace

GLenum Texture::getSizedColorFormat(GLenum componentType, int r, int g, int b, int a) {
    auto is = [&](int rr, int gg, int bb, int aa) {
        return r == rr && g == gg && b == bb && a == aa;
    };
    if (a != 0) {
        if (is(5, 5, 5, 1)) return GL_RGB5_A1;
        if (is(10, 10, 10, 2)) return GL_RGB10_A2;
        if (is(4, 4, 4, 4)) return GL_RGBA4;
        return is(a, a, a, a) ? lookUp(RGBA_ROWS, a, componentType) : 0;
    }
    if (b != 0) {
        if (is(5, 6, 5, 0)) return GL_RGB565;
        if (is(9, 9, 9, 0)) return GL_RGB9_E5;
        if (is(11, 11, 10, 0)) return GL_R11F_G11F_B10F;
        return is(b, b, b, 0) ? lookUp(RGB_ROWS, b, componentType) : 0;
    }
    if (g != 0) return is(g, g, 0, 0) ? lookUp(RG_ROWS, g, componentType) : 0;
    if (r != 0) return lookUp(R_ROWS, r, componentType);
    return 0;
}

GLenum Texture::getDepthFormat(int bits) {
    switch (bits) {
        case 8:
            return GL_DEPTH_COMPONENT;
        case 16:
            return GL_DEPTH_COMPONENT16;
        case 24:
            return GL_DEPTH_COMPONENT24;
        case 32:
            return GL_DEPTH_COMPONENT32F;
        default:
            return 0;
    }
}

GLenum Texture::getStencilFormat(int bits) {
    switch (bits) {
        case 1:
            return GL_STENCIL_INDEX;
        case 4:
            return VELOUR_GL_STENCIL_INDEX4;
        case 8:
            return GL_STENCIL_INDEX8;
        case 16:
            return VELOUR_GL_STENCIL_INDEX16;
        default:
            return 0;
    }
}

GLuint Texture::getTargetBinding(GLenum target) {
    GLenum binding = 0;
    switch (target) {
        case VELOUR_GL_TEXTURE_1D:
            binding = VELOUR_GL_TEXTURE_BINDING_1D;
            break;
        case GL_TEXTURE_2D:
            binding = GL_TEXTURE_BINDING_2D;
            break;
        case GL_TEXTURE_3D:
        case GL_TEXTURE_BINDING_3D:
            binding = GL_TEXTURE_BINDING_3D;
            break;
        case VELOUR_GL_TEXTURE_RECTANGLE:
            binding = VELOUR_GL_TEXTURE_BINDING_RECTANGLE;
            break;
        case GL_TEXTURE_CUBE_MAP:
        case GL_TEXTURE_CUBE_MAP_POSITIVE_X:
        case GL_TEXTURE_CUBE_MAP_NEGATIVE_X:
        case GL_TEXTURE_CUBE_MAP_POSITIVE_Y:
        case GL_TEXTURE_CUBE_MAP_NEGATIVE_Y:
        case GL_TEXTURE_CUBE_MAP_POSITIVE_Z:
        case GL_TEXTURE_CUBE_MAP_NEGATIVE_Z:
            binding = GL_TEXTURE_BINDING_CUBE_MAP;
            break;
        case VELOUR_GL_TEXTURE_1D_ARRAY:
            binding = VELOUR_GL_TEXTURE_BINDING_1D_ARRAY;
            break;
        case GL_TEXTURE_2D_ARRAY:
            binding = GL_TEXTURE_BINDING_2D_ARRAY;
            break;
        case GL_TEXTURE_BUFFER:
            binding = GL_TEXTURE_BINDING_BUFFER;
            break;
        case GL_TEXTURE_EXTERNAL_OES:
            binding = GL_TEXTURE_BINDING_EXTERNAL_OES;
            break;
        case GL_TEXTURE_CUBE_MAP_ARRAY:
            binding = GL_TEXTURE_BINDING_CUBE_MAP_ARRAY;
            break;
        case GL_TEXTURE_2D_MULTISAMPLE:
            binding = GL_TEXTURE_BINDING_2D_MULTISAMPLE;
            break;
        case GL_TEXTURE_2D_MULTISAMPLE_ARRAY:
            binding = GL_TEXTURE_BINDING_2D_MULTISAMPLE_ARRAY;
            break;
        default:
            return 0;
    }
    GLint texture = 0;
    drv::glGetIntegerv(binding, &texture);
    return static_cast<GLuint>(texture);
}

int Texture::getFormatComponentCount(GLenum format) {
    switch (format) {
        case GL_DEPTH_COMPONENT:
        case GL_RED:
        case GL_GREEN:
        case GL_BLUE:
        case GL_ALPHA:
        case GL_LUMINANCE:
        case GL_RED_INTEGER:
        case GL_LUMINANCE_ALPHA:
            return 1;
        case GL_RG:
            return 2;
        case GL_RGB:
        case VELOUR_GL_BGR:
        case GL_RGB_INTEGER:
            return 3;
        case GL_RGBA:
        case VELOUR_GL_BGRA:
        case GL_RGBA_INTEGER:
            return 4;
        default:
            return 0;
    }
}

bool Texture::isPackedType(GLenum type) {
    switch (type) {
        case GL_UNSIGNED_SHORT_5_6_5:
        case GL_UNSIGNED_SHORT_4_4_4_4:
        case GL_UNSIGNED_SHORT_5_5_5_1:
        case GL_UNSIGNED_INT_2_10_10_10_REV:
        case GL_UNSIGNED_INT_10F_11F_11F_REV:
        case GL_UNSIGNED_INT_5_9_9_9_REV:
        case GL_UNSIGNED_INT_24_8:
        case GL_FLOAT_32_UNSIGNED_INT_24_8_REV:
            return true;
        default:
            return false;
    }
}

int Texture::getTypeSize(GLenum type) {
    switch (type) {
        case GL_BYTE:
        case GL_UNSIGNED_BYTE:
            return 1;
        case GL_SHORT:
        case GL_UNSIGNED_SHORT:
        case GL_HALF_FLOAT:
        case GL_HALF_FLOAT_OES:
        case GL_UNSIGNED_SHORT_5_6_5:
        case GL_UNSIGNED_SHORT_4_4_4_4:
        case GL_UNSIGNED_SHORT_5_5_5_1:
            return 2;
        case GL_INT:
        case GL_UNSIGNED_INT:
        case GL_FLOAT:
        case GL_FIXED:
        case GL_UNSIGNED_INT_2_10_10_10_REV:
        case GL_UNSIGNED_INT_10F_11F_11F_REV:
        case GL_UNSIGNED_INT_5_9_9_9_REV:
        case GL_UNSIGNED_INT_24_8:
        case GL_FLOAT_32_UNSIGNED_INT_24_8_REV:
            return 4;
        default:
            return 0;
    }
}

int Texture::getPixelSize(GLenum format, GLenum type) {
    if (isPackedType(type)) return getTypeSize(type);
    return getFormatComponentCount(format) * getTypeSize(type);
}

void Texture::swapEndian(int count, GLenum format, GLenum type, const void* source,
                         void* destination) {
    const int element = getTypeSize(type);
    const int elementsPerPixel = isPackedType(type) ? 1 : getFormatComponentCount(format);
    const size_t total = static_cast<size_t>(count) * elementsPerPixel * element;
    const auto* from = static_cast<const uint8_t*>(source);
    auto* to = static_cast<uint8_t*>(destination);
    if (element <= 1) {
        std::memmove(to, from, total);
        return;
    }
    for (size_t at = 0; at < total; at += element)
        for (int i = 0; i < element; ++i) to[at + i] = from[at + element - 1 - i];
}

std::string Texture::toFormatString(GLenum format) {
    struct Name {
        GLenum format;
        const char* name;
    };
    static constexpr Name NAMES[] = {
        {GL_NONE, "GL_NONE"},
        {GL_ALPHA, "GL_ALPHA"},
        {GL_DEPTH24_STENCIL8, "GL_DEPTH24_STENCIL8"},
        {GL_DEPTH32F_STENCIL8, "GL_DEPTH32F_STENCIL8"},
        {GL_DEPTH_COMPONENT, "GL_DEPTH_COMPONENT"},
        {GL_DEPTH_COMPONENT16, "GL_DEPTH_COMPONENT16"},
        {GL_DEPTH_COMPONENT24, "GL_DEPTH_COMPONENT24"},
        {VELOUR_GL_DEPTH_COMPONENT32, "GL_DEPTH_COMPONENT32"},
        {GL_DEPTH_COMPONENT32F, "GL_DEPTH_COMPONENT32F"},
        {GL_DEPTH_STENCIL, "GL_DEPTH_STENCIL"},
        {GL_R11F_G11F_B10F, "GL_R11F_G11F_B10F"},
        {VELOUR_GL_R3_G3_B2, "GL_R3_G3_B2"},
        {GL_RED, "GL_RED"},
        {VELOUR_GL_RGB4, "GL_RGB4"},
        {VELOUR_GL_RGB5, "GL_RGB5"},
        {GL_RGB5_A1, "GL_RGB5_A1"},
        {GL_RGB9_E5, "GL_RGB9_E5"},
        {VELOUR_GL_RGB10, "GL_RGB10"},
        {GL_RGB10_A2, "GL_RGB10_A2"},
        {GL_RGB10_A2UI, "GL_RGB10_A2UI"},
        {VELOUR_GL_RGB12, "GL_RGB12"},
        {GL_RGBA, "GL_RGBA"},
        {VELOUR_GL_RGBA2, "GL_RGBA2"},
        {GL_RGBA4, "GL_RGBA4"},
        {VELOUR_GL_RGBA12, "GL_RGBA12"},
        {GL_SRGB8, "GL_SRGB8"},
        {GL_SRGB8_ALPHA8, "GL_SRGB8_ALPHA8"},
        {GL_STENCIL_INDEX, "GL_STENCIL_INDEX"},
        {VELOUR_GL_STENCIL_INDEX4, "GL_STENCIL_INDEX4"},
        {GL_STENCIL_INDEX8, "GL_STENCIL_INDEX8"},
        {VELOUR_GL_STENCIL_INDEX16, "GL_STENCIL_INDEX16"},
        {GL_R8, "GL_R8"},
        {GL_R8I, "GL_R8I"},
        {GL_R8UI, "GL_R8UI"},
        {GL_R8_SNORM, "GL_R8_SNORM"},
        {VELOUR_GL_R16, "GL_R16"},
        {GL_R16F, "GL_R16F"},
        {GL_R16I, "GL_R16I"},
        {GL_R16UI, "GL_R16UI"},
        {VELOUR_GL_R16_SNORM, "GL_R16_SNORM"},
        {GL_R32F, "GL_R32F"},
        {GL_R32I, "GL_R32I"},
        {GL_R32UI, "GL_R32UI"},
        {GL_RG8, "GL_RG8"},
        {GL_RG8I, "GL_RG8I"},
        {GL_RG8UI, "GL_RG8UI"},
        {GL_RG8_SNORM, "GL_RG8_SNORM"},
        {VELOUR_GL_RG16, "GL_RG16"},
        {GL_RG16F, "GL_RG16F"},
        {GL_RG16I, "GL_RG16I"},
        {GL_RG16UI, "GL_RG16UI"},
        {VELOUR_GL_RG16_SNORM, "GL_RG16_SNORM"},
        {GL_RG32F, "GL_RG32F"},
        {GL_RG32I, "GL_RG32I"},
        {GL_RG32UI, "GL_RG32UI"},
        {GL_RGB8, "GL_RGB8"},
        {GL_RGB8I, "GL_RGB8I"},
        {GL_RGB8UI, "GL_RGB8UI"},
        {GL_RGB8_SNORM, "GL_RGB8_SNORM"},
        {VELOUR_GL_RGB16, "GL_RGB16"},
        {GL_RGB16F, "GL_RGB16F"},
        {GL_RGB16I, "GL_RGB16I"},
        {GL_RGB16UI, "GL_RGB16UI"},
        {VELOUR_GL_RGB16_SNORM, "GL_RGB16_SNORM"},
        {GL_RGB32F, "GL_RGB32F"},
        {GL_RGB32I, "GL_RGB32I"},
        {GL_RGB32UI, "GL_RGB32UI"},
        {GL_RGBA8, "GL_RGBA8"},
        {GL_RGBA8I, "GL_RGBA8I"},
        {GL_RGBA8UI, "GL_RGBA8UI"},
        {GL_RGBA8_SNORM, "GL_RGBA8_SNORM"},
        {VELOUR_GL_RGBA16, "GL_RGBA16"},
        {GL_RGBA16F, "GL_RGBA16F"},
        {GL_RGBA16I, "GL_RGBA16I"},
        {GL_RGBA16UI, "GL_RGBA16UI"},
        {VELOUR_GL_RGBA16_SNORM, "GL_RGBA16_SNORM"},
        {GL_RGBA32F, "GL_RGBA32F"},
        {GL_RGBA32I, "GL_RGBA32I"},
        {GL_RGBA32UI, "GL_RGBA32UI"},
    };
    for (const Name& entry : NAMES)
        if (entry.format == format) return entry.name;
    return "";
}

}  // namespace velour::drv
