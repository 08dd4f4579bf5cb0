#include "ToolServer/JsonMessage.h"

#include <nlohmann/json.hpp>

namespace mnemora {
namespace {

using nlohmann::json;

/// The library parses without recursion but writes with it, so depth is bounded before parsing.
constexpr int maxDepth = 512;

bool nestsTooDeep(std::string_view text) {
    int depth = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > maxDepth)
                return true;
        } else if (c == ']' || c == '}') {
            --depth;
        }
    }
    return false;
}

/// Remembers how the last top-level "id" was written when it is a number beyond the integers.
class IdNumberFinder : public json::json_sax_t {
  public:
    std::string written;

    bool null() override { return true; }
    bool boolean(bool /*value*/) override { return true; }
    bool number_integer(number_integer_t /*value*/) override { return true; }
    bool number_unsigned(number_unsigned_t /*value*/) override { return true; }
    bool number_float(number_float_t /*value*/, const string_t& text) override {
        if (depth_ == 1 && keyIsId_)
            written = text;
        return true;
    }
    bool string(string_t& /*value*/) override { return true; }
    bool binary(binary_t& /*value*/) override { return true; }
    bool start_object(std::size_t /*size*/) override { return enter(); }
    bool key(string_t& name) override {
        if (depth_ == 1)
            keyIsId_ = name == "id";
        return true;
    }
    bool end_object() override { return leave(); }
    bool start_array(std::size_t /*size*/) override { return enter(); }
    bool end_array() override { return leave(); }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& /*error*/) override {
        return false;
    }

  private:
    bool enter() {
        ++depth_;
        return true;
    }
    bool leave() {
        --depth_;
        return true;
    }

    int depth_ = 0;
    bool keyIsId_ = false;
};

} // namespace

std::optional<json> parseJson(std::string_view line) {
    // The library takes a NUL for the end of the text.
    if (line.find('\0') != std::string_view::npos || nestsTooDeep(line))
        return std::nullopt;
    json value = json::parse(line, nullptr, false);
    if (value.is_discarded())
        return std::nullopt;
    return value;
}

std::optional<std::string> idText(const json& message, std::string_view line) {
    const auto id = message.find("id");
    if (id == message.end())
        return std::nullopt;
    if (!id->is_number_float())
        return compactJson(*id);
    IdNumberFinder finder;
    json::sax_parse(line, &finder);
    return finder.written.empty() ? compactJson(*id) : finder.written;
}

std::string compactJson(const json& value) {
    const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
    std::string escaped;
    escaped.reserve(text.size() + text.size() / 64);
    for (const char c : text) {
        if (c == '/')
            escaped += '\\';
        escaped += c;
    }
    return escaped;
}

} // namespace mnemora
