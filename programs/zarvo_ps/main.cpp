// zarvo-ps PID: prints what the library does in a process, and has done, if that process was started with ZARVO_PS=1.
//
// It asks by an event and reads the answer from memory of the process's (concurrency/figures/figures_answer.h). It trusts neither
// the length nor the text that it finds there.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "concurrency/base/windows_api.h"
#include "concurrency/figures/figures_answer.h"

namespace {

using Orvane::Internal::FiguresAnswer;

constexpr int kNoAnswer = 1;
constexpr int kMisuse = 2;

// In ms. How long a process may take; how often the tool looks.
constexpr ULONGLONG kPatience = 10'000;
constexpr DWORD kLook = 5;

struct Close {
    void operator()(HANDLE handle) const { CloseHandle(handle); }
};
using Handle = std::unique_ptr<void, Close>;

struct Unmap {
    void operator()(const FiguresAnswer* answer) const { UnmapViewOfFile(answer); }
};
using Answer = std::unique_ptr<const FiguresAnswer, Unmap>;

int Fail(int code, const std::string& message) {
    std::fprintf(stderr, "zarvo-ps: %s\n", message.c_str());
    return code;
}

// What a terminal would take for a command is shown as '?'.
std::string Harmless(std::string_view text) {
    std::string result(text);
    for (std::size_t i = 0; i < result.size(); ++i) {
        const auto byte = static_cast<unsigned char>(result[i]);
        const auto next = static_cast<unsigned char>(i + 1 < result.size() ? result[i + 1] : 0);
        const bool isControl = (byte < 0x20 && byte != '\n') || byte == 0x7F;
        const bool isSecondControl = byte == 0xC2 && next >= 0x80 && next < 0xA0;  // U+0080 to U+009F
        if (isControl || isSecondControl) {
            result[i] = '?';
        }
        if (isSecondControl) {
            result[++i] = '?';
        }
    }
    return result;
}

// The text that came after `before`; nothing if it is just being written, or not there yet.
std::optional<std::string> TextAfter(const FiguresAnswer& answer, std::uint32_t before) {
    const std::uint32_t sequence = answer.sequence.load();
    if (sequence % 2 != 0 || sequence == before) {
        return std::nullopt;
    }
    const std::size_t length = answer.length < FiguresAnswer::kRoom ? answer.length : FiguresAnswer::kRoom;
    std::string text(answer.text, length);
    return answer.sequence.load() == sequence ? std::optional(std::move(text)) : std::nullopt;
}

int Ask(unsigned long process) {
    const std::string who = "process " + std::to_string(process);
    const Handle ask(OpenEventW(EVENT_MODIFY_STATE, FALSE, FiguresAnswer::NameOf(L"ask", process).c_str()));
    const Handle mapping(OpenFileMappingW(FILE_MAP_READ, FALSE, FiguresAnswer::NameOf(L"answer", process).c_str()));
    if (!ask || !mapping) {
        return Fail(kNoAnswer,
                    who +
                        " cannot be asked. It runs with another account or in another session, or was not started "
                        "with ZARVO_PS=1, or has not initialised the library.");
    }
    const Answer answer(
        static_cast<const FiguresAnswer*>(MapViewOfFile(mapping.get(), FILE_MAP_READ, 0, 0, sizeof(FiguresAnswer))));
    if (!answer || answer->magic != FiguresAnswer::kMagic || answer->version != FiguresAnswer::kVersion) {
        return Fail(kNoAnswer, who + " has another version of the library than this program.");
    }
    // What is written now was begun before the question.
    const std::uint32_t sequence = answer->sequence.load();
    const std::uint32_t before = sequence + sequence % 2;
    SetEvent(ask.get());
    for (const ULONGLONG begin = GetTickCount64(); GetTickCount64() - begin < kPatience; Sleep(kLook)) {
        if (const auto text = TextAfter(*answer, before)) {
            const std::string harmless = Harmless(*text);
            std::fwrite(harmless.data(), 1, harmless.size(), stdout);
            return 0;
        }
    }
    return Fail(kNoAnswer, who + " does not answer within ten seconds.");
}

}  // namespace

int main(int argc, char** argv) {
    char* end = nullptr;
    const unsigned long process = argc == 2 ? std::strtoul(argv[1], &end, 10) : 0;
    if (process == 0 || *end != '\0') {
        return Fail(kMisuse, "usage: zarvo-ps PID");
    }
    return Ask(process);
}
