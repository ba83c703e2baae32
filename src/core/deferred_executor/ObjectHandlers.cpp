#include "core/deferred_executor/ObjectHandlers.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "core/context.h"
#include "core/deferred_executor/CopyParams.h"
#include "core/deferred_executor/DeferredExecutor.h"
#include "velour/entry_points.h"

namespace velour::core {

namespace {

// Formats and types of the pixel sizes.
constexpr GLenum RGBA = 0x1908, BGRA_EXT = 0x80E1, RGBA_INTEGER = 0x8D99;
constexpr GLenum RGB = 0x1907, SRGB_EXT = 0x8C40, RGB_INTEGER = 0x8D98;
constexpr GLenum LUMINANCE_ALPHA = 0x190A, RG = 0x8227, RG_INTEGER = 0x8228, DEPTH_STENCIL = 0x84F9;
constexpr GLenum STENCIL = 0x1802, STENCIL_INDEX = 0x1901, DEPTH_COMPONENT = 0x1902, RED = 0x1903,
                 GREEN = 0x1904, BLUE = 0x1905, ALPHA = 0x1906, LUMINANCE = 0x1909,
                 RED_INTEGER = 0x8D94;

constexpr GLenum BYTE = 0x1400, UNSIGNED_BYTE = 0x1401, SHORT = 0x1402, UNSIGNED_SHORT = 0x1403,
                 INT = 0x1404, UNSIGNED_INT = 0x1405, FLOAT = 0x1406, HALF_FLOAT = 0x140B,
                 HALF_FLOAT_OES = 0x8D61;
constexpr GLenum UNSIGNED_SHORT_4_4_4_4 = 0x8033, UNSIGNED_SHORT_5_5_5_1 = 0x8034,
                 UNSIGNED_SHORT_5_6_5 = 0x8363, DEPTH_COMPONENT16 = 0x81A5;
constexpr GLenum DEPTH_COMPONENT24 = 0x81A6, UNSIGNED_INT_24_8 = 0x84FA,
                 UNSIGNED_INT_2_10_10_10_REV = 0x8368, INT_2_10_10_10_REV = 0x8D9F,
                 DEPTH24_STENCIL8 = 0x88F0, UNSIGNED_INT_5_9_9_9_REV = 0x8C3E,
                 UNSIGNED_INT_10F_11F_11F_REV = 0x8C3B, DEPTH_COMPONENT32F = 0x8CAC;
constexpr GLenum FLOAT_32_UNSIGNED_INT_24_8_REV = 0x8DAD, DEPTH32F_STENCIL8 = 0x8CAD;

int components(GLenum format) {
    switch (format) {
        case RGBA:
        case BGRA_EXT:
        case RGBA_INTEGER:
            return 4;
        case RGB:
        case SRGB_EXT:
        case RGB_INTEGER:
            return 3;
        case LUMINANCE_ALPHA:
        case RG:
        case RG_INTEGER:
        case DEPTH_STENCIL:
            return 2;
        case STENCIL:
        case STENCIL_INDEX:
        case DEPTH_COMPONENT:
        case RED:
        case GREEN:
        case BLUE:
        case ALPHA:
        case LUMINANCE:
        case RED_INTEGER:
            return 1;
        default:
            return 0;
    }
}

// Packed types give the whole pixel whatever the format says.
int pixelBytes(int components, GLenum type) {
    switch (type) {
        case BYTE:
        case UNSIGNED_BYTE:
            return components;
        case SHORT:
        case UNSIGNED_SHORT:
        case HALF_FLOAT:
        case HALF_FLOAT_OES:
            return 2 * components;
        case INT:
        case UNSIGNED_INT:
        case FLOAT:
            return 4 * components;
        case UNSIGNED_SHORT_4_4_4_4:
        case UNSIGNED_SHORT_5_5_5_1:
        case UNSIGNED_SHORT_5_6_5:
        case DEPTH_COMPONENT16:
            return 2;
        case DEPTH_COMPONENT24:
        case UNSIGNED_INT_24_8:
        case UNSIGNED_INT_2_10_10_10_REV:
        case INT_2_10_10_10_REV:
        case DEPTH24_STENCIL8:
        case UNSIGNED_INT_5_9_9_9_REV:
        case UNSIGNED_INT_10F_11F_11F_REV:
        case DEPTH_COMPONENT32F:
            return 4;
        case FLOAT_32_UNSIGNED_INT_24_8_REV:
        case DEPTH32F_STENCIL8:
            return 8;
        default:
            return 0;
    }
}

// The flag is fixed once start-up has filled the configuration.
bool anySamplesPassedDisabled() {
    return context.gameConfig.disableAnySamplesPassed;
}
bool eglTimeStampsDisabled() {
    return context.gameConfig.disableEglTimeStamps;
}

struct BindAttribLocationArgs {
    GLuint program;
    GLuint index;
    const GLchar* name;
};

struct PixelStoreArgs {
    GLenum pname;
    GLint param;
};

struct TexSubImage2DArgs {
    GLenum target;
    GLint level;
    GLint xoffset;
    GLint yoffset;
    GLsizei width;
    GLsizei height;
    GLenum format;
    GLenum type;
    const void* pixels;
};

struct CompressedTexSubImage2DArgs {
    GLenum target;
    GLint level;
    GLint xoffset;
    GLint yoffset;
    GLsizei width;
    GLsizei height;
    GLenum format;
    GLsizei imageSize;
    const void* data;
};

struct BeginQueryArgs {
    GLenum target;
    GLuint id;
};

struct GetQueryObjectuivArgs {
    GLuint id;
    GLenum pname;
    GLuint* params;
};

struct DeleteQueriesArgs {
    GLsizei n;
    const GLuint* ids;
};

struct NextFrameIdArgs {
    EGLBoolean* result;
    EGLDisplay display;
    EGLSurface surface;
    EGLuint64KHR* frameId;
};

struct FrameTimestampsArgs {
    EGLBoolean* result;
    EGLDisplay display;
    EGLSurface surface;
    EGLuint64KHR frameId;
    EGLint numTimestamps;
    const EGLint* timestamps;
    EGLnsecsANDROID* values;
};

struct PresentationTimeArgs {
    EGLDisplay display;
    EGLSurface surface;
    EGLnsecsANDROID time;
};

}  // namespace

void ProgramAndShaderHandler::bindAttribLocation(GLuint program, GLuint index, const GLchar* name) {
    // An empty name reaches the driver as null, like any copied string.
    const char* copy = copyString(*executor->frameData, name, -1);
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<BindAttribLocationArgs*>(args);
            hijack::glBindAttribLocation(a->program, a->index, a->name);
        },
        BindAttribLocationArgs{program, index, copy});
}

