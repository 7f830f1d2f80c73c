#include "zarvo_orvane_logging/format_reader.h"

#include <algorithm>
#include <cstddef>
#include <cwchar>

namespace Orvane::Reports {

namespace {

// On purpose: the one caller with this format passes an exception's narrow what() for the wide %s.
constexpr const wchar_t* kFormatWithNarrowText =
    L"Task reschedule failed in thread [0x%x (%d)] of process [0x%x (%d)]. %s";

// Keeps a wrong width or precision from filling the log.
constexpr int kMaximumPadding = 4096;

}  // namespace

FormatReader::FormatReader(const wchar_t* format, va_list arguments) noexcept
    : m_cursor(format), m_plainTextIsNarrow(std::wcscmp(format, kFormatWithNarrowText) == 0) {
    va_copy(m_arguments, arguments);
}

FormatReader::~FormatReader() {
    va_end(m_arguments);
}

bool FormatReader::Next(FormatPiece& piece) noexcept {
    piece = FormatPiece{};
    if (*m_cursor == L'\0') {
        return false;
    }
    const wchar_t* const start = m_cursor;
    if (!Skip(L'%')) {
        m_cursor += std::wcscspn(m_cursor, L"%");
        piece.literal = {start, m_cursor};
    } else if (Skip(L'%')) {
        piece.literal = L"%";
    } else if (!ReadConversion(piece)) {
        piece.literal = start;
        m_cursor = start + piece.literal.size();
    }
    return true;
}

bool FormatReader::ReadConversion(FormatPiece& piece) noexcept {
    Conversion& conversion = piece.conversion;
    ReadFlags(conversion);
    conversion.width = ReadNumber();
    if (Skip(L'.')) {
        conversion.precision = ReadNumber();
    }
    const Size size = ReadSize();
    conversion.type = *m_cursor;
    return TakeValue(piece, size);
}

void FormatReader::ReadFlags(Conversion& conversion) noexcept {
    for (;; ++m_cursor) {
        switch (*m_cursor) {
            case L'-': conversion.leftAligned = true; break;
            case L'0': conversion.zeroPadded = true; break;
            default: return;
        }
    }
}

// A width or a precision: digits, or 0 when there are none.
int FormatReader::ReadNumber() noexcept {
    int number = 0;
    for (; *m_cursor >= L'0' && *m_cursor <= L'9'; ++m_cursor) {
        number = std::min(10 * number + (*m_cursor - L'0'), kMaximumPadding);
    }
    return number;
}

FormatReader::Size FormatReader::ReadSize() noexcept {
    if (Skip(L'h')) {
        return Size::Short;
    }
    if (Skip(L'l')) {
        return Skip(L'l') ? Size::LongLong : Size::Long;
    }
    if (m_cursor[0] == L'I' && m_cursor[1] == L'6' && m_cursor[2] == L'4') {
        m_cursor += 3;
        return Size::LongLong;
    }
    static_assert(sizeof(std::size_t) == sizeof(long long));
    return Skip(L'z') ? Size::LongLong : Size::Normal;
}

bool FormatReader::TakeValue(FormatPiece& piece, Size size) noexcept {
    switch (*m_cursor++) {
        case L'd':
        case L'i': piece.value = TakeSigned(size); return true;
        case L'u':
        case L'x':
        case L'X': piece.value = TakeUnsigned(size); return true;
        case L'c': piece.value = static_cast<long long>(static_cast<wchar_t>(va_arg(m_arguments, int))); return true;
        case L'p': piece.value = static_cast<const void*>(va_arg(m_arguments, void*)); return true;
        case L's':
            piece.value = TakeText(size == Size::Short || (m_plainTextIsNarrow && size == Size::Normal));
            return true;
        case L'S': piece.value = TakeText(size != Size::Long); return true;
        default: return false;
    }
}

long long FormatReader::TakeSigned(Size size) noexcept {
    switch (size) {
        case Size::Short: return static_cast<short>(va_arg(m_arguments, int));
        case Size::Normal: return va_arg(m_arguments, int);
        case Size::Long: return va_arg(m_arguments, long);
        case Size::LongLong: return va_arg(m_arguments, long long);
    }
    return 0;
}

unsigned long long FormatReader::TakeUnsigned(Size size) noexcept {
    switch (size) {
        case Size::Short: return static_cast<unsigned short>(va_arg(m_arguments, unsigned));
        case Size::Normal: return va_arg(m_arguments, unsigned);
        case Size::Long: return va_arg(m_arguments, unsigned long);
        case Size::LongLong: return va_arg(m_arguments, unsigned long long);
    }
    return 0;
}

FormatValue FormatReader::TakeText(bool narrow) noexcept {
    if (narrow) {
        return static_cast<const char*>(va_arg(m_arguments, char*));
    }
    return static_cast<const wchar_t*>(va_arg(m_arguments, wchar_t*));
}

bool FormatReader::Skip(wchar_t character) noexcept {
    if (*m_cursor != character) {
        return false;
    }
    ++m_cursor;
    return true;
}

}  // namespace Orvane::Reports
