#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "core/deferred_executor/MemTracker.h"
#include "velour/gl_types.h"

// The handlers with little state of their own: programs, textures, queries,
// EGL frame times and the asynchronous read-back. Each saves the game's
// thread a drain that the plain record-and-wait path would cost.
namespace velour::core {

class DeferredExecutor;

// Program and shader calls need no shadow: their classes already put them on
// the right thread. Only glBindAttribLocation copies its name.
class ProgramAndShaderHandler {
  public:
    explicit ProgramAndShaderHandler(DeferredExecutor* executor) : executor(executor) {}
    virtual ~ProgramAndShaderHandler() = default;

    void bindAttribLocation(GLuint program, GLuint index, const GLchar* name);

    DeferredExecutor* executor;
};

// Pixel uploads copied at the call, sized by the unpack pixel-store values
// that the executor keeps as the game sets them.
class TextureHandler {
  public:
    explicit TextureHandler(DeferredExecutor* executor) : executor(executor) {}
    virtual ~TextureHandler() = default;

    // Bytes of a depth x height image of rows of width pixels, each row
    // padded to alignment (a power of two); 0 for an unknown format or type.
    static std::uint32_t imageSize(GLsizei width, GLsizei height, GLsizei depth, GLenum format,
                                   GLenum type, GLint alignment);

    void pixelStore(GLenum pname, GLint param);
    void texSubImage2D(GLenum target, GLint level, GLint xoffset, GLint yoffset, GLsizei width,
                       GLsizei height, GLenum format, GLenum type, const void* pixels);
    void compressedTexSubImage2D(GLenum target, GLint level, GLint xoffset, GLint yoffset,
                                 GLsizei width, GLsizei height, GLenum format, GLsizei imageSize,
                                 const void* data);

    DeferredExecutor* executor;
};

// With disableAnySamplesPassed set, an occlusion query of the any-samples
// kind always answers that samples passed, so a game that polls it never
// drains. The real query still runs.
class QueryHandler {
    using Tracker = MemTracker<MemCategory::Executor>;
    using Set = std::unordered_set<unsigned, std::hash<unsigned>, std::equal_to<unsigned>,
                                   Tracker::allocator<unsigned>>;

  public:
    static constexpr GLenum ANY_SAMPLES_PASSED = 35887;

    explicit QueryHandler(DeferredExecutor* executor);
    virtual ~QueryHandler() = default;

    void beginQuery(GLenum target, GLuint id);
    void getQueryObjectuiv(GLuint id, GLenum pname, GLuint* params);
    void deleteQueries(GLsizei n, const GLuint* ids);
    bool answered(GLuint id) const { return anySamplesQueries.count(id) != 0; }

    DeferredExecutor* executor;
    Set anySamplesQueries;

  private:
    // Nodes of erased ids, reused by later inserts: a game that makes and
    // deletes its queries every frame costs no heap traffic.
    std::vector<Set::node_type, Tracker::allocator<Set::node_type>> spare;
};

// With disableEglTimeStamps set, the first answers of the frame-time queries
// are kept and repeated, so they stop costing a drain each frame.
class EglTimeHandler {
  public:
    explicit EglTimeHandler(DeferredExecutor* executor) : executor(executor) {}
    virtual ~EglTimeHandler() = default;

    EGLBoolean getNextFrameId(EGLDisplay display, EGLSurface surface, EGLuint64KHR* frameId);
    EGLBoolean getFrameTimestamps(EGLDisplay display, EGLSurface surface, EGLuint64KHR frameId,
                                  EGLint numTimestamps, const EGLint* timestamps,
                                  EGLnsecsANDROID* values);
    EGLBoolean presentationTime(EGLDisplay display, EGLSurface surface, EGLnsecsANDROID time);

    DeferredExecutor* executor;
    std::vector<int> timestampNames;
    std::vector<std::int64_t> timestampValues;
    std::int64_t nextFrameId = 0;
    bool nextFrameIdValid = false;
};

// glReadPixels into a pack buffer: the worker copies the buffer once the GPU
// is done, into the executor's read-back cache, and the game's later map of
// the buffer is served from the copy without a drain.
class MiscHandler {
  public:
    explicit MiscHandler(DeferredExecutor* executor) : executor(executor) {}
    virtual ~MiscHandler() = default;

    void readPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type,
                    void* pixels);

    DeferredExecutor* executor;
};

}  // namespace velour::core
