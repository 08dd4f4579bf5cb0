#include "ToolServer/MCPServer.h"

#include "Log.h"
#include "Text/Encoding.h"
#include "ToolServer/JsonMessage.h"
#include "ToolServer/LineReader.h"

#include <exception>
#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace mnemora {
namespace {

using nlohmann::json;

constexpr int methodNotFound = -32601;

const json& initializeResult() {
    static const json result = {{"protocolVersion", "2024-11-05"},
                                {"capabilities", {{"tools", json::object()}}},
                                {"serverInfo", {{"name", "mnemora"}, {"version", "0.1.0"}}}};
    return result;
}

json paramsOf(const json& message) {
    const auto params = message.find("params");
    return params != message.end() && params->is_object() ? *params : json::object();
}

} // namespace

MCPServer::MCPServer(MnemoraStore& store, int replies) : engine_(store), replies_(replies) {}

FileDescriptor MCPServer::keepStandardOutputForReplies() {
    FileDescriptor replies(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return replies;
}

void MCPServer::run() {
    logInfo("MCP server up (stdio). Tools: search_memory, latest_context, active_threads");
    LineReader lines(STDIN_FILENO);
    try {
        while (!clientGone_) {
            const auto line = lines.next();
            if (!line)
                return;
            handleLine(*line);
        }
    } catch (const std::exception&) {
        // No memory is left even for a line: the session ends as it does at the end of input.
    }
}

void MCPServer::handleLine(std::string_view line) {
    if (line.empty())
        return;
    try {
        const std::string text = repairedUtf8(line);
        const auto message = parseJson(text);
        if (message && message->is_object())
            handle(*message, idText(*message, text));
    } catch (const std::exception&) {
        // A message too large for the memory left is dropped like one that can't be read.
    }
}

void MCPServer::handle(const json& message, const Id& id) {
    const auto member = message.find("method");
    const std::string method =
        member != message.end() && member->is_string() ? member->get<std::string>() : "";
    if (method == "initialize")
        reply(id, initializeResult());
    else if (method == "tools/list")
        reply(id, {{"tools", toolSpecs()}});
    else if (method == "tools/call")
        handleToolCall(id, paramsOf(message));
    else if (method == "ping")
        reply(id, json::object());
    else if (method != "notifications/initialized" && id)
        replyError(id, methodNotFound, "Method not found");
}

void MCPServer::reply(const Id& id, const json& result) {
    send(id, "result", result);
}

void MCPServer::replyError(const Id& id, int code, const std::string& message) {
    send(id, "error", {{"code", code}, {"message", message}});
}

void MCPServer::send(const Id& id, std::string_view member, const json& value) {
    std::string line = R"({"jsonrpc":"2.0","id":)";
    line += id.value_or("null");
    line.append(",\"").append(member).append("\":").append(compactJson(value)).append("}\n");
    if (!writeAll(replies_, line))
        clientGone_ = true;
}

} // namespace mnemora
