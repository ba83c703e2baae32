#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <utility>

namespace velour::core {

enum class MemCategory : int {
    JobQueue = 0,
    FrameData = 1,
    RawMemoryPool = 2,
    Executor = 3,
};

// Totals over all categories.
struct MemTrackerAll {
    static std::atomic<std::uint64_t> total_memory_usage;
    static std::atomic<std::uint64_t> peak_memory_usage;
    static std::atomic<std::uint32_t> total_allocations;

    static void add(std::uint64_t bytes);
    static void remove(std::uint64_t bytes) { total_memory_usage -= bytes; }
};

// A counting allocator. Each block carries two header words below the user
// pointer: its tracked size and its distance from the raw pointer.
template <MemCategory C>
struct MemTracker {
    static std::atomic<std::uint64_t> memory_usage;
    static std::atomic<std::uint32_t> allocations;
    // Bytes the category may hold; lowered by tests and by the test-only
    // setting that stands in for a device out of memory.
    static std::atomic<std::uint64_t> limit;

    // Null when the memory cannot be had, with the counters untouched.
    static void* allocate(std::size_t n) {
        std::size_t tracked = n + 15;
        if (tracked < n || memory_usage.load(std::memory_order_relaxed) + tracked >
                               limit.load(std::memory_order_relaxed))
            return nullptr;
        auto* raw = static_cast<unsigned char*>(std::malloc(tracked));
        if (!raw) return nullptr;
        auto user = (reinterpret_cast<std::uintptr_t>(raw) + 15) & ~std::uintptr_t(7);
        auto* words = reinterpret_cast<std::uint32_t*>(user);
        words[-2] = static_cast<std::uint32_t>(tracked);
        words[-1] = static_cast<std::uint32_t>(user - reinterpret_cast<std::uintptr_t>(raw));
        memory_usage += tracked;
        allocations++;
        MemTrackerAll::add(tracked);
        return reinterpret_cast<void*>(user);
    }

    static void deallocate(void* p) {
        if (!p) return;
        auto* words = static_cast<std::uint32_t*>(p);
        std::uint32_t tracked = words[-2];
        memory_usage -= tracked;
        MemTrackerAll::remove(tracked);
        std::free(static_cast<unsigned char*>(p) - words[-1]);
    }

    template <typename T>
    struct allocator {
        using value_type = T;
        allocator() = default;
        template <typename U>
        allocator(const allocator<U>&) {}
        // Containers expect an exception rather than null.
        T* allocate(std::size_t n) {
            if (n > std::size_t(-1) / sizeof(T)) throw std::bad_alloc();
            void* p = MemTracker::allocate(n * sizeof(T));
            if (!p) throw std::bad_alloc();
            return static_cast<T*>(p);
        }
        void deallocate(T* p, std::size_t) { MemTracker::deallocate(p); }
        template <typename U>
        bool operator==(const allocator<U>&) const {
            return true;
        }
        template <typename U>
        bool operator!=(const allocator<U>&) const {
            return false;
        }
    };

    // For objects of their own: new and delete through the tracker.
    template <typename T, typename... Args>
    static T* create(Args&&... args) {
        void* p = allocate(sizeof(T));
        return p ? new (p) T(std::forward<Args>(args)...) : nullptr;
    }
    template <typename T>
    static void destroy(T* object) {
        if (!object) return;
        object->~T();
        deallocate(object);
    }
    template <typename T>
    struct deleter {
        void operator()(T* object) const { destroy(object); }
    };
    template <typename T>
    using unique_ptr = std::unique_ptr<T, deleter<T>>;
};

template <MemCategory C>
std::atomic<std::uint64_t> MemTracker<C>::memory_usage{0};
template <MemCategory C>
std::atomic<std::uint32_t> MemTracker<C>::allocations{0};
template <MemCategory C>
std::atomic<std::uint64_t> MemTracker<C>::limit{~std::uint64_t(0)};

}  // namespace velour::core
