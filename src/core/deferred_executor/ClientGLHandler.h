#pragma once

#include <cstdint>
#include <new>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "core/deferred_executor/DeferredExecutor.h"
#include "core/deferred_executor/MemTracker.h"
#include "velour/entry_points.h"
#include "velour/gl_types.h"

namespace velour::core {

// The arguments of one driver call, packed in declaration order for a job.
// Trivially copyable, so that a job stores them bitwise.
template <typename... A>
struct CallArgs;

template <>
struct CallArgs<> {
    template <typename F, typename... Done>
    decltype(auto) apply(F& f, Done... done) const {
        return f(done...);
    }
};

template <typename H, typename... T>
struct CallArgs<H, T...> {
    H head;
    CallArgs<T...> tail;

    CallArgs() = default;
    template <typename A0, typename... As>
    explicit CallArgs(A0 a0, As... as) : head(static_cast<H>(a0)), tail(as...) {}

    template <typename F, typename... Done>
    decltype(auto) apply(F& f, Done... done) const {
        return tail.apply(f, done..., head);
    }
};

template <typename Fn>
struct DriverCallTraits;

template <typename R, typename... P>
struct DriverCallTraits<R (*)(P...)> {
    using Result = R;
    using Args = CallArgs<std::decay_t<P>...>;
    struct ResultArgs {
        R* result;
        Args args;
    };
};

template <auto& Slot>
using DriverCall = DriverCallTraits<std::decay_t<decltype(Slot)>>;

// Job bodies of a hijack:: slot. The slot is read when the job runs, like the
// generated bodies do.
template <auto& Slot>
void driverCallJob(void* args) {
    static_cast<const typename DriverCall<Slot>::Args*>(args)->apply(Slot);
}

template <auto& Slot>
void driverResultJob(void* args) {
    auto* a = static_cast<const typename DriverCall<Slot>::ResultArgs*>(args);
    *a->result = a->args.apply(Slot);
}

// Records the call as the record path of a wrapper would.
template <auto& Slot, typename... A>
inline void recordCall(JobQueue& queue, A... a) {
    queue.record(&driverCallJob<Slot>, typename DriverCall<Slot>::Args(a...));
}

// Records the call, waits for it, and returns the driver's answer; the drain
// is counted under cause.
template <auto& Slot, typename... A>
inline auto syncCall(JobQueue& queue, std::uint32_t cause, A... a) {
    using Call = DriverCall<Slot>;
    if constexpr (std::is_void_v<typename Call::Result>) {
        recordCall<Slot>(queue, a...);
        queue.flushAndWait(cause);
    } else {
        typename Call::Result result{};
        queue.record(&driverResultJob<Slot>,
                     typename Call::ResultArgs{&result, typename Call::Args(a...)});
        queue.flushAndWait(cause);
        return result;
    }
}

// A hash map whose erased nodes are kept and reused, so that a key that comes
// and goes every frame costs no heap traffic once the map has seen its peak.
template <typename K, typename V>
class RecyclingMap {
    using Tracker = MemTracker<MemCategory::Executor>;
    using Map = std::unordered_map<K, V, std::hash<K>, std::equal_to<K>,
                                   Tracker::allocator<std::pair<const K, V>>>;
    using Node = typename Map::node_type;

  public:
    RecyclingMap() {
        map.max_load_factor(1.0f);
        spare.reserve(8);
    }

    // Inserts a value-initialised entry if the key is missing.
    V& operator[](const K& key) {
        auto it = map.find(key);
        if (it != map.end()) return it->second;
        if (spare.empty()) return map.emplace(key, V{}).first->second;
        Node node = std::move(spare.back());
        spare.pop_back();
        node.key() = key;
        node.mapped() = V{};
        return map.insert(std::move(node)).position->second;
    }

    // Room for count keys: until more than that are held, an insert takes no
    // memory.
    void reserve(std::size_t count) {
        map.reserve(count);
        spare.reserve(count);
        Map maker;
        while (spare.size() < count) {
            maker.emplace(K{}, V{});
            spare.push_back(maker.extract(maker.begin()));
        }
    }

