#include "concurrency/base/last_words.h"

#include <algorithm>
#include <charconv>
#include <exception>
#include <iterator>
#include <system_error>
#include <typeinfo>

#include "concurrency/base/module_function.h"
#include "concurrency/base/trace.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/errors/error_storage.h"

#if defined(__GNUC__)
#include <cxxabi.h>
#endif

namespace Orvane::Internal {

namespace {

constexpr std::string_view kCutMark = "...";

// How many bytes each part may take; the text of the exception gets the rest.
constexpr std::size_t kReasonRoom = 320;
constexpr std::size_t kTaskRoom = 1280;
constexpr std::size_t kThreadRoom = 512;
constexpr std::size_t kTypeRoom = 384;

constexpr char32_t kReplacement = 0xFFFD;

// GetThreadDescription() would take memory from the heap.
struct ThreadName {
    USHORT length;  // in bytes
    USHORT capacity;
    wchar_t* text;
    wchar_t room[512];
};
constexpr int kThreadName = 38;
using QueryThread = LONG(NTAPI*)(HANDLE thread, int what, void* answer, ULONG size, ULONG* used);

// Looked up while the library is loaded: a look-up later would take the loader's lock. Null before that.
const QueryThread g_queryThread = FindFunction<QueryThread>(L"ntdll", "NtQueryInformationThread");

constexpr bool IsHighSurrogate(char32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

constexpr bool IsLowSurrogate(char32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

struct Character {
    char32_t code;
    std::size_t length;  // in bytes
};

// The next character of a text that nothing says the encoding of. A byte that is not UTF-8 stands for itself.
Character NextCharacter(const char* text) {
    const auto first = static_cast<unsigned char>(*text);
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : first >= 0xC0 ? 2 : 1;
    char32_t code = length == 1 ? first : first & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        const auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0U) != 0x80U) {
            return {first, 1};
        }
        code = (code << 6U) | (next & 0x3FU);
    }
    return {code, length};
}

// The type of the exception that is being handled, where the compiler tells.
const char* TypeBeingHandled() {
#if defined(__GNUC__)
    const std::type_info* const type = abi::__cxa_current_exception_type();
    return type != nullptr ? type->name() : "";
#else
    return "not a std::exception";
#endif
}

// Takes "13runtime_error" off the front of a type's name, and returns "runtime_error"; empty if there is none.
std::string_view TakeIdentifier(std::string_view& name) {
    std::size_t length = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), length);
    const auto digits = static_cast<std::size_t>(end - name.data());
    if (error != std::errc() || length > name.size() - digits) {
        return {};
    }
    const std::string_view identifier = name.substr(digits, length);
    name.remove_prefix(digits + length);
    return identifier;
}

// A class in namespaces as it is written, from "St13runtime_error" or "N6Orvane10UnexpectedE". The C++ runtime would take
// memory for this. Calls `add` with each piece; before that, once without, to see whether the name is of this kind.
template <typename AddPiece>
bool ReadClassName(std::string_view name, AddPiece add) {
    const bool isNested = name.starts_with('N') && name.ends_with('E');
    if (isNested) {
        name = name.substr(1, name.size() - 2);
    }
    bool isFirst = true;
    if (name.starts_with("St")) {
        add("std");
        name.remove_prefix(2);
        isFirst = false;
    }
    while (!name.empty()) {
        const std::string_view identifier = TakeIdentifier(name);
        if (identifier.empty()) {
            return false;
        }
        if (!isFirst) {
            add("::");
        }
        isFirst = false;
        add(identifier.starts_with("_GLOBAL__N") ? std::string_view("(anonymous namespace)") : identifier);
    }
    return !isFirst;
}

}  // namespace

LastWords::LastWords(const char* reason) noexcept {
    BeginPart("ZarvoConcurrency ends the process: ", kReasonRoom);
    AddText(reason);
}

void LastWords::AddTask(const wchar_t* name) noexcept {
    if (name == nullptr || *name == L'\0') {
        return;
    }
    if (m_isInTask) {
        Add(" > ");
    } else {
        BeginPart("; task [", kTaskRoom);
        m_isInTask = true;
    }
    AddText(name);
}

void LastWords::CloseTask() noexcept {
    if (m_isInTask) {
        m_isInTask = false;
        BeginPart("]", 0);
    }
}

void LastWords::AddThread(DWORD id) noexcept {
    CloseTask();
    BeginPart("; thread [0x", kThreadRoom);
    AddNumber(id, 16);
    Add(" (");
    AddNumber(id, 10);
    Add(")]");
    AddDescription(id);
}

void LastWords::AddDescription(DWORD thread) noexcept {
    if (g_queryThread == nullptr) {
        return;
    }
    // On purpose not closed: the process ends.
    const HANDLE handle = thread == ::GetCurrentThreadId()
                              ? ::GetCurrentThread()
                              : ::OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, thread);
    ThreadName name{};
    if (handle != nullptr && g_queryThread(handle, kThreadName, &name, sizeof(name) - sizeof(wchar_t), nullptr) >= 0 &&
        name.length != 0) {
        name.text[name.length / sizeof(wchar_t)] = L'\0';
        Add(" \"");
        AddText(name.text);
        BeginPart("\"", 0);
    }
}