std::uint32_t TextureHandler::imageSize(GLsizei width, GLsizei height, GLsizei depth, GLenum format,
                                        GLenum type, GLint alignment) {
    // A negative extent is the driver's error to raise; copying for it could
    // read past the game's memory.
    if (width < 1 || height < 1 || depth < 1) return 0;
    std::int64_t a = alignment < 1 ? 1 : alignment;
    std::int64_t pixel = pixelBytes(components(format), type);
    std::int64_t row = (a + std::int64_t(width) * pixel - 1) & -a;
    std::int64_t size = std::int64_t(depth) * height * row;
    return size > 0xffffffffLL ? 0 : static_cast<std::uint32_t>(size);
}

void TextureHandler::pixelStore(GLenum pname, GLint param) {
    if (int* field = executor->unpackField(pname)) *field = param;
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<PixelStoreArgs*>(args);
            hijack::glPixelStorei(a->pname, a->param);
        },
        PixelStoreArgs{pname, param});
}

void TextureHandler::texSubImage2D(GLenum target, GLint level, GLint xoffset, GLint yoffset,
                                   GLsizei width, GLsizei height, GLenum format, GLenum type,
                                   const void* pixels) {
    // The driver reads the copy under the pixel-store state that the stream
    // has at this point, which is the state this size is made from. Skipped
    // rows and pixels lie inside the copy, ahead of the image.
    DeferredExecutor& e = *executor;
    GLsizei w = (e.unpackRowLength >= 1 ? e.unpackRowLength : width) + e.unpackSkipPixels;
    GLsizei h = height + e.unpackSkipRows;
    std::uint32_t size = imageSize(w, h, 1, format, type, e.unpackAlignment);
    const void* copy = pixels && size >= 1 ? copyBytes(*e.frameData, pixels, size) : nullptr;
    e.queue.record(
        +[](void* args) {
            auto* a = static_cast<TexSubImage2DArgs*>(args);
            hijack::glTexSubImage2D(a->target, a->level, a->xoffset, a->yoffset, a->width,
                                    a->height, a->format, a->type, a->pixels);
        },
        TexSubImage2DArgs{target, level, xoffset, yoffset, width, height, format, type, copy});
}

void TextureHandler::compressedTexSubImage2D(GLenum target, GLint level, GLint xoffset,
                                             GLint yoffset, GLsizei width, GLsizei height,
                                             GLenum format, GLsizei imageSize, const void* data) {
    const void* copy = copySized(*executor->frameData, data, imageSize);
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<CompressedTexSubImage2DArgs*>(args);
            hijack::glCompressedTexSubImage2D(a->target, a->level, a->xoffset, a->yoffset, a->width,
                                              a->height, a->format, a->imageSize, a->data);
        },
        CompressedTexSubImage2DArgs{target, level, xoffset, yoffset, width, height, format,
                                    imageSize, copy});
}

QueryHandler::QueryHandler(DeferredExecutor* executor) : executor(executor) {
    anySamplesQueries.max_load_factor(1.0f);
}

