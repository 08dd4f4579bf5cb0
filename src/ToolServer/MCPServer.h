#pragma once
// The tool server: Model Context Protocol, version 2024-11-05 (JSON-RPC 2.0), one message per
// line on standard input and output (https://modelcontextprotocol.io/specification/2024-11-05).
// It keeps no protocol state: every message is handled alike whatever came before.

#include "Recall/QueryEngine.h"
#include "Support/FileDescriptor.h"

#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora {

/// One session over one store. Everything runs on the thread that calls `run`.
class MCPServer {
  public:
    /// Reads standard input, writes replies to `replies`: keepStandardOutputForReplies' answer in
    /// the program, any descriptor in tests (not owned).
    MCPServer(MnemoraStore& store, int replies);

    /// Sets the real standard output aside and lets descriptor 1 be standard error, so that no
    /// library can ever write into the protocol. Called first of all in server mode. Without a
    /// free descriptor the answer is none, and replies go nowhere.
    [[nodiscard]] static FileDescriptor keepStandardOutputForReplies();

    /// Writes the banner, then serves lines until the input ends or nobody reads the replies.
    void run();

    /// Handles one line; at most one reply. Lines that are no JSON object are passed over.
    void handleLine(std::string_view line);

    /// The text that a tool answers for its rows.
    [[nodiscard]] static std::string render(const std::vector<QueryEngine::Row>& rows);

  private:
    /// A request's id as JSON text, echoed unchanged; absent when the message had none.
    using Id = std::optional<std::string>;

    void handle(const nlohmann::json& message, const Id& id);
    void handleToolCall(const Id& id, const nlohmann::json& params);
    void reply(const Id& id, const nlohmann::json& result);
    void replyError(const Id& id, int code, const std::string& message);
    void send(const Id& id, std::string_view member, const nlohmann::json& value);
    [[nodiscard]] static const nlohmann::json& toolSpecs();

    QueryEngine engine_;
    int replies_;
    bool clientGone_ = false;
};

} // namespace mnemora
