#include "tests/schedules/controller/report.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include <unistd.h>
#include <unwind.h>

#include "tests/schedules/controller/controller.h"

namespace Schedules {

Report* g_report = nullptr;

namespace {

struct Step {
    static constexpr std::size_t kDepth = 24;

    int thread;
    std::int64_t time;
    const char* what;
    const void* object;
    std::array<std::uintptr_t, kDepth> frames;
};

constexpr std::size_t kMostSteps = 20'000;
Step* g_steps = nullptr;
std::size_t g_stepCount = 0;

void Add(const char* format, va_list arguments) {
    const std::size_t room = sizeof(g_report->text) - g_report->length;
    const int length = std::vsnprintf(g_report->text + g_report->length, room, format, arguments);
    g_report->length += static_cast<std::uint32_t>(std::clamp(length, 0, static_cast<int>(room) - 1));
}

struct Frames {
    std::array<std::uintptr_t, Step::kDepth>* frames;
    std::size_t count;
};

_Unwind_Reason_Code AddFrame(_Unwind_Context* context, void* argument) {
    auto& frames = *static_cast<Frames*>(argument);
    if (frames.count == frames.frames->size()) {
        return _URC_END_OF_STACK;
    }
    (*frames.frames)[frames.count++] = _Unwind_GetIP(context);
    return _URC_NO_REASON;
}

// Of blocks, by place and thread. An older one may be overwritten.
Step* g_uses = nullptr;
constexpr std::size_t kUses = 1 << 14;

Step& UseOf(const void* block, int thread) {
    const auto key = reinterpret_cast<std::uintptr_t>(block) / 16 * 31 + static_cast<std::uintptr_t>(thread);
    return g_uses[key % kUses];
}

using Lines = std::map<std::uintptr_t, std::string>;

// Where the frame is in the sources of the library or of a scenario; empty if it is elsewhere.
std::string OwnLine(const std::string& function, const std::string& place) {
    for (const char* const folder : {"/concurrency/", "/tests/schedules/scenarios/"}) {
        const std::size_t begin = place.find(folder);
        if (begin != std::string::npos) {
            const std::size_t column = place.rfind(':');
            return place.substr(begin + 1, column - begin - 1) + "  " + function.substr(0, 90);
        }
    }
    return {};
}

// Inlined functions stand before those that they are in.
Lines ReadLines(const std::vector<std::uintptr_t>& addresses) {
    Lines lines;
    const std::string file = "/tmp/schedules-" + std::to_string(getpid());
    FILE* const questions = std::fopen(file.c_str(), "w");
    if (questions == nullptr) {
        return lines;
    }
    for (const std::uintptr_t address : addresses) {
        std::fprintf(questions, "0x%lx\n", address);
    }
    std::fclose(questions);
    const std::string command =
        "/usr/lib/llvm-19/bin/llvm-symbolizer --obj=/proc/" + std::to_string(getpid()) + "/exe --inlines <" + file;
    FILE* const answers = popen(command.c_str(), "r");
    std::size_t next = 0;
    std::string function;
    char text[4096];
    while (answers != nullptr && next < addresses.size() && std::fgets(text, sizeof(text), answers) != nullptr) {
        std::string line = text;
        line.pop_back();
        if (line.empty()) {
            ++next;
        } else if (function.empty()) {
            function = line;
        } else {
            std::string& known = lines[addresses[next]];
            if (known.empty()) {
                known = OwnLine(function, line);
            }
            function.clear();
        }
    }
    if (answers != nullptr) {
        pclose(answers);
    }
    unlink(file.c_str());
    return lines;
}

}  // namespace

void AddToReport(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Add(format, arguments);
    va_end(arguments);
}

void Fail(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    Add(format, arguments);
    va_end(arguments);
    g_report->hasFailed = true;
    PrintTrace();
    _exit(1);
}

void TraceFromNowOn() {
    g_steps = static_cast<Step*>(std::calloc(kMostSteps, sizeof(Step)));
    g_stepCount = 0;
    g_uses = static_cast<Step*>(std::calloc(kUses, sizeof(Step)));
}

void TraceUse(const void* block, int thread) {
    if (g_uses != nullptr) {
        Step& use = UseOf(block, thread);
        use = {thread, Now(), "the use", block, {}};
        Frames frames{&use.frames, 0};
        _Unwind_Backtrace(&AddFrame, &frames);
    }
}

void ShowUse(const void* block, int thread) {
    if (g_uses != nullptr && g_stepCount + 1 < kMostSteps && UseOf(block, thread).object == block) {
        Trace("frees", block, nullptr);
        g_steps[g_stepCount++] = UseOf(block, thread);
    }
}

void Trace(const char* what, const void* object, const void*) {
    if (g_steps == nullptr || g_stepCount == kMostSteps) {
        return;
    }
    Step& step = g_steps[g_stepCount++];
    step = {ThreadNumber(), Now(), what, object, {}};
    Frames frames{&step.frames, 0};
    _Unwind_Backtrace(&AddFrame, &frames);
}

void PrintTrace() {
    if (g_steps == nullptr) {
        return;
    }
    LeaveControl();
    std::vector<std::uintptr_t> addresses;
    for (std::size_t i = 0; i < g_stepCount; ++i) {
        for (const std::uintptr_t frame : g_steps[i].frames) {
            if (frame != 0) {
                addresses.push_back(frame - 1);
            }
        }
    }
    std::ranges::sort(addresses);
    const auto same = std::ranges::unique(addresses);
    addresses.erase(same.begin(), same.end());
    const Lines lines = ReadLines(addresses);
    std::map<const void*, int> objects;
    std::printf("  step thread   virtual ms  what                           object  where\n");
    for (std::size_t i = 0; i < g_stepCount; ++i) {
        const Step& step = g_steps[i];
        const int object = step.object == nullptr
                               ? 0
                               : objects.try_emplace(step.object, static_cast<int>(objects.size()) + 1).first->second;
        std::string place;
        for (const std::uintptr_t frame : step.frames) {
            const auto line = lines.find(frame - 1);
            if (frame != 0 && line != lines.end() && !line->second.empty()) {
                place = line->second;
                break;
            }
        }
        std::printf("  %4zu %6d %12.3f  %-30s %6d  %s\n", i + 1, step.thread, static_cast<double>(step.time) / 1e6,
                    step.what, object, place.c_str());
    }
    if (g_report->hasFailed) {
        std::printf("  %s\n", g_report->text);
    }
    std::fflush(stdout);
}

}  // namespace Schedules
