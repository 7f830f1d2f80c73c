#include "concurrency/figures/figures_reporter.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <cwchar>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include "concurrency/base/clock.h"
#include "concurrency/base/report.h"
#include "concurrency/base/utf8.h"
#include "concurrency/base/windows_api.h"
#include "concurrency/figures/figures.h"
#include "concurrency/figures/figures_answer.h"

namespace Orvane::Internal {

namespace {

constexpr const wchar_t* kCategory = L"Concurrency.Figures";

// Between the course of things, which is a record for every run, and what went wrong.
constexpr int kSeverity = 2;

// In ms. After each answer: who asks without end keeps no processor busy.
constexpr DWORD kPause = 100;

[[noreturn]] void ThrowLastError(const char* what) {
    throw std::system_error(static_cast<int>(::GetLastError()), std::system_category(), what);
}

// Empty if it is not set, or longer than any value that is understood.
std::wstring Variable(const wchar_t* name) {
    std::array<wchar_t, 32> value{};
    const DWORD length = ::GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
    return length < value.size() ? std::wstring(value.data(), length) : std::wstring(L"(too long)");
}

void Ignore(const wchar_t* name, const std::wstring& value, const wchar_t* what) {
    ReportNoThrow(4, 16, kCategory, L"%s: \"%s\" is not %s. It is ignored.", name, value.c_str(), what);
}

void SayLine() {
    ReportNoThrow(kSeverity, 16, kCategory, L"%s", ToLine(GetFigures()).c_str());
}

// As one record for each line, so that no line is torn.
void SayText(std::wstring_view text) {
    while (!text.empty()) {
        const std::size_t end = (std::min)(text.find(L'\n'), text.size());
        ReportNoThrow(kSeverity, 16, kCategory, L"%s", std::wstring(text.substr(0, end)).c_str());
        text.remove_prefix((std::min)(end + 1, text.size()));
    }
}

// As much of the text as there is room for, in whole lines.
std::string_view Fitting(std::string_view text) {
    if (text.size() <= FiguresAnswer::kRoom) {
        return text;
    }
    const std::size_t end = text.rfind('\n', FiguresAnswer::kRoom - 1);
    return text.substr(0, end == std::string_view::npos ? 0 : end + 1);
}

}  // namespace

FiguresSettings ReadFiguresSettings() noexcept {
    FiguresSettings settings;
    try {
        if (const std::wstring value = Variable(L"ZARVO_FIGURES"); !value.empty()) {
            wchar_t* end = nullptr;
            const long seconds = std::wcstol(value.c_str(), &end, 10);
            if (*end == L'\0' && seconds >= 1 && seconds <= 86'400) {
                settings.interval = std::chrono::seconds(seconds);
            } else {
                Ignore(L"ZARVO_FIGURES", value, L"a number of seconds from 1 to 86400");
            }
        }
        if (const std::wstring value = Variable(L"ZARVO_PS"); value == L"1") {
            settings.answers = true;
        } else if (!value.empty() && value != L"0") {
            Ignore(L"ZARVO_PS", value, L"0 or 1");
        }
    } catch (const std::bad_alloc&) {
        ReportNoThrow(4, 16, kCategory, L"ZARVO_FIGURES and ZARVO_PS: out of memory. They are ignored.");
    }
    return settings;
}

FiguresReporter::Event::Event(const wchar_t* name) : m_handle(::CreateEventW(nullptr, FALSE, FALSE, name)) {
    const DWORD error = ::GetLastError();
    if (m_handle == nullptr) {
        ThrowLastError("CreateEvent");
    }
    if (name != nullptr && error == ERROR_ALREADY_EXISTS) {
        ::CloseHandle(m_handle);
        throw std::system_error(static_cast<int>(error), std::system_category(), "CreateEvent");
    }
}

FiguresReporter::Event::~Event() {
    ::CloseHandle(m_handle);
}

// What zarvo-ps asks and reads. Objects of these names that are there already are of another program: no answer goes there.
class FiguresReporter::Channel {
  public:
    Channel()
        : m_ask(FiguresAnswer::NameOf(L"ask", ::GetCurrentProcessId()).c_str()),
          m_mapping(::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0, sizeof(FiguresAnswer),
                                         FiguresAnswer::NameOf(L"answer", ::GetCurrentProcessId()).c_str())) {
        const DWORD error = ::GetLastError();
        if (m_mapping == nullptr) {
            ThrowLastError("CreateFileMapping");
        }
        void* const view = error != ERROR_ALREADY_EXISTS
                               ? ::MapViewOfFile(m_mapping, FILE_MAP_WRITE, 0, 0, sizeof(FiguresAnswer))
                               : nullptr;
        if (view == nullptr) {
            ::CloseHandle(m_mapping);
            throw std::system_error(static_cast<int>(error), std::system_category(), "MapViewOfFile");
        }
        m_answer = ::new (view) FiguresAnswer;  // all zeros, but for what follows
        m_answer->version = FiguresAnswer::kVersion;
        m_answer->magic = FiguresAnswer::kMagic;
    }
    ~Channel() {
        ::UnmapViewOfFile(m_answer);
        ::CloseHandle(m_mapping);
    }
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    HANDLE Asked() const noexcept { return m_ask.Get(); }

