#include "host/base64.h"

#include <cstdint>

namespace host {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

int ValueOf(char c) {
    const size_t at = kAlphabet.find(c);
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

}  // namespace

std::string Base64Encode(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t count = bytes.size() - i < 3 ? bytes.size() - i : 3;
        uint32_t group = 0;
        for (size_t k = 0; k < 3; ++k) {
            group = group << 8 | (k < count ? static_cast<unsigned char>(bytes[i + k]) : 0u);
        }
        for (size_t k = 0; k < 4; ++k) {
            out += k <= count ? kAlphabet[group >> (18 - 6 * k) & 0x3F] : '=';
        }
    }
    return out;
}

std::optional<std::string> Base64Decode(std::string_view text) {
    std::string out;
    uint32_t group = 0;
    int bits = 0;
    size_t padding = 0;
    for (const char c : text) {
        if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
        if (c == '=') {
            ++padding;
            continue;
        }
        const int value = ValueOf(c);
        if (value < 0 || padding > 0) return std::nullopt;   // nothing may follow the padding
        group = group << 6 | static_cast<uint32_t>(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            out += static_cast<char>(group >> bits & 0xFF);
        }
    }
    if (padding > 2 || bits >= 6) return std::nullopt;
    return out;
}

}  // namespace host