    V* find(const K& key) {
        auto it = map.find(key);
        return it == map.end() ? nullptr : &it->second;
    }
    bool contains(const K& key) const { return map.find(key) != map.end(); }

    // Never throws: a node that finds no room among the spares is freed.
    bool erase(const K& key) {
        Node node = map.extract(key);
        if (node.empty()) return false;
        try {
            spare.push_back(std::move(node));
        } catch (const std::bad_alloc&) {
        }
        return true;
    }

    template <typename F>
    void forEach(F&& f) {
        for (auto& entry : map) f(entry.first, entry.second);
    }
    std::size_t size() const { return map.size(); }

  private:
    Map map;
    std::vector<Node, Tracker::allocator<Node>> spare;
};

}  // namespace velour::core

namespace velour {

// Shadows on the game's thread the GL state that a deferred stream cannot ask
// the driver for: buffer bindings, vertex arrays in client memory, write
// mappings, and the integers games read most. Everything here runs on the
// game's thread, except the live-apply job, which reads attribs while the
// game's thread waits for it.
class ClientGLHandler {
    using Tracker = core::MemTracker<core::MemCategory::Executor>;

  public:
    static constexpr int MAX_CLIENT_ATTRIBS = 64;
    // Indices beyond this are passed to the driver unshadowed: a game's -1
    // from glGetAttribLocation must not grow the vector to 4 GiB.
    static constexpr GLuint MAX_SHADOWED_ATTRIBS = 256;
    // Buffer targets of GLES 3.2 and its extensions, and texture units a
    // game binds 2D textures to, held without allocating.
    static constexpr std::size_t BOUND_TARGETS = 16;
    static constexpr std::size_t BOUND_TEXTURE_UNITS = 32;

    struct VertexAttribPointer {
        bool enabled = false;
        bool isClient = false;
        bool isInteger = false;
        GLint size = 4;
        GLenum type = 0x1406;  // GL_FLOAT
        bool normalized = false;
        GLsizei stride = 0;
        GLuint divisor = 0;
        const void* pointer = nullptr;
    };

    struct MapBufferRange {
        GLenum target;
        std::int32_t offset;
        std::int32_t length;
        GLbitfield access;
        void* shadow;
    };

    struct IntervalMember {
        std::uint8_t slot;  // entry of ClientDrawState::attribs
        std::uint32_t offset;
    };

    struct Interval {
        std::uintptr_t start;
        std::uintptr_t end;
        void* copy;
        IntervalMember* members;  // MAX_CLIENT_ATTRIBS entries
        std::uint32_t memberCount;
    };

    struct ClientAttrib {
        GLuint index;
        GLint size;
        GLenum type;
        bool isInteger;
        bool normalized;
        GLsizei stride;
        const void* pointer;  // into the interval's copy
    };

    // One client draw's arrays, in frame data; read-only once handed over.
    struct ClientDrawState {
        std::uint32_t attribCount;
        ClientAttrib attribs[MAX_CLIENT_ATTRIBS];
        std::uint32_t intervalCount;
        Interval* intervals;
        GLsizei indexCount;
        GLenum indexType;
        const void* indices;  // a copy
    };
    static_assert(sizeof(void*) != 4 || sizeof(ClientDrawState) == 1560,
                  "the draw state keeps its 32-bit layout");

    // The arguments of a client draw job. draw makes the driver's draw call
    // once the copied arrays are applied.
    struct ClientDrawArgs {
        void (*draw)(const ClientDrawArgs&);
        const ClientDrawState* state;
        GLuint arrayBuffer;
        GLenum mode;
        GLsizei count;
        GLsizei instanceCount;
        GLuint start;
        GLuint end;
    };

    struct CachedInt {
        GLint value = 0;
        bool valid = false;
    };

