// The memory through which a process answers zarvo-ps (programs/zarvo_ps), and the names under which both find it.
//
// The process makes the memory and an event. The tool sets the event, waits until `sequence` has gone on by two and is even, and
// copies the text. It only reads, so it can spoil nothing; it trusts nothing, so the process cannot spoil the tool.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Orvane::Internal {

struct FiguresAnswer {
    static constexpr std::uint32_t kMagic = 0x7376725A;  // "Zrvs"
    static constexpr std::uint32_t kVersion = 1;
    static constexpr std::size_t kRoom = std::size_t{256} * 1024;

    std::uint32_t magic;
    std::uint32_t version;
    std::atomic<std::uint32_t> sequence;  // odd while the text is written
    std::uint32_t length;  // of the text, in bytes
    char text[kRoom];  // UTF-8, without a terminator

    // In the session's own namespace: "ask" is the event, "answer" the memory.
    static std::wstring NameOf(const wchar_t* what, unsigned long process) {
        return L"Local\\ZarvoPs-" + std::to_wstring(process) + L"-" + what;
    }
};

}  // namespace Orvane::Internal
