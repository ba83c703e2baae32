#pragma once

#include <atomic>
#include <cstddef>
#include <string>

namespace velour::ctrl {

// The effect word: written now and then by the service's binder threads and the
// property path, read once a frame by the render thread without a lock. A plain
// string assigned on one thread while another copies it can free the bytes
// under the reader, so the word sits in a fixed buffer behind a sequence count:
// the reader copies and retries if a write came in between. Longer words than
// a property value can hold are cut there.
class EffectWord {
  public:
    static constexpr std::size_t CAPACITY = 92;

    EffectWord() = default;
    EffectWord(const EffectWord&) = delete;
    EffectWord& operator=(const EffectWord&) = delete;

    void set(const std::string& word) {
        while (writing.test_and_set(std::memory_order_acquire)) {
        }
        unsigned sequence = count.load(std::memory_order_relaxed);
        count.store(sequence + 1, std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_release);
        std::size_t size = word.size() < CAPACITY ? word.size() : CAPACITY;
        for (std::size_t i = 0; i < size; i++) bytes[i].store(word[i], std::memory_order_relaxed);
        length.store(size, std::memory_order_relaxed);
        count.store(sequence + 2, std::memory_order_release);
        writing.clear(std::memory_order_release);
    }

    std::string get() const {
        char copy[CAPACITY];
        std::size_t size;
        unsigned before, after;
        do {
            before = count.load(std::memory_order_acquire);
            size = length.load(std::memory_order_relaxed);
            if (size > CAPACITY) size = CAPACITY;
            for (std::size_t i = 0; i < size; i++)
                copy[i] = bytes[i].load(std::memory_order_relaxed);
            std::atomic_thread_fence(std::memory_order_acquire);
            after = count.load(std::memory_order_relaxed);
        } while ((before & 1) != 0 || before != after);
        return std::string(copy, size);
    }

  private:
    std::atomic<unsigned> count{0};
    std::atomic<std::size_t> length{0};
    std::atomic<char> bytes[CAPACITY] = {};
    std::atomic_flag writing = ATOMIC_FLAG_INIT;
};

}  // namespace velour::ctrl
