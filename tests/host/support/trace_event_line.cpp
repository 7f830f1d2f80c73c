// Reads the lines that the library writes: a flat object of texts and numbers, whose "args" are another.
#include "tests/support/trace_event_line.h"

#include <cstddef>
#include <map>
#include <stdexcept>
#include <string>

namespace Zarvo::Test {

namespace {

using Fields = std::map<std::string, std::string>;

class LineReader {
  public:
    explicit LineReader(const std::string& line) : m_line(line) {}

    TraceEvent Event() {
        TraceEvent event;
        const Fields fields = Object(&event.arguments);
        if (m_next != m_line.size()) {
            Refuse();
        }
        event.time = std::stod(fields.at("ts"));
        event.phase = fields.at("ph");
        event.process = std::stoll(fields.at("pid"));
        event.thread = std::stoll(fields.at("tid"));
        event.category = fields.at("cat");
        event.name = fields.at("name");
        if (const auto id = fields.find("id"); id != fields.end()) {
            event.id = id->second;
        }
        return event;
    }

  private:
    [[noreturn]] void Refuse() const { throw std::runtime_error("not an event: " + m_line); }

    char Next() {
        if (m_next == m_line.size()) {
            Refuse();
        }
        return m_line[m_next++];
    }

    void Expect(char expected) {
        if (Next() != expected) {
            Refuse();
        }
    }

    bool IsNext(char expected) const { return m_next < m_line.size() && m_line[m_next] == expected; }

    // `inner` gets what stands in the object inside, if there may be one.
    Fields Object(Fields* inner) {
        Fields fields;
        Expect('{');
        do {
            const std::string key = Text();
            Expect(':');
            if (IsNext('{') && inner != nullptr) {
                *inner = Object(nullptr);
            } else {
                fields[key] = IsNext('"') ? Text() : Number();
            }
        } while (IsNext(',') && Next() == ',');
        Expect('}');
        return fields;
    }

    std::string Text() {
        std::string text;
        Expect('"');
        for (char c = Next(); c != '"'; c = Next()) {
            text += c != '\\' ? c : IsNext('u') ? Code() : Next();
        }
        return text;
    }

    // Of a control character.
    char Code() {
        const std::string digits = m_line.substr(m_next + 1, 4);
        m_next += 1 + digits.size();
        return static_cast<char>(std::stoi(digits, nullptr, 16));
    }

    std::string Number() {
        const std::size_t end = m_line.find_first_of(",}", m_next);
        const std::string number = m_line.substr(m_next, end - m_next);
        m_next += number.size();
        return number;
    }

    const std::string& m_line;
    std::size_t m_next = 0;
};

}  // namespace

TraceEvent ParseTraceLine(const std::string& line) {
    try {
        return LineReader(line).Event();
    } catch (const std::logic_error& error) {  // a field that is missing, or is no number
        throw std::runtime_error(error.what() + (": " + line));
    }
}

}  // namespace Zarvo::Test
