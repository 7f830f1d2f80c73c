#include "tests/host/windows/text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <mutex>
#include <string>

#include "tests/host/windows/errors.h"

namespace {

constexpr wchar_t kReplacement = 0xFFFD;

void AppendUtf8(char32_t code, std::string& text) {
    const auto tail = [code](unsigned shift) { return static_cast<char>(0x80 | ((code >> shift) & 0x3F)); };
    if (code < 0x80) {
        text += static_cast<char>(code);
    } else if (code < 0x800) {
        text += {static_cast<char>(0xC0 | (code >> 6)), tail(0)};
    } else if (code < 0x10000) {
        text += {static_cast<char>(0xE0 | (code >> 12)), tail(6), tail(0)};
    } else {
        text += {static_cast<char>(0xF0 | (code >> 18)), tail(12), tail(6), tail(0)};
    }
}

std::string Narrow(std::wstring_view wide, bool utf8) {
    std::string text;
    for (const wchar_t character : wide) {
        if (utf8) {
            AppendUtf8(static_cast<char32_t>(character), text);
        } else {
            text += character < 0x100 ? static_cast<char>(character) : '?';
        }
    }
    return text;
}

// How many bytes the character has that begins with this one; 0 if none does.
std::size_t LengthInUtf8(unsigned char first) {
    if (first < 0x80) {
        return 1;
    }
    return first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 0;
}

std::wstring FromUtf8(std::string_view text) {
    std::wstring wide;
    while (!text.empty()) {
        const std::size_t length = LengthInUtf8(static_cast<unsigned char>(text.front()));
        if (length == 0 || length > text.size()) {
            wide += kReplacement;
            text.remove_prefix(1);
            continue;
        }
        unsigned code = static_cast<unsigned char>(text.front()) & (length == 1 ? 0x7FU : 0xFFU >> (length + 1));
        for (const char next : text.substr(1, length - 1)) {
            code = (code << 6) | (static_cast<unsigned char>(next) & 0x3FU);
        }
        wide += static_cast<wchar_t>(code);
        text.remove_prefix(length);
    }
    return wide;
}

std::wstring Widen(std::string_view text, bool utf8) {
    if (utf8) {
        return FromUtf8(text);
    }
    std::wstring wide;
    for (const char character : text) {
        wide += static_cast<wchar_t>(static_cast<unsigned char>(character));
    }
    return wide;
}

// Where the converted text goes, as both conversions do it: without room, only its length is told.
template <typename Char>
int Deliver(const std::basic_string<Char>& text, Char* room, int capacity) {
    if (capacity == 0) {
        return static_cast<int>(text.size());
    }
    if (text.size() > static_cast<std::size_t>(capacity)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::copy(text.begin(), text.end(), room);
    return static_cast<int>(text.size());
}

// With a negative length the text ends with its zero, which then belongs to it.
template <typename Char>
std::basic_string_view<Char> Whole(const Char* text, int length) {
    return {text, length < 0 ? std::char_traits<Char>::length(text) + 1 : static_cast<std::size_t>(length)};
}

// The platform's conversions, as this system's own printf has them: plain %s is wide, %hs and %S are narrow.
std::wstring Translated(const wchar_t* format) {
    std::wstring result;
    for (const wchar_t* cursor = format; *cursor != L'\0'; ++cursor) {
        result += *cursor;
        if (*cursor != L'%') {
            continue;
        }
        const std::size_t flags = std::wcsspn(cursor + 1, L"-+ #0123456789.*");
        result.append(cursor + 1, flags);
        cursor += flags + 1;
        if (*cursor == L's') {
            result += L"ls";
        } else if (*cursor == L'S' || (cursor[0] == L'h' && cursor[1] == L's')) {
            result += L's';
            cursor += *cursor == L'h' ? 1 : 0;
        } else if (*cursor == L'\0') {
            break;
        } else {
            result += *cursor;
        }
    }
    return result;
}

std::mutex& EnvironmentLock() {
    static std::mutex& lock = *new std::mutex;
    return lock;
}

}  // namespace

LCID GetThreadLocale() {
    return 0;
}

BOOL SetThreadLocale(LCID locale) {
    return locale == 0 ? TRUE : FALSE;
}

DWORD GetEnvironmentVariableW(LPCWSTR name, LPWSTR value, DWORD capacity) {
    const std::lock_guard lock(EnvironmentLock());
    const char* const found = std::getenv(Narrow(name, true).c_str());
    if (found == nullptr) {
        SetLastError(ERROR_ENVVAR_NOT_FOUND);
        return 0;
    }
    const std::wstring wide = FromUtf8(found);
    if (wide.size() >= capacity) {
        return wide.size() + 1;
    }
    std::wmemcpy(value, wide.c_str(), wide.size() + 1);
    return wide.size();
}

BOOL SetEnvironmentVariableW(LPCWSTR name, LPCWSTR value) {
    const std::lock_guard lock(EnvironmentLock());
    const std::string variable = Narrow(name, true);
    const int result =
        value != nullptr ? setenv(variable.c_str(), Narrow(value, true).c_str(), 1) : unsetenv(variable.c_str());
    return result == 0 ? TRUE : FALSE;
}

// No flags: the library gives none.
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int length, LPSTR narrow, int capacity, LPCSTR,
                        BOOL*) {
    if (flags != 0) {
        SetLastError(ERROR_INVALID_FLAGS);
        return 0;
    }
    return Deliver(Narrow(Whole(wide, length), codePage == CP_UTF8), narrow, capacity);
}

int MultiByteToWideChar(UINT codePage, DWORD, LPCSTR narrow, int length, LPWSTR wide, int capacity) {
    return Deliver(Widen(Whole(narrow, length), codePage == CP_UTF8), wide, capacity);
}

int _vsnwprintf_s(wchar_t* text, std::size_t capacity, std::size_t, const wchar_t* format, va_list arguments) {
    const std::wstring translated = Translated(format);
    std::wstring whole(capacity, L'\0');
    int length = -1;
    while (length < 0 && whole.size() < (std::size_t{1} << 20)) {
        whole.resize(whole.size() * 2);
        va_list copy;
        va_copy(copy, arguments);
        length = std::vswprintf(whole.data(), whole.size(), translated.c_str(), copy);
        va_end(copy);
    }
    if (length < 0) {
        text[0] = L'\0';
        return -1;
    }
    const std::size_t fitting = std::min(static_cast<std::size_t>(length), capacity - 1);
    std::wmemcpy(text, whole.data(), fitting);
    text[fitting] = L'\0';
    return fitting == static_cast<std::size_t>(length) ? length : -1;
}