    void Answer(std::string_view text) noexcept {
        const std::string_view fitting = Fitting(text);
        m_answer->sequence.fetch_add(1);
        std::memcpy(m_answer->text, fitting.data(), fitting.size());
        m_answer->length = static_cast<std::uint32_t>(fitting.size());
        m_answer->sequence.fetch_add(1);
    }

  private:
    const Event m_ask;
    const HANDLE m_mapping;
    FiguresAnswer* m_answer = nullptr;
};

std::unique_ptr<FiguresReporter::Channel> FiguresReporter::OpenChannel() noexcept {
    try {
        return std::make_unique<Channel>();
    } catch (const std::exception& failure) {
        ReportNoThrow(4, 16, kCategory, L"zarvo-ps gets no answer: %hs", failure.what());
        return nullptr;
    }
}

FiguresReporter::FiguresReporter(const FiguresSettings& settings)
    : m_interval(settings.interval), m_channel(settings.answers ? OpenChannel() : nullptr), m_stop(nullptr) {
    m_thread = NativeThread::Start([this] { Run(); }, "an exception has left the thread of the figures");
}

FiguresReporter::~FiguresReporter() {
    ::SetEvent(m_stop.Get());
    m_thread.Join();
}

void FiguresReporter::Run() noexcept {
    const std::array<HANDLE, 2> handles{m_stop.Get(), m_channel ? m_channel->Asked() : nullptr};
    auto next = MonotonicClock::now() + m_interval;
    for (;;) {
        DWORD wait = INFINITE;
        if (m_interval != m_interval.zero()) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(next - MonotonicClock::now());
            wait = static_cast<DWORD>((std::max)(left.count(), decltype(left.count()){0}));
        }
        const DWORD result = ::WaitForMultipleObjects(m_channel ? 2 : 1, handles.data(), FALSE, wait);
        if (result != WAIT_TIMEOUT && result != WAIT_OBJECT_0 + 1) {
            return;  // it is to stop, or cannot wait
        }
        try {
            if (result == WAIT_OBJECT_0 + 1) {
                const std::wstring text = ToText(GetFigures());
                m_channel->Answer(ToUtf8(text));
                SayText(text);
                if (::WaitForSingleObject(m_stop.Get(), kPause) != WAIT_TIMEOUT) {
                    return;
                }
            }
            if (m_interval != m_interval.zero() && MonotonicClock::now() >= next) {
                next = MonotonicClock::now() + m_interval;
                SayLine();
            }
        } catch (const std::exception& failure) {
            ReportNoThrow(4, 16, kCategory, L"The figures cannot be said: %hs", failure.what());
        }
    }
}

namespace {

// Without an owner: a client that never uninitialises keeps it until the process ends. Guarded by the lifetime's mutex.
FiguresReporter* g_reporter = nullptr;

}  // namespace

void StartFiguresReporter() noexcept {
    const FiguresSettings settings = ReadFiguresSettings();
    if (g_reporter != nullptr || (settings.interval == settings.interval.zero() && !settings.answers)) {
        return;
    }
    try {
        g_reporter = new FiguresReporter(settings);
    } catch (const std::exception& failure) {
        ReportNoThrow(4, 16, kCategory, L"The figures cannot be said: %hs", failure.what());
    }
}

void StopFiguresReporter() noexcept {
    delete std::exchange(g_reporter, nullptr);
}

}  // namespace Orvane::Internal