void LastWords::AddException() noexcept {
    CloseTask();
    try {
        throw;
    } catch (const ErrorStorage& error) {
        AddType(typeid(error).name());
        BeginPart(": ", kCapacity);
        if (error.message[0] != L'\0') {
            AddText(error.message);  // what() has it in some code page, or not at all
        } else {
            AddText(error.what());
        }
    } catch (const std::exception& error) {
        AddType(typeid(error).name());
        BeginPart(": ", kCapacity);
        AddText(error.what());
    } catch (...) {
        AddType(TypeBeingHandled());
    }
}

void LastWords::AddType(const char* name) noexcept {
    BeginPart("; ", kTypeRoom);
    if (ReadClassName(name, [](std::string_view) {})) {
        ReadClassName(name, [this](std::string_view piece) { Add(piece); });
    } else {
        AddText(name);
    }
}

void LastWords::EndProcess() noexcept {
    CloseTask();
    m_text[m_size++] = '\n';
    m_text[m_size] = '\0';
    const HANDLE standardError = ::GetStdHandle(STD_ERROR_HANDLE);
    if (standardError != nullptr && standardError != INVALID_HANDLE_VALUE) {
        DWORD written = 0;
        ::WriteFile(standardError, m_text, static_cast<DWORD>(m_size), &written, nullptr);
    }
    ::OutputDebugStringA(m_text);
    m_text[m_size - 1] = '\0';  // the line feed
    if (IsTracing()) {
        Trace(TracePhase::Instant, "process", L"process ends", {{.key = "why", .utf8 = m_text}});
    }
    std::terminate();
}

// The heading is short, and written in any case: room is kept for it.
void LastWords::BeginPart(const char* heading, std::size_t room) noexcept {
    constexpr std::size_t kKept = 64;
    m_isCut = false;
    m_end = kCapacity;
    Add(heading);
    m_end = (std::min)(m_size + room, kCapacity - kKept);
}

// All of it or nothing.
void LastWords::Add(std::string_view characters) noexcept {
    if (m_isCut) {
        return;
    }
    m_isCut = characters.size() > m_end - (std::min)(m_size, m_end);
    const std::string_view added = m_isCut ? kCutMark : characters;
    if (added.size() < kCapacity - m_size - 1) {
        m_size += added.copy(m_text + m_size, added.size());
    }
}

void LastWords::AddText(const char* text) noexcept {
    if (text == nullptr) {
        return;
    }
    while (*text != '\0') {
        const Character next = NextCharacter(text);
        AddCodePoint(next.code);
        text += next.length;
    }
}

void LastWords::AddText(const wchar_t* text) noexcept {
    for (; *text != L'\0'; ++text) {
        const auto unit = static_cast<char32_t>(*text);
        if (IsHighSurrogate(unit) && IsLowSurrogate(static_cast<char32_t>(text[1]))) {
            ++text;
            AddCodePoint(0x10000U + ((unit - 0xD800U) << 10U) + (static_cast<char32_t>(*text) - 0xDC00U));
        } else {
            AddCodePoint(IsHighSurrogate(unit) || IsLowSurrogate(unit) ? kReplacement : unit);
        }
    }
}

// Returns false for a character that is no control character.
bool LastWords::AddEscaped(char32_t code) noexcept {
    constexpr char kDigits[] = "0123456789abcdef";
    switch (code) {
        case U'\n': Add("\\n"); return true;
        case U'\r': Add("\\r"); return true;
        case U'\t': Add("\\t"); return true;
        default: break;
    }
    if (code >= U' ' && (code < 0x7F || code >= 0xA0)) {
        return false;
    }
    const char escaped[] = {'\\', 'x', kDigits[code >> 4U], kDigits[code & 0xFU]};
    Add({escaped, sizeof(escaped)});
    return true;
}

void LastWords::AddCodePoint(char32_t code) noexcept {
    if (AddEscaped(code)) {
        return;
    }
    const auto tail = [code](unsigned shift) { return static_cast<char>(0x80U | ((code >> shift) & 0x3FU)); };
    if (code < 0x80) {
        const char encoded[] = {static_cast<char>(code)};
        Add({encoded, sizeof(encoded)});
    } else if (code < 0x800) {
        const char encoded[] = {static_cast<char>(0xC0U | (code >> 6U)), tail(0)};
        Add({encoded, sizeof(encoded)});
    } else if (code < 0x10000) {
        const char encoded[] = {static_cast<char>(0xE0U | (code >> 12U)), tail(6), tail(0)};
        Add({encoded, sizeof(encoded)});
    } else {
        const char encoded[] = {static_cast<char>(0xF0U | (code >> 18U)), tail(12), tail(6), tail(0)};
        Add({encoded, sizeof(encoded)});
    }
}

void LastWords::AddNumber(DWORD number, int base) noexcept {
    char digits[24];
    const auto result = std::to_chars(std::begin(digits), std::end(digits), number, base);
    Add({digits, static_cast<std::size_t>(result.ptr - digits)});
}

void EndProcessByException(const char* reason, const wchar_t* task) noexcept {
    LastWords words(reason);
    words.AddTask(task);
    words.AddThread(::GetCurrentThreadId());
    words.AddException();
    words.EndProcess();
}

void TaskNote::Take(const wchar_t* name) noexcept {
    std::size_t length = 0;
    for (; length + 1 < kCapacity && name[length] != L'\0'; ++length) {
        m_name[length] = name[length];
    }
    m_name[length] = L'\0';
}

}  // namespace Orvane::Internal
