#include "examples/file_digests/status_line.h"

#include <chrono>
#include <utility>

namespace FileDigests {

namespace {

// Often enough to look alive.
constexpr std::chrono::milliseconds kRedrawPeriod{100};

}  // namespace

StatusLine::StatusLine(Messages& messages, Text text) : m_messages(messages), m_text(std::move(text)) {
    if (m_messages.HasStatus()) {
        m_redraws.emplace(L"Status lines", 1);
        m_redraws->Schedule(L"Status line", kRedrawPeriod, kRedrawPeriod,
                            [this] { m_messages.ShowStatus(m_text(m_messages.Columns())); });
    }
}

// The group waits for a line that is being drawn, for as long as a person who marks text in the console holds it up.
StatusLine::~StatusLine() {
    m_redraws.reset();
    m_messages.ShowStatus("");
}

}  // namespace FileDigests
