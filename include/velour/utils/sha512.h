#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace velour::utils {

// SHA-512 (FIPS 180-4), streaming: init, any number of updates, final.
class SHA512 {
  public:
    static constexpr std::size_t DIGEST_SIZE = 64;
    static constexpr std::size_t BLOCK_SIZE = 128;

    SHA512() { init(); }

    void init();
    void update(const void* data, std::size_t length);
    // Writes DIGEST_SIZE bytes. Call init before hashing anything else.
    void final(unsigned char* digest);

  private:
    void transform(const unsigned char* block);

    std::uint64_t state[8];
    unsigned char buffer[BLOCK_SIZE];
    std::size_t buffered;
    // Message length in bytes as two 64-bit halves, so no input overflows it.
    std::uint64_t lengthLow;
    std::uint64_t lengthHigh;
};

// The digest of `input` in lower-case hexadecimal, 128 characters.
std::string sha512(const std::string& input);

}  // namespace velour::utils
