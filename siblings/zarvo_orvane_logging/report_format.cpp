#include "zarvo_orvane_logging/report_format.h"

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <span>
#include <string>
#include <string_view>
#include <variant>

#include <windows.h>

#include "zarvo_orvane_logging/format_reader.h"

namespace Orvane::Reports {

namespace {

// How many characters of a text may be read: up to its end, or up to the precision, which then needs no end.
template <typename Char>
std::size_t LengthOf(const Char* text, int precision) noexcept {
    const std::size_t limit =
        precision < 0 ? std::numeric_limits<std::size_t>::max() : static_cast<std::size_t>(precision);
    std::size_t length = 0;
    while (length < limit && text[length] != Char{}) {
        ++length;
    }
    return length;
}

std::size_t PaddingFor(const Conversion& conversion, std::size_t length) noexcept {
    const auto width = static_cast<std::size_t>(conversion.width);
    return width > length ? width - length : 0;
}

void AppendPadded(const Conversion& conversion, std::wstring_view body, WideText& text) noexcept {
    const std::size_t padding = PaddingFor(conversion, body.size());
    text.Append(conversion.leftAligned ? 0 : padding, L' ');
    text.Append(body);
    text.Append(conversion.leftAligned ? padding : 0, L' ');
}

// A number: sign, zeros up to precision or width, digits.
void AppendNumber(const Conversion& conversion, std::wstring_view sign, std::string_view digits, std::size_t zeros,
                  WideText& text) noexcept {
    std::size_t padding = PaddingFor(conversion, sign.size() + zeros + digits.size());
    if (conversion.zeroPadded && !conversion.leftAligned) {
        zeros += padding;
        padding = 0;
    }
    text.Append(conversion.leftAligned ? 0 : padding, L' ');
    text.Append(sign);
    text.Append(zeros, L'0');
    for (const char digit : digits) {
        text.Append(static_cast<wchar_t>(digit));
    }
    text.Append(conversion.leftAligned ? padding : 0, L' ');
}

void ToUpper(char* first, const char* last) noexcept {
    for (; first != last; ++first) {
        *first = static_cast<char>(*first >= 'a' && *first <= 'z' ? *first - 'a' + 'A' : *first);
    }
}

void AppendDigits(Conversion conversion, std::wstring_view sign, unsigned long long magnitude, int base,
                  WideText& text) noexcept {
    char digits[std::numeric_limits<unsigned long long>::digits];
    char* end = std::to_chars(std::begin(digits), std::end(digits), magnitude, base).ptr;
    if (magnitude == 0 && conversion.precision == 0) {
        end = digits;
    }
    if (conversion.type == L'X' || conversion.type == L'p') {
        ToUpper(digits, end);
    }
    const std::string_view body(digits, static_cast<std::size_t>(end - digits));
    const std::size_t wanted = conversion.precision < 0 ? 0 : static_cast<std::size_t>(conversion.precision);
    conversion.zeroPadded = conversion.zeroPadded && conversion.precision < 0;
    AppendNumber(conversion, sign, body, wanted > body.size() ? wanted - body.size() : 0, text);
}

// Narrow text is in the thread's ANSI code page, as the exceptions' texts are.
void AppendNarrow(const Conversion& conversion, const char* narrow, WideText& text) noexcept {
    const std::size_t length = LengthOf(narrow, conversion.precision);
    const auto bytes = static_cast<int>(std::min<std::size_t>(length, std::numeric_limits<int>::max()));
    const int characters = bytes == 0 ? 0 : MultiByteToWideChar(CP_THREAD_ACP, 0, narrow, bytes, nullptr, 0);
    const auto wideLength = static_cast<std::size_t>(characters);
    const std::size_t padding = PaddingFor(conversion, wideLength);
    text.Append(conversion.leftAligned ? 0 : padding, L' ');
    const std::span<wchar_t> room = text.Extend(wideLength);
    if (!room.empty() &&
        MultiByteToWideChar(CP_THREAD_ACP, 0, narrow, bytes, room.data(), static_cast<int>(room.size())) == 0) {
        text.DropLast(room.size());
    }
    text.Append(conversion.leftAligned ? padding : 0, L' ');
}

struct Appender {
    const Conversion& conversion;
    WideText& text;

    void operator()(std::monostate) const noexcept {}
    void operator()(long long value) const noexcept {
        if (conversion.type == L'c') {
            const auto character = static_cast<wchar_t>(value);
            return AppendPadded(conversion, {&character, 1}, text);
        }
        const auto bits = static_cast<unsigned long long>(value);
        AppendDigits(conversion, value < 0 ? L"-" : L"", value < 0 ? 0 - bits : bits, 10, text);
    }
    void operator()(unsigned long long value) const noexcept {
        AppendDigits(conversion, L"", value, conversion.type == L'u' ? 10 : 16, text);
    }
    void operator()(const void* value) const noexcept {
        Conversion full = conversion;
        full.precision = 2 * sizeof(void*);
        AppendDigits(full, L"", reinterpret_cast<std::uintptr_t>(value), 16, text);
    }
    void operator()(const wchar_t* value) const noexcept {
        const wchar_t* const shown = value != nullptr ? value : L"(null)";
        AppendPadded(conversion, {shown, LengthOf(shown, conversion.precision)}, text);
    }
    void operator()(const char* value) const noexcept {
        AppendNarrow(conversion, value != nullptr ? value : "(null)", text);
    }
};

struct Lister {
    const Conversion& conversion;
    std::vector<ReportArgument>& list;

    void operator()(std::monostate) const noexcept {}
    void operator()(const wchar_t* value) const { AddText(value); }
    void operator()(const char* value) const { AddText(value); }
    template <typename Number>
    void operator()(Number value) const {
        list.emplace_back(value);
    }

    template <typename Char>
    void AddText(const Char* value) const {
        Conversion bare;
        bare.precision = conversion.precision;
        WideText text;
        Appender{bare, text}(value);
        list.emplace_back(std::wstring(text.Text()));
    }
};

}  // namespace

void AppendMessage(const wchar_t* format, va_list arguments, WideText& text) noexcept {
    FormatReader reader(format, arguments);
    for (FormatPiece piece; reader.Next(piece);) {
        text.Append(piece.literal);
        std::visit(Appender{piece.conversion, text}, piece.value);
    }
}

std::vector<ReportArgument> ListArguments(const wchar_t* format, va_list arguments) {
    std::vector<ReportArgument> list;
    FormatReader reader(format, arguments);
    for (FormatPiece piece; reader.Next(piece);) {
        std::visit(Lister{piece.conversion, list}, piece.value);
    }
    return list;
}

}  // namespace Orvane::Reports
