#pragma once

#include <cstdint>
#include <cstring>

#include "core/deferred_executor/FrameDataPool.h"

// Copies of what the game passes by pointer, taken at recording so that a job
// never points at memory the game may change or free after the call. A null
// pointer stays null. A copy that has nothing to copy from a non-null pointer
// gives a pointer to static zeros, so that the driver still sees a pointer.
namespace velour::core {

alignas(8) inline const unsigned char nullT[16] = {};

constexpr std::uint32_t TEXTURE_BORDER_COLOR = 4100;
constexpr std::uint32_t COLOR = 6144;
constexpr std::uint32_t DEPTH = 6145;
constexpr std::uint32_t STENCIL = 6146;
constexpr std::size_t STRING_LIMIT = 0x7fffffff;

template <typename T>
T asPointer(const void* p) {
    return static_cast<T>(const_cast<void*>(p));
}

inline const void* copyBytes(FrameDataPool& pool, const void* data, std::size_t bytes) {
    void* copy = pool.allocate(static_cast<std::uint32_t>((bytes + 7) & ~std::size_t(7)));
    std::memcpy(copy, data, bytes);
    return copy;
}

// count elements of elementSize bytes.
inline const void* copyArray(FrameDataPool& pool, const void* data, long long count,
                             std::size_t elementSize) {
    if (!data) return nullptr;
    if (count < 1) return nullT;
    return copyBytes(pool, data, static_cast<std::size_t>(count) * elementSize);
}

inline const void* copyFixed(FrameDataPool& pool, const void* data, std::size_t bytes) {
    return data ? copyBytes(pool, data, bytes) : nullptr;
}

// A size argument below 1 records no copy and a null pointer.
inline const void* copySized(FrameDataPool& pool, const void* data, long long bytes) {
    if (!data || bytes < 1) return nullptr;
    return copyBytes(pool, data, static_cast<std::size_t>(bytes));
}

// Up to limit bytes (a limit below 1 means none) or the first zero, with a
// terminator added; a null or empty string records null.
inline const char* copyString(FrameDataPool& pool, const char* text, long long limit) {
    if (!text || !*text) return nullptr;
    std::size_t max = limit < 1 ? STRING_LIMIT : static_cast<std::size_t>(limit);
    std::size_t length = 0;
    while (length < max && text[length]) length++;
    auto* copy = static_cast<char*>(
        pool.allocate(static_cast<std::uint32_t>((length + 8) & ~std::size_t(7))));
    std::memcpy(copy, text, length);
    copy[length] = 0;
    return copy;
}

inline const void* copyTexParameter(FrameDataPool& pool, const void* data, std::uint32_t pname) {
    if (!data) return nullptr;
    if (pname == 0) return nullT;
    return copyBytes(pool, data, pname == TEXTURE_BORDER_COLOR ? 16 : 4);
}

// By the buffer of glClearBuffer*: any other value (a texture target among
// them) records the static zeros, and the driver reads no caller data.
inline const void* copyClearValue(FrameDataPool& pool, const void* data, std::uint32_t buffer) {
    if (!data) return nullptr;
    if (buffer == COLOR) return copyBytes(pool, data, 16);
    if (buffer == DEPTH || buffer == STENCIL) return copyBytes(pool, data, 4);
    return nullT;
}

}  // namespace velour::core