void QueryHandler::beginQuery(GLenum target, GLuint id) {
    if (target == ANY_SAMPLES_PASSED && id != 0 && anySamplesPassedDisabled()) {
        if (spare.empty()) {
            anySamplesQueries.insert(id);
        } else if (!answered(id)) {
            Set::node_type node = std::move(spare.back());
            spare.pop_back();
            node.value() = id;
            anySamplesQueries.insert(std::move(node));
        }
    }
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<BeginQueryArgs*>(args);
            hijack::glBeginQuery(a->target, a->id);
        },
        BeginQueryArgs{target, id});
}

void QueryHandler::getQueryObjectuiv(GLuint id, GLenum pname, GLuint* params) {
    // Whatever pname asks: both the result and its availability read as 1.
    if (anySamplesPassedDisabled() && answered(id)) {
        if (params) *params = 1;
        return;
    }
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<GetQueryObjectuivArgs*>(args);
            hijack::glGetQueryObjectuiv(a->id, a->pname, a->params);
        },
        GetQueryObjectuivArgs{id, pname, params});
    executor->queue.flushAndWait(gles::id::glGetQueryObjectuiv);
}

void QueryHandler::deleteQueries(GLsizei n, const GLuint* ids) {
    if (n >= 1 && ids && anySamplesPassedDisabled()) {
        for (GLsizei i = 0; i < n; ++i) {
            Set::node_type node = anySamplesQueries.extract(ids[i]);
            if (!node) continue;
            // Out of memory the node is freed: the deletion must go on.
            try {
                spare.push_back(std::move(node));
            } catch (const std::bad_alloc&) {
            }
        }
    }
    // The game's own array, neither copied nor waited for: a change that the
    // game makes to it right after the call reaches the driver. The job is
    // built this way on purpose, unlike glDeleteQueriesEXT.
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<DeleteQueriesArgs*>(args);
            hijack::glDeleteQueries(a->n, a->ids);
        },
        DeleteQueriesArgs{n, ids});
}

EGLBoolean EglTimeHandler::getNextFrameId(EGLDisplay display, EGLSurface surface,
                                          EGLuint64KHR* frameId) {
    bool keep = eglTimeStampsDisabled();
    if (keep && nextFrameIdValid && frameId) {
        *frameId = static_cast<EGLuint64KHR>(nextFrameId);
        return EGL_TRUE;
    }
    EGLBoolean result = EGL_FALSE;
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<NextFrameIdArgs*>(args);
            *a->result = hijack::eglGetNextFrameIdANDROID(a->display, a->surface, a->frameId);
        },
        NextFrameIdArgs{&result, display, surface, frameId});
    executor->queue.flushAndWait(gles::id::eglGetNextFrameIdANDROID);
    if (keep && result && frameId) {
        nextFrameId = static_cast<std::int64_t>(*frameId);
        nextFrameIdValid = true;
    }
    return result;
}

EGLBoolean EglTimeHandler::getFrameTimestamps(EGLDisplay display, EGLSurface surface,
                                              EGLuint64KHR frameId, EGLint numTimestamps,
                                              const EGLint* timestamps, EGLnsecsANDROID* values) {
    bool keep = eglTimeStampsDisabled();
    std::size_t count = numTimestamps > 0 ? static_cast<std::size_t>(numTimestamps) : 0;
    // The frame is not compared: the first answer stands for every later frame.
    if (keep && static_cast<std::size_t>(numTimestamps) == timestampNames.size() &&
        (count == 0 || (timestamps && values &&
                        std::equal(timestampNames.begin(), timestampNames.end(), timestamps)))) {
        std::copy(timestampValues.begin(), timestampValues.end(), values);
        return EGL_TRUE;
    }
    EGLBoolean result = EGL_FALSE;
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<FrameTimestampsArgs*>(args);
            *a->result = hijack::eglGetFrameTimestampsANDROID(
                a->display, a->surface, a->frameId, a->numTimestamps, a->timestamps, a->values);
        },
        FrameTimestampsArgs{&result, display, surface, frameId, numTimestamps, timestamps, values});
    executor->queue.flushAndWait(gles::id::eglGetFrameTimestampsANDROID);
    if (keep && result && (count == 0 || (timestamps && values))) {
        timestampNames.assign(timestamps, timestamps + count);
        timestampValues.assign(values, values + count);
    }
    return result;
}

EGLBoolean EglTimeHandler::presentationTime(EGLDisplay display, EGLSurface surface,
                                            EGLnsecsANDROID time) {
    executor->queue.record(
        +[](void* args) {
            auto* a = static_cast<PresentationTimeArgs*>(args);
            hijack::eglPresentationTimeANDROID(a->display, a->surface, a->time);
        },
        PresentationTimeArgs{display, surface, time});
    // Like any recorded call: the driver's answer is not waited for.
    return EGL_TRUE;
}

}  // namespace velour::core
