// The three tools of the session: their catalogue, their arguments, the text of their answers.

#include "ToolServer/MCPServer.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <limits>
#include <nlohmann/json.hpp>

namespace mnemora {
namespace {

using nlohmann::json;

constexpr int unknownTool = -32602;

/// An integral JSON number that fits 64 bits, 3.0 included; else the default.
std::int64_t integerArgument(const json& arguments, const char* name, std::int64_t otherwise) {
    const auto member = arguments.find(name);
    if (member == arguments.end() || !member->is_number())
        return otherwise;
    if (member->is_number_unsigned()) {
        const auto value = member->get<std::uint64_t>();
        constexpr auto most = std::uint64_t{std::numeric_limits<std::int64_t>::max()};
        return value <= most ? static_cast<std::int64_t>(value) : otherwise;
    }
    if (member->is_number_integer())
        return member->get<std::int64_t>();
    const auto value = member->get<double>();
    constexpr double beyond = 0x1p63;
    const bool fits = value >= -beyond && value < beyond && std::trunc(value) == value;
    return fits ? static_cast<std::int64_t>(value) : otherwise;
}

double numberArgument(const json& arguments, const char* name, double otherwise) {
    const auto member = arguments.find(name);
    return member != arguments.end() && member->is_number() ? member->get<double>() : otherwise;
}

std::string textArgument(const json& arguments, const char* name) {
    const auto member = arguments.find(name);
    return member != arguments.end() && member->is_string() ? member->get<std::string>() : "";
}

/// ISO 8601 in UTC with whole seconds. Times outside the years that the format can write are
/// shown as the nearest that it can.
std::string internetDateTime(double ts) {
    using namespace std::chrono;
    constexpr double earliest = -62135596800; // 0001-01-01T00:00:00Z
    constexpr double latest = 253402300799;   // 9999-12-31T23:59:59Z
    const double bounded = std::isnan(ts) ? 0 : std::clamp(std::floor(ts), earliest, latest);
    const sys_seconds moment{seconds(static_cast<std::int64_t>(bounded))};
    const auto day = floor<days>(moment);
    const year_month_day date{day};
    const hh_mm_ss time{moment - day};
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02u-%02uT%02d:%02d:%02dZ", int{date.year()},
                  unsigned{date.month()}, unsigned{date.day()},
                  static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()),
                  static_cast<int>(time.seconds().count()));
    return text.data();
}

std::string block(const QueryEngine::Row& row) {
    std::string text = "[" + internetDateTime(row.ts) + "] " + row.source;
    for (const auto* field : {&row.app, &row.person})
        if (*field)
            text += " · " + **field;
    for (const auto* field : {&row.title, &row.url})
        if (*field)
            text += "\n  " + **field;
    if (row.snippet && !row.snippet->empty()) {
        std::string oneLine = *row.snippet;
        std::ranges::replace(oneLine, '\n', ' ');
        text += "\n  " + oneLine;
    }
    return text;
}

} // namespace

const json& MCPServer::toolSpecs() {
    static const json integer = {{"type", "integer"}};
    static const json specs = json::array(
        {{{"name", "search_memory"},
          {"description", "Full-text search the user's captured activity (messages, pages, docs, "
                          "on-screen text)."},
          {"inputSchema",
           {{"type", "object"},
            {"properties", {{"query", {{"type", "string"}}}, {"limit", integer}}},
            {"required", json::array({"query"})}}}},
         {{"name", "latest_context"},
          {"description", "Most recent captured events with full content — what's on screen / "
                          "happened just now."},
          {"inputSchema", {{"type", "object"}, {"properties", {{"limit", integer}}}}}},
         {{"name", "active_threads"},
          {"description",
           "Recently-active apps/people/threads — the orient step for broad questions."},
          {"inputSchema",
           {{"type", "object"},
            {"properties", {{"hours", {{"type", "number"}}}, {"limit", integer}}}}}}});
    return specs;
}

void MCPServer::handleToolCall(const Id& id, const json& params) {
    const std::string name = textArgument(params, "name");
    const auto member = params.find("arguments");
    const json arguments = member != params.end() && member->is_object() ? *member : json::object();
    std::vector<QueryEngine::Row> rows;
    if (name == "search_memory") {
        rows = engine_.searchMemory(textArgument(arguments, "query"),
                                    integerArgument(arguments, "limit", 10));
    } else if (name == "latest_context") {
        rows = engine_.latestContext(integerArgument(arguments, "limit", 5));
    } else if (name == "active_threads") {
        rows = engine_.activeThreads(numberArgument(arguments, "hours", 6.0),
                                     integerArgument(arguments, "limit", 15));
    } else {
        replyError(id, unknownTool, "Unknown tool " + name);
        return;
    }
    reply(id, {{"content", json::array({{{"type", "text"}, {"text", render(rows)}}})}});
}

std::string MCPServer::render(const std::vector<QueryEngine::Row>& rows) {
    if (rows.empty())
        return "No matching activity in the mnemora.";
    std::string text;
    for (const auto& row : rows)
        text += (text.empty() ? "" : "\n\n") + block(row);
    return text;
}

} // namespace mnemora
