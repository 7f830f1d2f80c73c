// Reads a wide printf format piece by piece and takes each conversion's value from the arguments.
//
// The C runtime's own functions do not do. What %s means to them depends on the runtime and its settings, and they say
// nothing of the values. One caller hands narrow text to a wide %s.
#pragma once

#include <cstdarg>
#include <string_view>
#include <variant>

namespace Orvane::Reports {

struct Conversion {
    bool leftAligned = false;
    bool zeroPadded = false;
    int width = 0;
    int precision = -1;  // negative: not given
    wchar_t type = L'\0';
};

using FormatValue =
    std::variant<std::monostate, long long, unsigned long long, const void*, const wchar_t*, const char*>;

// Literal text when `value` is empty, otherwise a conversion.
struct FormatPiece {
    std::wstring_view literal;
    Conversion conversion;
    FormatValue value;
};

// Lifetime: borrows the format and the arguments; both must outlive it.
class FormatReader {
  public:
    // `arguments` is copied: the caller may read them again.
    FormatReader(const wchar_t* format, va_list arguments) noexcept;
    ~FormatReader();
    FormatReader(const FormatReader&) = delete;
    FormatReader& operator=(const FormatReader&) = delete;

    // Returns false at the end. A conversion that is not known gives the rest of the format as literal text, since the
    // size of its argument, and so the place of all further ones, is not known either.
    bool Next(FormatPiece& piece) noexcept;

  private:
    enum class Size { Short, Normal, Long, LongLong };

    bool ReadConversion(FormatPiece& piece) noexcept;
    void ReadFlags(Conversion& conversion) noexcept;
    int ReadNumber() noexcept;
    Size ReadSize() noexcept;
    bool TakeValue(FormatPiece& piece, Size size) noexcept;
    long long TakeSigned(Size size) noexcept;
    unsigned long long TakeUnsigned(Size size) noexcept;
    FormatValue TakeText(bool narrow) noexcept;
    bool Skip(wchar_t character) noexcept;

    const wchar_t* m_cursor;
    va_list m_arguments;
    bool m_plainTextIsNarrow;
};

}  // namespace Orvane::Reports