    // A value that the game's own recorded calls decide. Known: certain to be
    // what the driver would answer at this point of the stream. Unknown: the
    // next query drains and learns it.
    struct KnownInt {
        GLint value = 0;
        bool known = true;
        void set(GLint v) { *this = KnownInt{v, true}; }
        void forget() { known = false; }
    };

    // Size and usage of a buffer's data store, from the game's glBufferData.
    struct BufferStore {
        GLint size;
        GLenum usage;
    };

    // A rectangle of state (viewport, scissor box): unknown at first, since
    // the first binding to a surface sets it.
    struct KnownRect {
        GLint values[4] = {};
        bool known = false;
    };

    // An implementation constant, read from the driver once per context.
    struct Constant {
        GLint values[2];
        bool valid;
    };

    explicit ClientGLHandler(core::DeferredExecutor* executor);
    virtual ~ClientGLHandler();

    // Shadow steps; the caller records the call's job afterwards.
    GLuint& binding(GLenum target);
    void bindBuffer(GLenum target, GLuint buffer) { binding(target) = buffer; }
    void bindVertexArray(GLuint array);
    void deleteVertexArrays(GLsizei n, const GLuint* arrays);
    void deleteBuffers(GLsizei n, const GLuint* buffers);
    void deleteTextures(GLsizei n, const GLuint* textures);
    void bindTexture(GLenum target, GLuint texture);
    void setCapability(GLenum cap, bool on);
    // An indexed enable: the plain query then answers for index 0 only.
    void forgetCapability(GLenum cap);
    // Whether cap is enabled, from the shadow or by a drain it learns from;
    // false: not a capability the shadow follows.
    bool isEnabled(GLenum cap, bool& on);
    void viewport(GLint x, GLint y, GLsizei width, GLsizei height);
    void scissor(GLint x, GLint y, GLsizei width, GLsizei height);
    void enableAttribArray(GLuint index, bool on);
    void attribDivisor(GLuint index, GLuint divisor);
    // True when the pointer stays in the shadow for the next client draw, and
    // the call is not recorded.
    bool attribPointer(GLuint index, GLint size, GLenum type, bool normalized, GLsizei stride,
                       const void* pointer, bool isInteger);

    // A draw reads client memory when no vertex array is bound and an enabled
    // attribute points into it.
    bool isClientDraw() const { return boundVertexArray == 0 && (enabledMask & clientMask) != 0; }
    // Copies the ranges of client memory that a draw of count elements from
    // first reads, instanceCount instances, into frame data.
    ClientDrawState* copyClientArrays(GLint first, GLsizei count, GLsizei instanceCount);
    GLuint largestIndex(GLsizei count, GLenum type, const void* indices) const;
    const void* copyIndices(GLsizei count, GLenum type, const void* indices);
    void recordClientDraw(const ClientDrawArgs& args);
    // Applies the game's own client pointers on the worker; the caller waits
    // for the draw behind it, which keeps that memory valid.
    void recordLiveApply();

    // Shadow steps of the bindings and objects whose state the shadow answers.
    void useProgram(GLuint program);
    void programLinked(GLuint program, bool linked);
    // A program whose link state changes where the shadow cannot see it.
    void forgetProgram(GLuint program) { linkedPrograms.erase(program); }
    void bindFramebuffer(GLenum target, GLuint framebuffer);
    void bindRenderbuffer(GLenum target, GLuint renderbuffer);
    void deleteFramebuffers(GLsizei n, const GLuint* framebuffers);
    void deleteRenderbuffers(GLsizei n, const GLuint* renderbuffers);
    void transformFeedback(bool active) { transformFeedbackActive = active; }
    void bufferData(GLenum target, GLsizeiptr size, GLenum usage);
    void bufferStorage(GLenum target);
    // The state read by pname is changed by a call the shadow does not follow;
    // GL_BUFFER_SIZE: any buffer's store.
    void forgetState(GLenum pname);

