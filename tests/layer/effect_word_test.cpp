#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "ctrl/EffectWord.h"

namespace velour::ctrl {
namespace {

// The render thread reads the word every frame while binder threads switch it:
// every read must be one whole word that was written, never a mix or a torn copy,
// and a word longer than a property holds is cut to what it holds.
TEST(EffectWord, ReadersSeeWholeWordsWhileWritersSwitch) {
    EffectWord word;
    EXPECT_EQ(word.get(), "");
    word.set(std::string(200, 'x'));
    EXPECT_EQ(word.get(), std::string(EffectWord::CAPACITY, 'x'));
    const std::string words[] = {"hdr", "gamma_correction", "null",
                                 std::string(EffectWord::CAPACITY, 'x')};
    std::atomic<bool> stop{false};
    auto writer = [&](int first) {
        for (int i = first; !stop.load(); i++) word.set(words[i % 4]);
    };
    std::thread a(writer, 0), b(writer, 1);
    int torn = 0;
    for (int i = 0; i < 200000; i++) {
        std::string seen = word.get();
        if (seen != words[0] && seen != words[1] && seen != words[2] && seen != words[3]) torn++;
    }
    stop = true;
    a.join();
    b.join();
    EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace velour::ctrl
