#include "examples/file_digests/messages.h"

#include <string>

#include "examples/file_digests/file_error.h"

namespace FileDigests {

namespace {

// The room behind the status line for the "^C" with which some terminals answer Ctrl+C.
constexpr std::size_t kEcho = 2;

}  // namespace

Messages::Messages() : m_output(STD_ERROR_HANDLE) {}

void Messages::Say(std::string_view message) {
    const std::lock_guard lock(m_mutex);
    Draw("");
    Write("file_digests: " + std::string(message) + "\n");
}

// One less than the console has: writing into the last column moves some of them to the next line.
int Messages::Columns() const {
    return m_output.Columns() - 1 - static_cast<int>(kEcho);
}

void Messages::ShowStatus(std::string_view status) {
    const std::lock_guard lock(m_mutex);
    Draw(status);
}

// Needs m_mutex.
void Messages::Draw(std::string_view status) {
    if (status.empty() && m_statusLength == 0) {
        return;
    }
    std::string line = "\r" + std::string(status);
    if (status.empty()) {
        line += std::string(m_statusLength + kEcho, ' ') + "\r";
    } else if (status.size() < m_statusLength) {
        line.append(m_statusLength - status.size(), ' ');
    }
    Write(line);
    m_statusLength = status.size();
}

// Needs m_mutex.
void Messages::Write(std::string_view text) {
    try {
        m_output.Write(text);
    } catch (const FileError&) {  // NOLINT(bugprone-empty-catch): there is nowhere left to say it
    }
}

}  // namespace FileDigests
