#include "zarvo_orvane_logging/report_line.h"

#include <cstdarg>

#include <windows.h>

#include "zarvo_orvane_logging/report_format.h"

namespace Orvane::Reports {

namespace {

void AppendFormatted(WideText& text, const wchar_t* format, ...) noexcept {
    va_list arguments;
    va_start(arguments, format);
    AppendMessage(format, arguments, text);
    va_end(arguments);
}

void AppendTime(unsigned long long time, WideText& line) noexcept {
    constexpr unsigned long long kTicksPerSecond = 10'000'000;
    FILETIME fileTime;
    fileTime.dwLowDateTime = static_cast<DWORD>(time);
    fileTime.dwHighDateTime = static_cast<DWORD>(time >> 32U);
    SYSTEMTIME parts{};
    FileTimeToSystemTime(&fileTime, &parts);
    AppendFormatted(line, L"%04u-%02u-%02uT%02u:%02u:%02u.%07lluZ", unsigned{parts.wYear}, unsigned{parts.wMonth},
                    unsigned{parts.wDay}, unsigned{parts.wHour}, unsigned{parts.wMinute}, unsigned{parts.wSecond},
                    time % kTicksPerSecond);
}

void AppendEscaped(std::wstring_view text, WideText& line) noexcept {
    for (const wchar_t character : text) {
        switch (character) {
            case L'\n': line.Append(L"\\n"); break;
            case L'\r': line.Append(L"\\r"); break;
            case L'\t': line.Append(L"\\t"); break;
            default:
                if (character < L' ' || (character >= 0x7F && character < 0xA0)) {
                    AppendFormatted(line, L"\\x%02x", static_cast<unsigned>(character));
                } else {
                    line.Append(character);
                }
        }
    }
}

constexpr bool IsHighSurrogate(wchar_t character) noexcept {
    return character >= 0xD800 && character < 0xDC00;
}

constexpr bool IsLowSurrogate(wchar_t character) noexcept {
    return character >= 0xDC00 && character < 0xE000;
}

void AppendCodePoint(char32_t codePoint, Utf8Text& bytes) noexcept {
    const auto tail = [codePoint](unsigned shift) { return static_cast<char>(0x80U | ((codePoint >> shift) & 0x3FU)); };
    if (codePoint < 0x80) {
        bytes.Append(static_cast<char>(codePoint));
    } else if (codePoint < 0x800) {
        const char encoded[] = {static_cast<char>(0xC0U | (codePoint >> 6U)), tail(0)};
        bytes.Append({encoded, sizeof(encoded)});
    } else if (codePoint < 0x10000) {
        const char encoded[] = {static_cast<char>(0xE0U | (codePoint >> 12U)), tail(6), tail(0)};
        bytes.Append({encoded, sizeof(encoded)});
    } else {
        const char encoded[] = {static_cast<char>(0xF0U | (codePoint >> 18U)), tail(12), tail(6), tail(0)};
        bytes.Append({encoded, sizeof(encoded)});
    }
}

}  // namespace

void ComposeLine(const PendingReport& report, WideText& line) noexcept {
    AppendTime(report.time, line);
    AppendFormatted(line, L" %d %d %lu:%lu [", report.severity, report.kind, GetCurrentProcessId(), report.threadId);
    AppendEscaped(report.category, line);
    line.Append(L"] ");
    AppendEscaped(report.text, line);
    line.Close(L"\n");
}

void EncodeUtf8(std::wstring_view line, Utf8Text& bytes) noexcept {
    constexpr char32_t kReplacement = 0xFFFD;
    line.remove_suffix(1);  // the line feed: closing adds it, whatever the text before it came to
    for (std::size_t i = 0; i < line.size(); ++i) {
        const wchar_t unit = line[i];
        if (IsHighSurrogate(unit) && i + 1 < line.size() && IsLowSurrogate(line[i + 1])) {
            ++i;
            AppendCodePoint(0x10000U + ((unit - 0xD800U) << 10U) + (line[i] - 0xDC00U), bytes);
        } else {
            AppendCodePoint(IsHighSurrogate(unit) || IsLowSurrogate(unit) ? kReplacement : unit, bytes);
        }
    }
    bytes.Close("\n");
}

}  // namespace Orvane::Reports
