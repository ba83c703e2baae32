#include "velour/utils/base64.h"

#include <stdexcept>

namespace velour::utils {

namespace {

const char ALPHABET[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int sextet(char c) {
    if (c >= 'A' && c <= 'Z') return c - 'A';
    if (c >= 'a' && c <= 'z') return c - 'a' + 26;
    if (c >= '0' && c <= '9') return c - '0' + 52;
    if (c == '+') return 62;
    if (c == '/') return 63;
    return -1;
}

std::string withLineBreaks(const std::string& encoded, std::string::size_type lineLength) {
    std::string out;
    out.reserve(encoded.size() + encoded.size() / lineLength + 1);
    for (std::string::size_type i = 0; i < encoded.size(); i += lineLength) {
        if (i > 0) out += '\n';
        out.append(encoded, i, lineLength);
    }
    return out;
}

unsigned long byteAt(const std::string& data, std::string::size_type i) {
    return static_cast<unsigned char>(data[i]);
}

std::runtime_error badInput(const std::string& what, std::string::size_type offset) {
    return std::runtime_error("base64: " + what + " at offset " + std::to_string(offset));
}

}  // namespace

std::string base64_encode(const std::string& data) {
    std::string out;
    out.reserve((data.size() + 2) / 3 * 4);
    std::string::size_type i = 0;
    for (; i + 2 < data.size(); i += 3) {
        const unsigned long group =
            (byteAt(data, i) << 16) | (byteAt(data, i + 1) << 8) | byteAt(data, i + 2);
        out += ALPHABET[(group >> 18) & 63];
        out += ALPHABET[(group >> 12) & 63];
        out += ALPHABET[(group >> 6) & 63];
        out += ALPHABET[group & 63];
    }
    const std::string::size_type rest = data.size() - i;
    if (rest > 0) {
        unsigned long group = byteAt(data, i) << 16;
        if (rest == 2) group |= byteAt(data, i + 1) << 8;
        out += ALPHABET[(group >> 18) & 63];
        out += ALPHABET[(group >> 12) & 63];
        out += rest == 2 ? ALPHABET[(group >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::string base64_encode_pem(const std::string& data) {
    return withLineBreaks(base64_encode(data), 64);
}

std::string base64_encode_mime(const std::string& data) {
    return withLineBreaks(base64_encode(data), 76);
}

std::string base64_decode(const std::string& encoded, bool remove_linebreaks) {
    std::string text;
    if (remove_linebreaks) {
        text.reserve(encoded.size());
        for (char c : encoded) {
            if (c != '\n' && c != '\r') text += c;
        }
    }
    const std::string& in = remove_linebreaks ? text : encoded;

    // Padding may only close the text, and at most two characters of it.
    std::string::size_type length = in.size();
    std::string::size_type padding = 0;
    while (length > 0 && in[length - 1] == '=' && padding < 2) {
        --length;
        ++padding;
    }
    if (padding > 0 && in.size() % 4 != 0) {
        throw badInput("padded text of a length not a multiple of 4", in.size());
    }
    if (length % 4 == 1) throw badInput("truncated text", length);

    std::string out;
    out.reserve(length / 4 * 3 + 2);
    unsigned long group = 0;
    int bits = 0;
    for (std::string::size_type i = 0; i < length; ++i) {
        const int value = sextet(in[i]);
        if (value < 0) {
            throw badInput(in[i] == '=' ? "misplaced padding" : "character outside the alphabet",
                           i);
        }
        group = ((group << 6) | static_cast<unsigned long>(value)) & 0xFFFFul;
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>((group >> bits) & 0xFF);
        }
    }
    return out;
}

std::string wrapDat(const std::string& plain) {
    const std::string encoded = base64_encode(plain);
    return std::string(encoded.rbegin(), encoded.rend());
}

std::string unwrapDat(const std::string& wrapped) {
    return base64_decode(std::string(wrapped.rbegin(), wrapped.rend()), false);
}

}  // namespace velour::utils
