#include "zarvo_orvane_logging/trace_line.h"

#include <algorithm>
#include <charconv>

#include <windows.h>

namespace Orvane::Reports {

namespace {

using Phase = OrvaneTrace::Phase;

constexpr std::string_view kCutMark = "...";
constexpr char32_t kReplacement = 0xFFFD;

constexpr bool IsHighSurrogate(char32_t unit) noexcept {
    return unit >= 0xD800 && unit < 0xDC00;
}

constexpr bool IsLowSurrogate(char32_t unit) noexcept {
    return unit >= 0xDC00 && unit < 0xE000;
}

// A character as it stands in a JSON text: at most six bytes.
struct Encoded {
    char bytes[6];
    std::size_t size;
};

Encoded Encode(char32_t code) noexcept {
    constexpr char kDigits[] = "0123456789abcdef";
    const auto tail = [code](unsigned shift) { return static_cast<char>(0x80U | ((code >> shift) & 0x3FU)); };
    if (code < U' ') {
        return {{'\\', 'u', '0', '0', kDigits[code >> 4U], kDigits[code & 0xFU]}, 6};
    }
    if (code == U'"' || code == U'\\') {
        return {{'\\', static_cast<char>(code)}, 2};
    }
    if (code < 0x80) {
        return {{static_cast<char>(code)}, 1};
    }
    if (code < 0x800) {
        return {{static_cast<char>(0xC0U | (code >> 6U)), tail(0)}, 2};
    }
    if (code < 0x10000) {
        return {{static_cast<char>(0xE0U | (code >> 12U)), tail(6), tail(0)}, 3};
    }
    return {{static_cast<char>(0xF0U | (code >> 18U)), tail(12), tail(6), tail(0)}, 4};
}

struct Character {
    char32_t code;
    std::size_t length;  // in bytes
};

// The next character of a text in UTF-8; U+FFFD for a byte that is none.
Character NextCharacter(const char* text) noexcept {
    const auto first = static_cast<unsigned char>(*text);
    if (first < 0x80) {
        return {first, 1};
    }
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 0;
    char32_t code = length == 0 ? 0 : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0U) != 0x80U) {
            return {kReplacement, 1};
        }
        code = (code << 6U) | (next & 0x3FU);
    }
    constexpr char32_t kLowest[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool isWrong =
        length == 0 || code < kLowest[length] || code > 0x10FFFF || IsHighSurrogate(code) || IsLowSurrogate(code);
    return isWrong ? Character{kReplacement, 1} : Character{code, length};
}

}  // namespace

TraceLine::TraceLine(const OrvaneTrace::Event& event) noexcept {
    AddHead(event.phase, event.category);
    AddText(event.name);
    if (event.phase == Phase::AsyncBegin || event.phase == Phase::AsyncEnd) {
        AddId(event.id);
    }
    if (event.phase == Phase::Instant) {
        Add(",\"s\":\"t\"");
    }
    AddArguments(event);
    Close();
}

TraceLine::TraceLine(const char* what, const wchar_t* name) noexcept {
    AddHead(Phase::ThreadName, "__metadata");
    AddText(what);
    Add(",\"args\":{\"name\":");
    AddText(name);
    Add("}");
    Close();
}

// Up to the name.
void TraceLine::AddHead(Phase phase, const char* category) noexcept {
    const char letter = static_cast<char>(phase);
    Add(",\"ph\":\"");
    Add({&letter, 1});
    Add("\",\"pid\":");
    AddNumber(GetCurrentProcessId());
    Add(",\"tid\":");
    AddNumber(GetCurrentThreadId());
    Add(",\"cat\":\"");
    Add(category);
    Add("\",\"name\":");
}

// Room is kept for it.
void TraceLine::Close() noexcept {
    constexpr std::string_view kEnd = "},\n";
    m_size += kEnd.copy(m_text.data() + m_size, kEnd.size());
}

void TraceLine::AddArguments(const OrvaneTrace::Event& event) noexcept {
    bool isFirst = true;
    for (std::size_t i = 0; i < event.argumentCount; ++i) {
        const OrvaneTrace::Argument& argument = event.arguments[i];
        // For the key, its punctuation, and a number or a little text.
        const std::size_t least = std::string_view(argument.key).size() + 48;
        if (*argument.key != '\0' && kCapacity - kKept - m_size >= least) {
            AddArgument(argument, isFirst);
            isFirst = false;
        }
    }
    if (!isFirst) {
        m_text[m_size++] = '}';
    }
}

void TraceLine::AddArgument(const OrvaneTrace::Argument& argument, bool isFirst) noexcept {
    Add(isFirst ? ",\"args\":{\"" : ",\"");
    Add(argument.key);
    Add("\":");
    if (argument.text != nullptr) {
        AddText(argument.text);
    } else if (argument.utf8 != nullptr) {
        AddText(argument.utf8);
    } else {
        AddNumber(argument.number);
    }
}

// All of it or nothing.
void TraceLine::Add(std::string_view text) noexcept {
    if (text.size() <= kCapacity - kKept - m_size) {
        m_size += text.copy(m_text.data() + m_size, text.size());
    }
}

void TraceLine::AddNumber(long long number) noexcept {
    char digits[24];
    const auto result = std::to_chars(std::begin(digits), std::end(digits), number);
    Add({digits, static_cast<std::size_t>(result.ptr - digits)});
}

// As a text: a number of this size loses its last digits in some readers.
void TraceLine::AddId(unsigned long long id) noexcept {
    char digits[24];
    const auto result = std::to_chars(std::begin(digits), std::end(digits), id, 16);
    Add(",\"id\":\"0x");
    Add({digits, static_cast<std::size_t>(result.ptr - digits)});
    Add("\"");
}

void TraceLine::AddText(const wchar_t* text) noexcept {
    const std::size_t end = (std::min)(m_size + kTextRoom, kCapacity - kKept) - kCutMark.size() - 2;
    Add("\"");
    for (; text != nullptr && *text != L'\0'; ++text) {
        auto code = static_cast<char32_t>(*text);
        if (IsHighSurrogate(code) && IsLowSurrogate(static_cast<char32_t>(text[1]))) {
            ++text;
            code = 0x10000U + ((code - 0xD800U) << 10U) + (static_cast<char32_t>(*text) - 0xDC00U);
        } else if (IsHighSurrogate(code) || IsLowSurrogate(code)) {
            code = kReplacement;
        }
        if (!AddCodePoint(code, end)) {
            break;
        }
    }
    Add("\"");
}

void TraceLine::AddText(const char* utf8) noexcept {
    const std::size_t end = (std::min)(m_size + kTextRoom, kCapacity - kKept) - kCutMark.size() - 2;
    Add("\"");
    while (*utf8 != '\0') {
        const Character next = NextCharacter(utf8);
        if (!AddCodePoint(next.code, end)) {
            break;
        }
        utf8 += next.length;
    }
    Add("\"");
}

// Returns false, and marks the cut, if it is too long for what ends at `end`.
bool TraceLine::AddCodePoint(char32_t code, std::size_t end) noexcept {
    const Encoded encoded = Encode(code);
    if (m_size + encoded.size > end) {
        Add(kCutMark);
        return false;
    }
    Add({encoded.bytes, encoded.size});
    return true;
}

}  // namespace Orvane::Reports
