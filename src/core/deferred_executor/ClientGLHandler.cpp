#include "core/deferred_executor/ClientGLHandler.h"

#include <cstring>
#include <iterator>
#include <limits>
#include <new>

#include "core/deferred_executor/CopyParams.h"
#include "core/render-context.h"

namespace velour {

namespace {

constexpr GLenum ARRAY_BUFFER = 34962;
constexpr GLenum ELEMENT_ARRAY_BUFFER = 34963;
constexpr GLenum TEXTURE_2D = 3553;
constexpr GLenum PRIMITIVE_RESTART_FIXED_INDEX = 36201;
constexpr GLbitfield MAP_READ_BIT = 0x1;
constexpr GLbitfield MAP_FLUSH_EXPLICIT_BIT = 0x10;
constexpr GLbitfield MAP_PERSISTENT_BIT = 0x40;
constexpr GLenum PIXEL_PACK_BUFFER = 0x88EB;

constexpr GLenum BYTE = 0x1400;
constexpr GLenum UNSIGNED_BYTE = 0x1401;
constexpr GLenum SHORT = 0x1402;
constexpr GLenum UNSIGNED_SHORT = 0x1403;
constexpr GLenum UNSIGNED_INT = 0x1405;
constexpr GLenum HALF_FLOAT = 0x140B;
constexpr GLenum UNSIGNED_INT_2_10_10_10_REV = 0x8368;
constexpr GLenum INT_2_10_10_10_REV = 0x8D9F;

constexpr GLenum READ_BUFFER = 0x0C02;
constexpr GLenum TEXTURE_BINDING_2D = 0x8069;
constexpr GLenum ACTIVE_TEXTURE = 0x84E0;
constexpr GLenum VERTEX_ARRAY_BINDING = 0x85B5;
constexpr GLenum COPY_READ_BUFFER_BINDING = 36662;
constexpr GLenum SAMPLE_BUFFERS = 0x80A8;
constexpr GLenum NUM_PROGRAM_BINARY_FORMATS = 0x87FE;
constexpr GLenum PROGRAM_BINARY_FORMATS = 0x87FF;
constexpr GLenum MAX_DRAW_BUFFERS = 0x8824;
constexpr GLenum IMPLEMENTATION_COLOR_READ_TYPE = 0x8B9A;
constexpr GLenum IMPLEMENTATION_COLOR_READ_FORMAT = 0x8B9B;

constexpr GLenum VERTEX_ATTRIB_ARRAY_ENABLED = 0x8622;
constexpr GLenum VERTEX_ATTRIB_ARRAY_SIZE = 0x8623;
constexpr GLenum VERTEX_ATTRIB_ARRAY_STRIDE = 0x8624;
constexpr GLenum VERTEX_ATTRIB_ARRAY_TYPE = 0x8625;
constexpr GLenum VERTEX_ATTRIB_ARRAY_POINTER = 0x8645;
constexpr GLenum VERTEX_ATTRIB_ARRAY_NORMALIZED = 0x886A;
constexpr GLenum VERTEX_ATTRIB_ARRAY_BUFFER_BINDING = 0x889F;
constexpr GLenum VERTEX_ATTRIB_ARRAY_INTEGER = 0x88FD;
constexpr GLenum VERTEX_ATTRIB_ARRAY_DIVISOR = 0x88FE;

constexpr GLenum CURRENT_PROGRAM = 0x8B8D;
constexpr GLenum FRAMEBUFFER = 0x8D40;
constexpr GLenum READ_FRAMEBUFFER = 0x8CA8;
constexpr GLenum DRAW_FRAMEBUFFER = 0x8CA9;
constexpr GLenum RENDERBUFFER = 0x8D41;
constexpr GLenum DRAW_FRAMEBUFFER_BINDING = 0x8CA6;
constexpr GLenum RENDERBUFFER_BINDING = 0x8CA7;
constexpr GLenum ARRAY_BUFFER_BINDING = 0x8894;
constexpr GLenum ELEMENT_ARRAY_BUFFER_BINDING = 0x8895;
constexpr GLenum WRITE_ONLY_OES = 0x88B9;
constexpr GLbitfield MAP_WRITE_BIT = 0x2;

constexpr GLenum BUFFER_SIZE = 0x8764;
constexpr GLenum BUFFER_USAGE = 0x8765;
constexpr GLenum BUFFER_ACCESS_OES = 0x88BB;
constexpr GLenum BUFFER_MAPPED = 0x88BC;
constexpr GLenum BUFFER_MAP_POINTER = 0x88BD;
constexpr GLenum BUFFER_ACCESS_FLAGS = 0x911F;
constexpr GLenum BUFFER_MAP_LENGTH = 0x9120;
constexpr GLenum BUFFER_MAP_OFFSET = 0x9121;

// Implementation constants answered from a copy read once per context, with
// how many values each has.
struct ConstantName {
    GLenum pname;
    int count;
};
constexpr ConstantName CONSTANT_NAMES[] = {
    {0x0D33, 1},  // GL_MAX_TEXTURE_SIZE
    {0x0D3A, 2},  // GL_MAX_VIEWPORT_DIMS
    {0x0D50, 1},  // GL_SUBPIXEL_BITS
    {0x80E8, 1},  // GL_MAX_ELEMENTS_VERTICES
    {0x80E9, 1},  // GL_MAX_ELEMENTS_INDICES
    {0x8073, 1},  // GL_MAX_3D_TEXTURE_SIZE
    {0x821B, 1},  // GL_MAJOR_VERSION
    {0x821C, 1},  // GL_MINOR_VERSION
    {0x821D, 1},  // GL_NUM_EXTENSIONS
    {0x84E8, 1},  // GL_MAX_RENDERBUFFER_SIZE
    {0x851C, 1},  // GL_MAX_CUBE_MAP_TEXTURE_SIZE
    {0x86A2, 1},  // GL_NUM_COMPRESSED_TEXTURE_FORMATS
    {0x8869, 1},  // GL_MAX_VERTEX_ATTRIBS
    {0x8872, 1},  // GL_MAX_TEXTURE_IMAGE_UNITS
    {0x88FF, 1},  // GL_MAX_ARRAY_TEXTURE_LAYERS
    {0x8A2F, 1},  // GL_MAX_UNIFORM_BUFFER_BINDINGS
    {0x8A34, 1},  // GL_UNIFORM_BUFFER_OFFSET_ALIGNMENT
    {0x8B49, 1},  // GL_MAX_FRAGMENT_UNIFORM_COMPONENTS
    {0x8B4A, 1},  // GL_MAX_VERTEX_UNIFORM_COMPONENTS
    {0x8B4C, 1},  // GL_MAX_VERTEX_TEXTURE_IMAGE_UNITS
    {0x8B4D, 1},  // GL_MAX_COMBINED_TEXTURE_IMAGE_UNITS
    {0x8C8B, 1},  // GL_MAX_TRANSFORM_FEEDBACK_SEPARATE_ATTRIBS
    {0x8CDF, 1},  // GL_MAX_COLOR_ATTACHMENTS
    {0x8D57, 1},  // GL_MAX_SAMPLES
    {0x8DF9, 1},  // GL_NUM_SHADER_BINARY_FORMATS
    {0x8DFB, 1},  // GL_MAX_VERTEX_UNIFORM_VECTORS
    {0x8DFC, 1},  // GL_MAX_VARYING_VECTORS
    {0x8DFD, 1},  // GL_MAX_FRAGMENT_UNIFORM_VECTORS
    {0x9122, 1},  // GL_MAX_VERTEX_OUTPUT_COMPONENTS
    {0x9125, 1},  // GL_MAX_FRAGMENT_INPUT_COMPONENTS
    {0x9143, 1},  // GL_MAX_DEBUG_MESSAGE_LENGTH
    {0x9144, 1},  // GL_MAX_DEBUG_LOGGED_MESSAGES
};

// Capabilities that glEnable takes in every version, in bit order; the
// shadow answers glIsEnabled and the gets of these alone.
constexpr GLenum CAPABILITIES[] = {
    0x0BE2,  // GL_BLEND
    0x0B44,  // GL_CULL_FACE
    0x0B71,  // GL_DEPTH_TEST
    0x0BD0,  // GL_DITHER, the one on at first
    0x8037,  // GL_POLYGON_OFFSET_FILL
    0x809E,  // GL_SAMPLE_ALPHA_TO_COVERAGE
    0x80A0,  // GL_SAMPLE_COVERAGE
    0x0C11,  // GL_SCISSOR_TEST
    0x0B90,  // GL_STENCIL_TEST
};
constexpr std::uint32_t DITHER_BIT = 1u << 3;
constexpr std::uint32_t ALL_CAPABILITIES = (1u << std::size(CAPABILITIES)) - 1;
constexpr GLenum VIEWPORT = 0x0BA2;
constexpr GLenum SCISSOR_BOX = 0x0C10;
constexpr GLenum MAX_VIEWPORT_DIMS = 0x0D3A;

std::uint32_t capabilityBit(GLenum cap) {
    for (std::size_t i = 0; i < std::size(CAPABILITIES); ++i)
        if (CAPABILITIES[i] == cap) return 1u << i;
    return 0;
}

int constantCount(GLenum pname) {
    for (const ConstantName& c : CONSTANT_NAMES)
        if (c.pname == pname) return c.count;
    return 0;
}

// Usages that every version takes; the others fail on an ES 2 context.
bool isCommonUsage(GLenum usage) {
    return usage == 0x88E0 || usage == 0x88E4 || usage == 0x88E8;  // STREAM, STATIC, DYNAMIC_DRAW
}

std::uint64_t attribBit(GLuint index) {
    return index < 32 ? std::uint64_t(1) << index : 0;
}

std::uintptr_t elementSize(GLenum type, GLint size) {
    switch (type) {
        case BYTE:
        case UNSIGNED_BYTE:
            return static_cast<std::uintptr_t>(size);
        case SHORT:
        case UNSIGNED_SHORT:
        case HALF_FLOAT:
            return static_cast<std::uintptr_t>(size) * 2;
        case UNSIGNED_INT_2_10_10_10_REV:
        case INT_2_10_10_10_REV:
            return 4;
        default:  // INT, UNSIGNED_INT, FLOAT, FIXED and anything unknown
            return static_cast<std::uintptr_t>(size) * 4;
    }
}

std::size_t indexSize(GLenum type) {
    if (type == UNSIGNED_INT) return 4;
    if (type == UNSIGNED_BYTE) return 1;
    return 2;
}

template <typename T>
GLuint maxIndex(const T* indices, GLsizei count, bool restart) {
    if (!restart) {
        T largest = indices[0];
        for (GLsizei i = 1; i < count; ++i)
            if (indices[i] > largest) largest = indices[i];
        return largest;
    }
    // The restart index marks a cut, not a vertex.
    constexpr T cut = std::numeric_limits<T>::max();
    T largest = 0;
    for (GLsizei i = 0; i < count; ++i)
        if (indices[i] != cut && indices[i] > largest) largest = indices[i];
    return largest;
}

void setPointer(GLuint index, GLint size, GLenum type, bool isInteger, bool normalized,
                GLsizei stride, const void* pointer) {
    if (isInteger)
        hijack::glVertexAttribIPointer(index, size, type, stride, pointer);
    else
        hijack::glVertexAttribPointer(index, size, type, normalized, stride, pointer);
}

// Client pointers are only client pointers with no array buffer bound; the
// worker's binding follows the game's, so it is lifted around them.
void clientDrawJob(void* args) {
    auto* a = static_cast<const ClientGLHandler::ClientDrawArgs*>(args);
    if (a->arrayBuffer) hijack::glBindBuffer(ARRAY_BUFFER, 0);
    const ClientGLHandler::ClientDrawState& s = *a->state;
    for (std::uint32_t i = 0; i < s.attribCount; ++i) {
        const ClientGLHandler::ClientAttrib& c = s.attribs[i];
        setPointer(c.index, c.size, c.type, c.isInteger, c.normalized, c.stride, c.pointer);
    }
    a->draw(*a);
    if (a->arrayBuffer) hijack::glBindBuffer(ARRAY_BUFFER, a->arrayBuffer);
}

struct LiveApplyArgs {
    ClientGLHandler* handler;
    GLuint arrayBuffer;
};

void liveApplyJob(void* args) {
    auto* a = static_cast<const LiveApplyArgs*>(args);
    if (a->arrayBuffer) hijack::glBindBuffer(ARRAY_BUFFER, 0);
    const auto& attribs = a->handler->attribs;
    for (std::size_t i = 0; i < attribs.size(); ++i) {
        const ClientGLHandler::VertexAttribPointer& p = attribs[i];
        if (p.isClient)
            setPointer(static_cast<GLuint>(i), p.size, p.type, p.isInteger, p.normalized, p.stride,
                       p.pointer);
    }
    if (a->arrayBuffer) hijack::glBindBuffer(ARRAY_BUFFER, a->arrayBuffer);
}

struct UnmapArgs {
    GLenum target;
    std::int32_t offset;
    std::int32_t length;
    GLbitfield access;
    void* shadow;
};

// The real map happens here, in stream order, so the buffer is as the jobs
// before left it. The whole range goes back, whatever the game touched.
void unmapJob(void* args) {
    auto* a = static_cast<const UnmapArgs*>(args);
    void* mapped = hijack::glMapBufferRange(a->target, a->offset, a->length, a->access);
    if (!mapped) return;
    std::memcpy(mapped, a->shadow, static_cast<std::size_t>(a->length));
    // Under explicit flushing an unflushed range would be undefined after
    // the unmap; the game wrote it all as far as we can tell.
    if (a->access & MAP_FLUSH_EXPLICIT_BIT)
        hijack::glFlushMappedBufferRange(a->target, 0, a->length);
    hijack::glUnmapBuffer(a->target);
    core::FixedSizeRawMemoryPool::release(a->shadow);
}

}  // namespace

ClientGLHandler::ClientGLHandler(core::DeferredExecutor* executor)
    : executor(executor), capabilitiesOn(DITHER_BIT), capabilitiesKnown(ALL_CAPABILITIES) {
    // Whole, so that attrib() never allocates: a shadow that missed an
    // attribute would take a client array for a buffer's.
    attribs.reserve(MAX_SHADOWED_ATTRIBS);
    // Likewise for the binding points in use on any device, so that a bind
    // never fails after the shadow has missed it.
    bufferBindings.reserve(BOUND_TARGETS);
    texture2DBindings.reserve(BOUND_TEXTURE_UNITS);
}

// A write map that was never unmapped keeps its block: its pool goes with the
// executor.
ClientGLHandler::~ClientGLHandler() = default;

GLuint& ClientGLHandler::binding(GLenum target) {
    if (target == ELEMENT_ARRAY_BUFFER && boundVertexArray != 0)
        return vertexArrayElementBuffers[boundVertexArray];
    return bufferBindings[target];
}

// The binding first: out of memory the entry is missing, but the shadow
// still binds what the driver will.
void ClientGLHandler::bindVertexArray(GLuint array) {
    boundVertexArray = array;
    if (array != 0) vertexArrayElementBuffers[array];
}

void ClientGLHandler::deleteVertexArrays(GLsizei n, const GLuint* arrays) {
    if (n < 1 || !arrays) return;
    for (GLsizei i = 0; i < n; ++i) {
        if (!vertexArrayElementBuffers.erase(arrays[i])) continue;
        if (arrays[i] == boundVertexArray) boundVertexArray = 0;
    }
}

void ClientGLHandler::deleteBuffers(GLsizei n, const GLuint* buffers) {
    if (n < 1 || !buffers) return;
    auto forget = [&](auto, GLuint& bound) {
        for (GLsizei i = 0; i < n; ++i)
            if (bound == buffers[i]) bound = 0;
    };
    bufferBindings.forEach(forget);
    vertexArrayElementBuffers.forEach(forget);
    for (GLsizei i = 0; i < n; ++i) {
        bufferStores.erase(buffers[i]);
        immutableBuffers.erase(buffers[i]);
    }
    // Deleting a mapped buffer unmaps it: the block is ours to reuse, as no
    // job refers to it before the unmap.
    for (GLsizei i = 0; i < n; ++i) {
        if (MapBufferRange* map = mappedBuffers.find(buffers[i])) {
            core::FixedSizeRawMemoryPool::release(map->shadow);
            mappedBuffers.erase(buffers[i]);
        }
    }
}

void ClientGLHandler::deleteTextures(GLsizei n, const GLuint* textures) {
    if (n < 1 || !textures) return;
    texture2DBindings.forEach([&](auto, GLuint& bound) {
        for (GLsizei i = 0; i < n; ++i)
            if (bound == textures[i]) bound = 0;
    });
}

void ClientGLHandler::bindTexture(GLenum target, GLuint texture) {
    if (target == TEXTURE_2D) texture2DBindings[activeTexture] = texture;
}

void ClientGLHandler::setCapability(GLenum cap, bool on) {
    if (cap == PRIMITIVE_RESTART_FIXED_INDEX) primitiveRestart = on;
    std::uint32_t bit = capabilityBit(cap);
    capabilitiesKnown |= bit;
    capabilitiesOn = on ? capabilitiesOn | bit : capabilitiesOn & ~bit;
}

void ClientGLHandler::forgetCapability(GLenum cap) {
    capabilitiesKnown &= ~capabilityBit(cap);
}

bool ClientGLHandler::isEnabled(GLenum cap, bool& on) {
    std::uint32_t bit = capabilityBit(cap);
    if (bit == 0) return false;
    if (!(capabilitiesKnown & bit)) {
        bool learnt =
            core::syncCall<hijack::glIsEnabled>(executor->queue, gles::id::glIsEnabled, cap) != 0;
        capabilitiesKnown |= bit;
        capabilitiesOn = learnt ? capabilitiesOn | bit : capabilitiesOn & ~bit;
    }
    on = (capabilitiesOn & bit) != 0;
    return true;
}

// A negative size is refused and leaves the box as it was; a viewport beyond
// the implementation's limit is clamped, by a limit known once it was read.
void ClientGLHandler::viewport(GLint x, GLint y, GLsizei width, GLsizei height) {
    if (width < 0 || height < 0) return;
    const Constant* limit = constants.find(MAX_VIEWPORT_DIMS);
    if (!limit || !limit->valid || width > limit->values[0] || height > limit->values[1]) {
        viewportBox.known = false;
        return;
    }
    viewportBox = KnownRect{{x, y, width, height}, true};
}

void ClientGLHandler::scissor(GLint x, GLint y, GLsizei width, GLsizei height) {
    if (width < 0 || height < 0) return;
    scissorBox = KnownRect{{x, y, width, height}, true};
}

ClientGLHandler::VertexAttribPointer* ClientGLHandler::attrib(GLuint index) {
    if (boundVertexArray != 0 || index >= MAX_SHADOWED_ATTRIBS) return nullptr;
    if (index >= attribs.size()) attribs.resize(index + 1);
    return &attribs[index];
}

void ClientGLHandler::enableAttribArray(GLuint index, bool on) {
    VertexAttribPointer* a = attrib(index);
    if (!a) return;
    a->enabled = on;
    if (on)
        enabledMask |= attribBit(index);
    else
        enabledMask &= ~attribBit(index);
}

void ClientGLHandler::attribDivisor(GLuint index, GLuint divisor) {
    if (VertexAttribPointer* a = attrib(index)) a->divisor = divisor;
}

bool ClientGLHandler::attribPointer(GLuint index, GLint size, GLenum type, bool normalized,
                                    GLsizei stride, const void* pointer, bool isInteger) {
    VertexAttribPointer* a = attrib(index);
    if (!a) return false;
    a->size = size;
    a->type = type;
    a->normalized = normalized;
    a->stride = stride;
    a->pointer = pointer;
    a->isInteger = isInteger;
    a->isClient = binding(ARRAY_BUFFER) == 0;
    if (a->isClient) {
        clientMask |= attribBit(index);
        return true;
    }
    clientMask &= ~attribBit(index);
    return false;
}

ClientGLHandler::ClientDrawState* ClientGLHandler::copyClientArrays(GLint first, GLsizei count,
                                                                    GLsizei instanceCount) {
    core::FrameDataPool& pool = *executor->frameData;
    auto* state = static_cast<ClientDrawState*>(pool.allocate((sizeof(ClientDrawState) + 7) & ~7u));
    state->indexCount = 0;
    state->indexType = 0;
    state->indices = nullptr;

    Interval pending[MAX_CLIENT_ATTRIBS];
    std::uint32_t n = 0;
    std::uint64_t client = enabledMask & clientMask;
    while (client) {
        auto index = static_cast<GLuint>(__builtin_ctzll(client));
        client &= client - 1;
        const VertexAttribPointer& a = attribs[index];
        if (!a.pointer) continue;
        std::uintptr_t e = elementSize(a.type, a.size);
        std::uintptr_t t = a.stride ? static_cast<std::uintptr_t>(a.stride) : e;
        std::uintptr_t s = reinterpret_cast<std::uintptr_t>(a.pointer);
        std::uintptr_t m;
        if (a.divisor == 0) {
            m = static_cast<std::uintptr_t>(count);
            s += t * static_cast<std::uintptr_t>(first);
        } else {
            m = instanceCount >= 1
                    ? (static_cast<std::uintptr_t>(instanceCount) + a.divisor - 1) / a.divisor
                    : 1;
        }
        state->attribs[n] =
            ClientAttrib{index, a.size, a.type, a.isInteger, a.normalized, a.stride, nullptr};
        auto* members = static_cast<IntervalMember*>(
            pool.allocate(sizeof(IntervalMember) * MAX_CLIENT_ATTRIBS));
        members[0] = IntervalMember{static_cast<std::uint8_t>(n), 0};
        pending[n] = Interval{s, s + (m - 1) * t + e, nullptr, members, 1};
        n++;
    }
    state->attribCount = n;

    // Insertion sort: a handful of attributes, often already in order.
    for (std::uint32_t i = 1; i < n; ++i) {
        Interval moving = pending[i];
        std::uint32_t j = i;
        for (; j > 0 && pending[j - 1].start > moving.start; --j) pending[j] = pending[j - 1];
        pending[j] = moving;
    }

    // Interleaved attributes overlap and become one range with offsets.
    auto* merged =
        static_cast<Interval*>(pool.allocate((sizeof(Interval) * (n ? n : 1) + 7) & ~7u));
    std::uint32_t mergedCount = 0;
    for (std::uint32_t i = 0; i < n; ++i) {
        const Interval& next = pending[i];
        if (mergedCount > 0 && next.start <= merged[mergedCount - 1].end) {
            Interval& current = merged[mergedCount - 1];
            current.members[current.memberCount++] = IntervalMember{
                next.members[0].slot, static_cast<std::uint32_t>(next.start - current.start)};
            if (next.end > current.end) current.end = next.end;
        } else {
            merged[mergedCount++] = next;
        }
    }
    for (std::uint32_t i = 0; i < mergedCount; ++i) {
        Interval& range = merged[i];
        range.copy = const_cast<void*>(core::copyBytes(
            pool, reinterpret_cast<const void*>(range.start), range.end - range.start));
        for (std::uint32_t k = 0; k < range.memberCount; ++k)
            state->attribs[range.members[k].slot].pointer =
                static_cast<const unsigned char*>(range.copy) + range.members[k].offset;
    }
    state->intervalCount = mergedCount;
    state->intervals = merged;
    return state;
}

GLuint ClientGLHandler::largestIndex(GLsizei count, GLenum type, const void* indices) const {
    if (!indices || count < 1) return 0;
    if (type == UNSIGNED_INT)
        return maxIndex(static_cast<const GLuint*>(indices), count, primitiveRestart);
    if (type == UNSIGNED_BYTE)
        return maxIndex(static_cast<const GLubyte*>(indices), count, primitiveRestart);
    return maxIndex(static_cast<const GLushort*>(indices), count, primitiveRestart);
}

const void* ClientGLHandler::copyIndices(GLsizei count, GLenum type, const void* indices) {
    return core::copyArray(*executor->frameData, indices, count, indexSize(type));
}

void ClientGLHandler::recordClientDraw(const ClientDrawArgs& args) {
    executor->queue.record(&clientDrawJob, args);
}

void ClientGLHandler::recordLiveApply() {
    executor->queue.record(&liveApplyJob, LiveApplyArgs{this, binding(ARRAY_BUFFER)});
}

void ClientGLHandler::useProgram(GLuint program) {
    // An unlinked program, or a switch during transform feedback, fails and
    // leaves the binding as it was.
    bool linked = linkedPrograms.contains(program) &&
                  !executor->objectsShared.load(std::memory_order_relaxed);
    if (!transformFeedbackActive && (program == 0 || linked))
        currentProgram.set(static_cast<GLint>(program));
    else
        currentProgram.forget();
}

// Runs after the link's job: it must not throw, or the call would run again.
// Out of memory the program stays unknown, and glUseProgram of it asks the driver.
void ClientGLHandler::programLinked(GLuint program, bool linked) {
    if (linked) {
        try {
            linkedPrograms[program] = true;
            return;
        } catch (const std::bad_alloc&) {
        }
    }
    linkedPrograms.erase(program);
}

void ClientGLHandler::bindFramebuffer(GLenum target, GLuint framebuffer) {
    auto value = static_cast<GLint>(framebuffer);
    if (target == FRAMEBUFFER) {
        drawFramebuffer.set(value);
        readFramebuffer.set(value);
    } else if (target == DRAW_FRAMEBUFFER || target == READ_FRAMEBUFFER) {
        // These targets are refused where the context lacks them.
        (target == DRAW_FRAMEBUFFER ? drawFramebuffer : readFramebuffer).forget();
    }
}

void ClientGLHandler::bindRenderbuffer(GLenum target, GLuint name) {
    if (target == RENDERBUFFER) renderbuffer.set(static_cast<GLint>(name));
}

// Deleting a bound object binds 0 in its place.
void ClientGLHandler::deleteFramebuffers(GLsizei n, const GLuint* framebuffers) {
    if (n < 1 || !framebuffers) return;
    for (GLsizei i = 0; i < n; ++i) {
        auto name = static_cast<GLint>(framebuffers[i]);
        if (name == 0) continue;
        if (drawFramebuffer.known && drawFramebuffer.value == name) drawFramebuffer.set(0);
        if (readFramebuffer.known && readFramebuffer.value == name) readFramebuffer.set(0);
    }
}

void ClientGLHandler::deleteRenderbuffers(GLsizei n, const GLuint* renderbuffers) {
    if (n < 1 || !renderbuffers) return;
    for (GLsizei i = 0; i < n; ++i)
        if (renderbuffers[i] != 0 && renderbuffer.known &&
            renderbuffer.value == static_cast<GLint>(renderbuffers[i]))
            renderbuffer.set(0);
}

void ClientGLHandler::bufferData(GLenum target, GLsizeiptr size, GLenum usage) {
    GLuint buffer = binding(target);
    if (buffer == 0) return;
    // Storage made elsewhere (another context of the share group) is unseen;
    // a refused call leaves the store as it was.
    if (executor->objectsShared.load(std::memory_order_relaxed) ||
        immutableBuffers.contains(buffer) || size < 0 || size > std::numeric_limits<GLint>::max() ||
        !isCommonUsage(usage) || mappedBuffers.contains(buffer)) {
        bufferStores.erase(buffer);
        return;
    }
    bufferStores[buffer] = BufferStore{static_cast<GLint>(size), usage};
}

void ClientGLHandler::bufferStorage(GLenum target) {
    GLuint buffer = binding(target);
    if (buffer == 0) return;
    bufferStores.erase(buffer);
    immutableBuffers[buffer] = true;
}

void ClientGLHandler::forgetState(GLenum pname) {
    switch (pname) {
        case VIEWPORT:
            viewportBox.known = false;
            break;
        case SCISSOR_BOX:
            scissorBox.known = false;
            break;
        case DRAW_FRAMEBUFFER_BINDING:
            drawFramebuffer.forget();
            readFramebuffer.forget();
            break;
        case RENDERBUFFER_BINDING:
            renderbuffer.forget();
            break;
        case BUFFER_SIZE:
            storesUnknown = true;
            break;
        default:
            break;
    }
}

GLint ClientGLHandler::readInteger(GLenum pname, GLint* into) {
    core::syncCall<hijack::glGetIntegerv>(executor->queue, gles::id::glGetIntegerv, pname, into);
    return *into;
}

bool ClientGLHandler::readChecked(GLenum pname, GLint* values, int count) {
    // A value no pname of the table can have: still there afterwards, the
    // driver refused the pname and the game's memory stays untouched.
    constexpr GLint UNWRITTEN = -0x5EADBEEF;
    GLint read[4] = {UNWRITTEN, UNWRITTEN, UNWRITTEN, UNWRITTEN};
    core::syncCall<hijack::glGetIntegerv>(executor->queue, gles::id::glGetIntegerv, pname, read);
    if (read[0] == UNWRITTEN) return false;
    std::memcpy(values, read, static_cast<std::size_t>(count) * sizeof(GLint));
    return true;
}

bool ClientGLHandler::answerKnown(KnownInt& shadow, GLenum pname, GLint* data) {
    if (!shadow.known) {
        GLint value;
        if (!readChecked(pname, &value, 1)) return true;
        shadow.set(value);
    }
    *data = shadow.value;
    return true;
}

bool ClientGLHandler::answerRect(KnownRect& shadow, GLenum pname, GLint* data) {
    if (!shadow.known) {
        if (!readChecked(pname, shadow.values, 4)) return true;
        shadow.known = true;
    }
    std::memcpy(data, shadow.values, sizeof(shadow.values));
    return true;
}

bool ClientGLHandler::answerConstant(GLenum pname, GLint* data) {
    int count = constantCount(pname);
    if (count == 0) return false;
    Constant& constant = constants[pname];
    if (!constant.valid) {
        if (!readChecked(pname, constant.values, count)) return true;
        constant.valid = true;
    }
    std::memcpy(data, constant.values, static_cast<std::size_t>(count) * sizeof(GLint));
    return true;
}

bool ClientGLHandler::getIntegerv(GLenum pname, GLint* data) {
    switch (pname) {
        case CURRENT_PROGRAM:
            return answerKnown(currentProgram, pname, data);
        case DRAW_FRAMEBUFFER_BINDING:
            return answerKnown(drawFramebuffer, pname, data);
        case RENDERBUFFER_BINDING:
            return answerKnown(renderbuffer, pname, data);
        case VIEWPORT:
            return answerRect(viewportBox, pname, data);
        case SCISSOR_BOX:
            return answerRect(scissorBox, pname, data);
        case ARRAY_BUFFER_BINDING:
            *data = static_cast<GLint>(bufferBindings[ARRAY_BUFFER]);
            return true;
        case ELEMENT_ARRAY_BUFFER_BINDING:
            // A vertex array's own binding may have been refused or deleted
            // where the shadow cannot see it.
            if (boundVertexArray != 0) return false;
            *data = static_cast<GLint>(bufferBindings[ELEMENT_ARRAY_BUFFER]);
            return true;
        case READ_BUFFER:
            *data = static_cast<GLint>(readBuffer);
            return true;
        case TEXTURE_BINDING_2D:
            *data = static_cast<GLint>(texture2DBindings[activeTexture]);
            return true;
        case ACTIVE_TEXTURE:
            *data = static_cast<GLint>(activeTexture);
            return true;
        case VERTEX_ARRAY_BINDING:
            *data = static_cast<GLint>(boundVertexArray);
            return true;
        case COPY_READ_BUFFER_BINDING:
            // glBindBuffer files GL_COPY_READ_BUFFER under this same number.
            *data = static_cast<GLint>(bufferBindings[pname]);
            return true;
        case SAMPLE_BUFFERS: {
            EGLContext current =
                executor->renderContext ? executor->renderContext->context : nullptr;
            if (sampleBuffersContext != current || current == EGL_NO_CONTEXT) {
                readInteger(pname, &sampleBuffers);
                sampleBuffersContext = current;
            }
            *data = sampleBuffers;
            return true;
        }
        case NUM_PROGRAM_BINARY_FORMATS:
            if (numProgramBinaryFormats == -1) readInteger(pname, &numProgramBinaryFormats);
            *data = numProgramBinaryFormats;
            return true;
        case PROGRAM_BINARY_FORMATS:
            if (numProgramBinaryFormats < 1) return false;
            if (programBinaryFormats.empty()) {
                programBinaryFormats.resize(static_cast<std::size_t>(numProgramBinaryFormats));
                readInteger(pname, programBinaryFormats.data());
            }
            std::memcpy(data, programBinaryFormats.data(),
                        programBinaryFormats.size() * sizeof(GLint));
            return true;
        case MAX_DRAW_BUFFERS:
            if (maxDrawBuffers == 0) readInteger(pname, &maxDrawBuffers);
            *data = maxDrawBuffers;
            return true;
        case IMPLEMENTATION_COLOR_READ_TYPE:
        case IMPLEMENTATION_COLOR_READ_FORMAT: {
            CachedInt& cached = pname == IMPLEMENTATION_COLOR_READ_TYPE
                                    ? implementationColorReadType
                                    : implementationColorReadFormat;
            if (!cached.valid) {
                readInteger(pname, &cached.value);
                cached.valid = true;
            }
            *data = cached.value;
            return true;
        }
        default:
            // The GL_UNPACK_* values as the game last set them, the
            // implementation's constants, the capabilities; anything else is
            // the driver's.
            if (executor->unpackParameter(pname, data) || answerConstant(pname, data)) return true;
            bool on;
            if (!isEnabled(pname, on)) return false;
            *data = on;
            return true;
    }
}

bool ClientGLHandler::vertexAttrib(GLuint index, GLenum pname, GLint& value) const {
    if (boundVertexArray != 0 || index >= attribs.size()) return false;
    const VertexAttribPointer& a = attribs[index];
    switch (pname) {
        case VERTEX_ATTRIB_ARRAY_ENABLED:
            value = a.enabled;
            return true;
        case VERTEX_ATTRIB_ARRAY_SIZE:
            value = a.size;
            return true;
        case VERTEX_ATTRIB_ARRAY_STRIDE:
            value = a.stride;
            return true;
        case VERTEX_ATTRIB_ARRAY_TYPE:
            value = static_cast<GLint>(a.type);
            return true;
        case VERTEX_ATTRIB_ARRAY_NORMALIZED:
            value = a.normalized;
            return true;
        case VERTEX_ATTRIB_ARRAY_INTEGER:
            value = a.isInteger;
            return true;
        case VERTEX_ATTRIB_ARRAY_DIVISOR:
            value = static_cast<GLint>(a.divisor);
            return true;
        case VERTEX_ATTRIB_ARRAY_BUFFER_BINDING:
            // Which buffer a non-client attribute reads is the driver's to say.
            if (!a.isClient) return false;
            value = 0;
            return true;
        default:
            return false;
    }
}

bool ClientGLHandler::vertexAttribPointer(GLuint index, GLenum pname, void** pointer) const {
    if (boundVertexArray != 0 || pname != VERTEX_ATTRIB_ARRAY_POINTER || index >= attribs.size())
        return false;
    *pointer = const_cast<void*>(attribs[index].pointer);
    return true;
}

bool ClientGLHandler::bufferParameter(GLenum target, GLenum pname, GLint64& value) {
    GLuint buffer = binding(target);
    if (pname == BUFFER_SIZE || pname == BUFFER_USAGE) {
        const BufferStore* store = buffer && !storesUnknown ? bufferStores.find(buffer) : nullptr;
        if (!store) return false;
        value = pname == BUFFER_SIZE ? store->size : static_cast<GLint64>(store->usage);
        return true;
    }
    const MapBufferRange* map = mappedBuffers.find(buffer);
    if (!map) return false;
    switch (pname) {
        case BUFFER_MAPPED:
            value = 1;
            return true;
        case BUFFER_ACCESS_FLAGS:
            value = map->access;
            return true;
        case BUFFER_MAP_LENGTH:
            value = map->length;
            return true;
        case BUFFER_MAP_OFFSET:
            value = map->offset;
            return true;
        case BUFFER_ACCESS_OES:
            // Only glMapBufferOES makes a write map of the whole store.
            if (map->access != MAP_WRITE_BIT || map->offset != 0) return false;
            value = WRITE_ONLY_OES;
            return true;
        default:
            return false;
    }
}

bool ClientGLHandler::bufferPointer(GLenum target, GLenum pname, void** params) {
    if (pname != BUFFER_MAP_POINTER) return false;
    const MapBufferRange* map = mappedBuffers.find(binding(target));
    if (!map) return false;
    *params = map->shadow;
    return true;
}

void* ClientGLHandler::mapForWrite(GLenum target, GLintptr offset, GLsizeiptr length,
                                   GLbitfield access) {
    GLuint buffer = binding(target);
    // A persistent map stays in use by draws while mapped; only the driver's
    // own memory can serve it.
    if (buffer == 0 || (access & (MAP_READ_BIT | MAP_PERSISTENT_BIT))) return nullptr;
    // Out-of-range arguments are the driver's to refuse.
    constexpr auto LIMIT = std::numeric_limits<std::int32_t>::max();
    if (length < 1 || length > LIMIT || offset < 0 || offset > LIMIT) return nullptr;
    void* shadow = executor->rawMemoryPools.allocate(static_cast<std::uint32_t>(length));
    if (!shadow) return nullptr;
    MapBufferRange& map = mappedBuffers[buffer];
    if (map.shadow) core::FixedSizeRawMemoryPool::release(map.shadow);
    map = MapBufferRange{target, static_cast<std::int32_t>(offset),
                         static_cast<std::int32_t>(length), access, shadow};
    return shadow;
}

void* ClientGLHandler::mapWholeForWrite(GLenum target, GLenum access) {
    GLuint buffer = binding(target);
    if (buffer == 0 || access != WRITE_ONLY_OES || mappedBuffers.contains(buffer)) return nullptr;
    const BufferStore* store = storesUnknown ? nullptr : bufferStores.find(buffer);
    if (!store || store->size < 1) return nullptr;
    return mapForWrite(target, 0, store->size, MAP_WRITE_BIT);
}

bool ClientGLHandler::unmapWritten(GLenum target) {
    GLuint buffer = binding(target);
    if (buffer == 0) return false;
    const MapBufferRange* map = mappedBuffers.find(buffer);
    if (!map) return false;
    // The unmap's target: the buffer is bound there when the job runs.
    executor->queue.record(&unmapJob,
                           UnmapArgs{target, map->offset, map->length, map->access, map->shadow});
    mappedBuffers.erase(buffer);
    return true;
}

void* ClientGLHandler::mapReadBack(GLenum target, GLintptr offset, GLsizeiptr length,
                                   GLbitfield access) {
    GLuint buffer = binding(target);
    if (buffer == 0 || !(access & MAP_READ_BIT) || target != PIXEL_PACK_BUFFER) return nullptr;
    core::DeferredExecutor::ReadbackCache& cache = executor->readbackCache;
    std::lock_guard<std::mutex> lock(cache.mutex);
    if (!cache.valid || cache.buffer != buffer) return nullptr;
    // A range beyond the copy is the real buffer's to give.
    if (offset < 0 || length < 0 ||
        static_cast<std::uint64_t>(offset) + static_cast<std::uint64_t>(length) > cache.size)
        return nullptr;
    if (!core::DeferredExecutor::ReadbackCache::fencePassed(cache.fence)) return nullptr;
    return static_cast<char*>(cache.data) + offset;
}

bool ClientGLHandler::unmapReadBack(GLenum target) {
    GLuint buffer = binding(target);
    if (buffer == 0 || target != PIXEL_PACK_BUFFER) return false;
    core::DeferredExecutor::ReadbackCache& cache = executor->readbackCache;
    std::lock_guard<std::mutex> lock(cache.mutex);
    if (!cache.valid || cache.buffer != buffer) return false;
    cache.buffer = 0;
    cache.valid = false;
    return true;
}

bool ClientGLHandler::isMappedForWrite(GLenum target) {
    return mappedBuffers.contains(binding(target));
}

void ClientGLHandler::drawBuffers(GLsizei n, const GLenum* bufs) {
    // The copy comes first: once the probe below has run, nothing may throw.
    auto* copy =
        static_cast<const GLenum*>(core::copyArray(*executor->frameData, bufs, n, sizeof(GLenum)));
    if (maxDrawBuffers == 0) {
        // The limit is learnt with the first call itself, which the driver so
        // sees twice, to the same effect.
        core::recordCall<hijack::glGetIntegerv>(executor->queue, MAX_DRAW_BUFFERS, &maxDrawBuffers);
        core::recordCall<hijack::glDrawBuffers>(executor->queue, n, bufs);
        executor->queue.flushAndWait(gles::id::glDrawBuffers);
    }
    // Refused arguments still reach the driver, which reports them.
    core::recordCall<hijack::glDrawBuffers>(executor->queue, n, copy);
}

}  // namespace velour
