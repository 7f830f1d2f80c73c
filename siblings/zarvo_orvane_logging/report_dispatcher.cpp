#include "zarvo_orvane_logging/report_dispatcher.h"

#include <cstdarg>
#include <mutex>

#include <windows.h>

#include "zarvo_orvane_logging/environment_settings.h"
#include "zarvo_orvane_logging/last_error_keeper.h"
#include "zarvo_orvane_logging/recording_store.h"
#include "zarvo_orvane_logging/report_format.h"
#include "zarvo_orvane_logging/report_line.h"

namespace Orvane::Reports {

namespace {

unsigned long long Now() noexcept {
    FILETIME now;
    GetSystemTimePreciseAsFileTime(&now);
    return (static_cast<unsigned long long>(now.dwHighDateTime) << 32U) | now.dwLowDateTime;
}

}  // namespace

void ReportDispatcher::Dispatch(int severity, int kind, const wchar_t* category, const wchar_t* format,
                                va_list arguments) noexcept {
    const LastErrorKeeper lastError;
    ReadEnvironmentOnce();
    if (!Wants(severity)) {
        return;
    }
    const unsigned long long time = Now();
    const wchar_t* const shownFormat = format != nullptr ? format : L"(null)";
    WideText text;
    AppendMessage(shownFormat, arguments, text);
    text.Close({});
    Deliver({.time = time,
             .threadId = GetCurrentThreadId(),
             .severity = severity,
             .kind = kind,
             .category = category != nullptr ? category : L"(null)",
             .format = shownFormat,
             .text = text.Text()},
            arguments);
}

void ReportDispatcher::Deliver(const PendingReport& report, va_list arguments) noexcept {
    WideText line;
    ComposeLine(report, line);
    Utf8Text bytes;
    EncodeUtf8(line.Text(), bytes);
    LineBatches::Lock lock(m_lock);
    if (m_file.IsOpen() || m_sink == OrvaneLogging::Sink::StandardError) {
        m_batches.Write(lock, *this, bytes.Text());
    } else if (m_sink == OrvaneLogging::Sink::Recording && !KeepRecord(report, arguments)) {
        WriteToStandardError(bytes.Text());
    }
}

void ReportDispatcher::Write(std::string_view lines) noexcept {
    if (!m_file.IsOpen() || !m_file.Append(lines)) {
        WriteToStandardError(lines);
    }
}

void ReportDispatcher::SetSink(OrvaneLogging::Sink sink, LineFile file) noexcept {
    ReadEnvironmentOnce();
    LineBatches::Lock lock(m_lock);
    m_batches.Drain(lock, *this);
    m_file.Close();
    m_file = file;
    m_sink = sink;
    UpdateLowestWanted();
}

void ReportDispatcher::SetMinimumLevel(int severity) noexcept {
    ReadEnvironmentOnce();
    const std::lock_guard lock(m_lock);
    m_minimumLevel = severity;
    UpdateLowestWanted();
}

void ReportDispatcher::ReadEnvironmentOnce() noexcept {
    if (m_environmentRead.load(std::memory_order_acquire)) {
        return;
    }
    const std::lock_guard lock(m_lock);
    if (m_environmentRead.load(std::memory_order_relaxed)) {
        return;
    }
    const EnvironmentSettings settings = ReadEnvironmentSettings();
    m_sink = settings.sink;
    m_file = settings.file;
    m_minimumLevel = settings.minimumLevel;
    UpdateLowestWanted();
    m_environmentRead.store(true, std::memory_order_release);
}

void ReportDispatcher::UpdateLowestWanted() noexcept {
    const bool nowhere = m_sink == OrvaneLogging::Sink::None && !m_file.IsOpen();
    m_lowestWanted.store(nowhere ? std::numeric_limits<int>::max() : m_minimumLevel, std::memory_order_relaxed);
}

}  // namespace Orvane::Reports
