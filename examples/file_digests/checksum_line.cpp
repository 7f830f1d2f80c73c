#include "examples/file_digests/checksum_line.h"

#include <algorithm>

namespace FileDigests {

namespace {

std::string Escaped(std::string_view name) {
    std::string escaped;
    for (const char character : name) {
        switch (character) {
            case '\\':
                escaped += "\\\\";
                break;
            case '\n':
                escaped += "\\n";
                break;
            case '\r':
                escaped += "\\r";
                break;
            default:
                escaped += character;
        }
    }
    return escaped;
}

std::string Hexadecimal(const Digest& digest) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string text;
    for (const std::uint8_t byte : digest) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text;
}

}  // namespace

std::string ChecksumLine(const Digest& digest, std::string_view name) {
    // To sha256sum a lone dash is its standard input.
    const std::string path = name == "-" ? "./-" : std::string(name);
    const std::string escaped = Escaped(path);
    return (escaped == path ? "" : "\\") + Hexadecimal(digest) + "  " + escaped + "\n";
}

std::string ShownName(std::string_view name) {
    std::string shown = Escaped(name);
    std::replace_if(shown.begin(), shown.end(), [](char c) { return (c >= 0 && c < ' ') || c == '\x7F'; }, '?');
    return shown;
}

}  // namespace FileDigests
