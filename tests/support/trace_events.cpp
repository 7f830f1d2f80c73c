#include "tests/support/trace_events.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>

#include "tests/support/trace_event_line.h"

namespace Zarvo::Test {

namespace {

std::string ReadWhole(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw std::runtime_error("there is no trace file");
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

bool IsBlank(const std::string& line) {
    return line.find_first_not_of(' ') == std::string::npos;
}

TraceEvents Parse(const std::string& text, bool mayBeTorn) {
    std::istringstream lines(text);
    std::string line;
    if (!std::getline(lines, line) || line != "[") {
        throw std::runtime_error("the first line is not [ but " + line);
    }
    TraceEvents events;
    bool isOver = false;
    while (std::getline(lines, line)) {
        if (IsBlank(line)) {
            isOver = true;
            continue;
        }
        const bool isLast = lines.eof();
        if (isLast && mayBeTorn) {
            break;
        }
        if (isOver || isLast || !line.ends_with("},")) {
            throw std::runtime_error("not a line of its own: " + line);
        }
        line.pop_back();
        events.push_back(ParseTraceLine(line));
    }
    return events;
}

std::string Describe(const TraceEvent& event) {
    return event.phase + " " + event.category + " [" + event.name + "] " + event.id + " of thread " +
           std::to_string(event.thread);
}

// The spans that are open.
class OpenSpans {
  public:
    void Take(const TraceEvent& event, std::vector<std::string>& problems) {
        if (event.phase == "B") {
            m_ofThreads[event.thread].push_back(event);
        } else if (event.phase == "E") {
            EndOnThread(event, problems);
        } else if (event.phase == "b") {
            if (!m_withId.emplace(KeyOf(event), event).second) {
                problems.push_back("begins twice: " + Describe(event));
            }
        } else if (event.phase == "e") {
            if (m_withId.erase(KeyOf(event)) == 0) {
                problems.push_back("has not begun: " + Describe(event));
            }
        }
    }

    void SayWhatIsLeft(std::vector<std::string>& problems) const {
        for (const auto& [thread, spans] : m_ofThreads) {
            for (const TraceEvent& span : spans) {
                problems.push_back("has not ended: " + Describe(span));
            }
        }
        for (const auto& [key, span] : m_withId) {
            problems.push_back("has not ended: " + Describe(span));
        }
    }

  private:
    static std::string KeyOf(const TraceEvent& event) { return event.category + "/" + event.id; }

    void EndOnThread(const TraceEvent& event, std::vector<std::string>& problems) {
        auto& spans = m_ofThreads[event.thread];
        if (spans.empty() || spans.back().name != event.name || spans.back().category != event.category) {
            problems.push_back("is not the innermost: " + Describe(event));
            return;
        }
        spans.pop_back();
    }

    std::map<std::int64_t, TraceEvents> m_ofThreads;
    std::map<std::string, TraceEvent> m_withId;
};

}  // namespace

TraceEvents ParseTrace(const std::string& text) {
    return Parse(text, false);
}

TraceEvents ReadTrace(const std::filesystem::path& file) {
    return Parse(ReadWhole(file), false);
}

TraceEvents ReadTraceOfKilled(const std::filesystem::path& file) {
    return Parse(ReadWhole(file), true);
}

std::vector<std::string> ProblemsIn(const TraceEvents& events) {
    std::vector<std::string> problems;
    OpenSpans open;
    double before = 0;
    for (const TraceEvent& event : events) {
        if (event.time < before) {
            problems.push_back("is earlier than the one before: " + Describe(event));
        }
        before = event.time;
        const bool hasId = event.phase == "b" || event.phase == "e";
        if (hasId == event.id.empty() || event.process == 0 || event.thread == 0 || event.category.empty()) {
            problems.push_back("lacks something: " + Describe(event));
        }
        open.Take(event, problems);
    }
    open.SayWhatIsLeft(problems);
    return problems;
}

TraceEvents Find(const TraceEvents& events, const std::string& phase, const std::string& name) {
    TraceEvents found;
    std::copy_if(events.begin(), events.end(), std::back_inserter(found),
                 [&](const TraceEvent& event) { return event.phase == phase && event.name == name; });
    return found;
}

}  // namespace Zarvo::Test
