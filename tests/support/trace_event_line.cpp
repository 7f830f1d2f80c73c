#include "tests/support/trace_event_line.h"

#include <stdexcept>

#include <nlohmann/json.hpp>

namespace Zarvo::Test {

namespace {

using Json = nlohmann::json;

std::string AsText(const Json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

TraceEvent EventOf(const Json& line) {
    TraceEvent event;
    event.time = line.at("ts").get<double>();
    event.phase = line.at("ph").get<std::string>();
    event.process = line.at("pid").get<std::int64_t>();
    event.thread = line.at("tid").get<std::int64_t>();
    event.category = line.at("cat").get<std::string>();
    event.name = line.at("name").get<std::string>();
    event.id = line.value("id", "");
    const Json arguments = line.value("args", Json::object());
    for (const auto& [key, value] : arguments.items()) {
        event.arguments[key] = AsText(value);
    }
    return event;
}

}  // namespace

TraceEvent ParseTraceLine(const std::string& line) {
    try {
        return EventOf(Json::parse(line));
    } catch (const Json::exception& error) {
        throw std::runtime_error(error.what() + (": " + line));
    }
}

}  // namespace Zarvo::Test
