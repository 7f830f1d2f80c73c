#include "zarvo_orvane_logging/orvane_logging.h"

#include <cstdarg>
#include <stdexcept>

#include "zarvo_orvane_logging/report_dispatcher.h"

namespace {

constinit Orvane::Reports::ReportDispatcher g_dispatcher;

}  // namespace

constinit OrvaneLogging g_OrvaneLogging;

void OrvaneLogging::Report(int severity, int kind, const wchar_t* category, const wchar_t* format, ...) noexcept {
    if (!g_dispatcher.Wants(severity)) {
        return;
    }
    va_list arguments;
    va_start(arguments, format);
    g_dispatcher.Dispatch(severity, kind, category, format, arguments);
    va_end(arguments);
}

void OrvaneLogging::SetSink(Sink sink) noexcept {
    g_dispatcher.SetSink(sink, {});
}

void OrvaneLogging::SetFileSink(const wchar_t* path) {
    if (path == nullptr) {
        throw std::invalid_argument("OrvaneLogging::SetFileSink: the path is null");
    }
    g_dispatcher.SetSink(Sink::None, Orvane::Reports::LineFile(path));
}

void OrvaneLogging::SetMinimumLevel(int severity) noexcept {
    g_dispatcher.SetMinimumLevel(severity);
}
