#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

#include "velour/utils/base64.h"
#include "velour/utils/sha512.h"

namespace {

using namespace velour::utils;

std::string allBytes() {
    std::string bytes;
    for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
    return bytes;
}

TEST(Base64, StandardVectorsWrappedFormsAndTheDataFileWrapper) {
    // The encodings of "", "f", "fo" ... "foobar".
    const char* const encoded[] = {"", "Zg==", "Zm8=", "Zm9v", "Zm9vYg==", "Zm9vYmE=", "Zm9vYmFy"};
    for (size_t n = 0; n < 7; ++n) {
        EXPECT_EQ(base64_encode(std::string("foobar", n)), encoded[n]);
        EXPECT_EQ(base64_decode(encoded[n]), std::string("foobar", n));
    }
    const std::string data = allBytes(), pem = base64_encode_pem(data);
    const std::string mime = base64_encode_mime(data);
    EXPECT_EQ(base64_decode(base64_encode(data)), data);
    EXPECT_EQ(std::pair(pem.find('\n'), mime.find('\n')), std::pair(size_t{64}, size_t{76}));
    EXPECT_NE(pem.back(), '\n');
    EXPECT_EQ(base64_decode(pem, true) + base64_decode(mime, true), data + data);
    EXPECT_THROW(base64_decode(pem, false), std::runtime_error);

    // Data files are base64 written backwards, so the padding leads; not
    // reversed, or with an editor's final newline, the layer refuses them.
    EXPECT_EQ(wrapDat("foob"), "==gYv9mZ");
    EXPECT_EQ(unwrapDat("==gYv9mZ"), "foob");
    for (const char* bad : {"Zm9vYg==", "==gYv9mZ\n"})
        EXPECT_THROW(unwrapDat(bad), std::runtime_error) << bad;
}

TEST(Base64, RejectsWhatNoEncoderProduces) {
    for (const char* bad : {"Zm9v!A==", "Zm9v\n", " Zm9v", "Zm=v", "Zg=", "Z", "Zm9vY", "Zg==="}) {
        EXPECT_THROW(base64_decode(bad), std::runtime_error) << bad;
    }
}

// Each vector whole, and streamed in uneven pieces after a restart.
TEST(Sha512, StandardVectorsWholeAndInPieces) {
    std::string fiveTimesAllBytes;
    for (int i = 0; i < 5; ++i) fiveTimesAllBytes += allBytes();
    const std::pair<std::string, const char*> vectors[] = {
        {"abc",
         "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
         "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
        {"",
         "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
         "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e"},
        {"abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmnhijklmno"
         "ijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu",
         "8e959b75dae313da8cf4f72814fc143f8f7779c6eb9f7fa17299aeadb6889018"
         "501d289e4900f7e4331b99dec4b5433ac7d329eeb6dd26545e96e55b874be909"},
        // 111 bytes leave just room for the length; the 112 above need a second block.
        {std::string(111, 'a'),
         "fa9121c7b32b9e01733d034cfc78cbf67f926c7ed83e82200ef86818196921760"
         "b4beff48404df811b953828274461673c68d04e297b0eb7b2b4d60fc6b566a2"},
        {fiveTimesAllBytes,
         "c93f55ccf2fa8c82699ff9b58afe3591242b135d908a6d865e17e38adb41c21d"
         "1d5359e51273036373d54d20b5659cc87e6e7b381ff027d33f971416cc590f90"},
    };
    for (const auto& [input, digest] : vectors) {
        EXPECT_EQ(sha512(input), digest) << input.size();
        unsigned char whole[SHA512::DIGEST_SIZE], pieces[SHA512::DIGEST_SIZE];
        SHA512 hash;
        hash.update(input.data(), input.size());
        hash.final(whole);
        hash.update("garbage", 7);
        hash.init();
        std::size_t at = 0;
        for (std::size_t piece : {1u, 0u, 126u, 129u, 3u, 500u, 10000u}) {
            piece = std::min(piece, input.size() - at);
            hash.update(input.data() + at, piece);
            at += piece;
        }
        hash.final(pieces);
        EXPECT_EQ(std::string(whole, whole + sizeof whole),
                  std::string(pieces, pieces + sizeof pieces))
            << input.size();
    }
}

}  // namespace
