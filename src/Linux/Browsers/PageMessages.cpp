#include "Linux/Browsers/PageMessages.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace mnemora::browsers {
namespace {

using Json = nlohmann::json;

/// The parser has already refused invalid UTF-8, so only NUL characters are left to be removed.
std::optional<std::string> textAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    if (found == object.end() || !found->is_string())
        return std::nullopt;
    auto text = found->get<std::string>();
    std::erase(text, '\0');
    return text;
}

bool flagAt(const Json& object, const char* key) {
    const auto found = object.find(key);
    return found != object.end() && found->is_boolean() && found->get<bool>();
}

std::vector<std::string> textsAt(const Json& object, const char* key) {
    std::vector<std::string> texts;
    const auto found = object.find(key);
    if (found == object.end() || !found->is_array())
        return texts;
    for (const auto& each : *found)
        if (each.is_string())
            texts.push_back(each.get<std::string>());
    return texts;
}

std::optional<PageMessage> helloFrom(const Json& hello) {
    if (auto browser = hello.is_object() ? textAt(hello, "browser") : std::nullopt)
        return Hello{.browser = std::move(*browser)};
    return std::nullopt;
}

std::optional<PageMessage> stateFrom(const Json& state) {
    if (!state.is_object())
        return std::nullopt;
    const auto used = state.find("used");
    return TabState{.focused = flagAt(state, "focused"),
                    .address = textAt(state, "address"),
                    .lastUsed = used != state.end() && used->is_number() ? used->get<double>() : 0};
}

std::optional<PageMessage> answerFrom(const Json& answer) {
    const auto request = answer.find("id");
    if (request == answer.end() || !request->is_number_unsigned())
        return std::nullopt;
    auto parsed = refusal(request->get<std::uint64_t>());
    parsed.focused = flagAt(answer, "focused");
    auto address = textAt(answer, "address");
    if (answer.contains("refused") || !address)
        return parsed;
    parsed.refused = false;
    parsed.address = std::move(address);
    parsed.titles = textsAt(answer, "titles");
    parsed.text = textAt(answer, "text");
    return parsed;
}

} // namespace

PageAnswer refusal(std::uint64_t request) {
    PageAnswer answer;
    answer.request = request;
    answer.refused = true;
    return answer;
}

std::string requestMessage(std::uint64_t request, PageQuestion question, bool focused) {
    return Json{{"id", request},
                {"ask", question == PageQuestion::text ? "text" : "address"},
                {"focused", focused}}
        .dump();
}

std::string stateRequestMessage() {
    return Json{{"ask", "state"}}.dump();
}

std::string helloMessage(const Hello& hello) {
    return Json{{"hello", {{"browser", hello.browser}}}}.dump(-1, ' ', false,
                                                              Json::error_handler_t::replace);
}

std::optional<PageMessage> parsePageMessage(std::string_view message) {
    const auto parsed = Json::parse(message, nullptr, false);
    if (!parsed.is_object())
        return std::nullopt;
    if (const auto hello = parsed.find("hello"); hello != parsed.end())
        return helloFrom(*hello);
    if (const auto state = parsed.find("state"); state != parsed.end())
        return stateFrom(*state);
    return answerFrom(parsed);
}

} // namespace mnemora::browsers