    // Answers from the shadow, or after a drain that the shadow learns from;
    // false: ask the driver with the game's own pointer.
    bool getIntegerv(GLenum pname, GLint* data);
    bool vertexAttrib(GLuint index, GLenum pname, GLint& value) const;
    bool vertexAttribPointer(GLuint index, GLenum pname, void** pointer) const;
    bool bufferParameter(GLenum target, GLenum pname, GLint64& value);
    bool bufferPointer(GLenum target, GLenum pname, void** params);

    // A write map returns a block of ours at once; null: map by the driver.
    void* mapForWrite(GLenum target, GLintptr offset, GLsizeiptr length, GLbitfield access);
    // glMapBufferOES, write-only by definition: a write map of the whole
    // store when its size is known; null: map by the driver.
    void* mapWholeForWrite(GLenum target, GLenum access);
    // Records the write-back of a write map; false: not one of ours.
    bool unmapWritten(GLenum target);
    bool isMappedForWrite(GLenum target);
    // A read map of the pack buffer that the last asynchronous glReadPixels
    // copied: the copy, once its fence has passed; null: map by the driver.
    void* mapReadBack(GLenum target, GLintptr offset, GLsizeiptr length, GLbitfield access);
    // Ends a map that mapReadBack served; false: not one of those.
    bool unmapReadBack(GLenum target);
    void drawBuffers(GLsizei n, const GLenum* bufs);

    core::DeferredExecutor* executor;
    core::RecyclingMap<GLuint, MapBufferRange> mappedBuffers;
    core::RecyclingMap<GLenum, GLuint> bufferBindings;
    core::RecyclingMap<GLuint, GLuint> vertexArrayElementBuffers;
    CachedInt implementationColorReadType;
    CachedInt implementationColorReadFormat;
    GLenum readBuffer = 1029;  // GL_BACK
    GLuint boundVertexArray = 0;
    GLenum activeTexture = 33984;  // GL_TEXTURE0
    core::RecyclingMap<GLenum, GLuint> texture2DBindings;
    GLint maxDrawBuffers = 0;
    EGLContext sampleBuffersContext = EGL_NO_CONTEXT;
    GLint sampleBuffers = 0;
    GLint numProgramBinaryFormats = -1;
    std::vector<GLint, Tracker::allocator<GLint>> programBinaryFormats;
    std::vector<VertexAttribPointer, Tracker::allocator<VertexAttribPointer>> attribs;
    std::uint64_t enabledMask = 0;
    std::uint64_t clientMask = 0;
    bool primitiveRestart = false;

    KnownInt currentProgram;
    KnownInt drawFramebuffer;
    KnownInt readFramebuffer;
    KnownInt renderbuffer;
    // Programs whose last link succeeded here: glUseProgram of one cannot fail.
    core::RecyclingMap<GLuint, bool> linkedPrograms;
    core::RecyclingMap<GLuint, BufferStore> bufferStores;
    // Buffers given immutable storage: glBufferData on them fails.
    core::RecyclingMap<GLuint, bool> immutableBuffers;
    core::RecyclingMap<GLenum, Constant> constants;
    bool transformFeedbackActive = false;
    // The capabilities of every version, one bit each: on, and known.
    std::uint32_t capabilitiesOn;
    std::uint32_t capabilitiesKnown;
    // A store was made where the shadow cannot tell for which buffer.
    bool storesUnknown = false;
    KnownRect viewportBox;
    KnownRect scissorBox;

  private:
    // A driver read of pname into the shadow's own memory: false when the
    // driver refused the pname and wrote nothing.
    bool readChecked(GLenum pname, GLint* values, int count);
    bool answerRect(KnownRect& shadow, GLenum pname, GLint* data);
    bool answerKnown(KnownInt& shadow, GLenum pname, GLint* data);
    bool answerConstant(GLenum pname, GLint* data);
    VertexAttribPointer* attrib(GLuint index);
    GLint readInteger(GLenum pname, GLint* into);
};

}  // namespace velour
