#pragma once
// The other end of the page socket, for what no real browser does: lies, silence and garbage.

#include "Linux/Browsers/MessageFrames.h"
#include "Support/FileDescriptor.h"
#include "fakes/Eventually.h"
#include "fakes/TemporaryFolder.h"

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>

namespace mnemora::browsers {

/// A connected socket; -1 where the connection was refused.
FileDescriptor connectTo(const std::filesystem::path& socket);
/// Whether the other end hangs up within some seconds.
bool hangsUp(int socket);

/// A browser profile that answers every request with what `answer` gives for it, and with silence
/// where that is absent. A thread of its own.
class FakeExtension {
  public:
    using Json = nlohmann::json;
    using Answer = std::function<std::optional<Json>(const Json& request)>;

    FakeExtension(const std::filesystem::path& socket, const std::string& executable,
                  Answer answer);
    ~FakeExtension();

    void say(const std::string& message);
    int socket() const { return socket_.get(); }

  private:
    void run(const Answer& answer);

    FileDescriptor socket_;
    std::thread thread_;
};

constexpr test::Eventually eventually{std::chrono::seconds(10)};

} // namespace mnemora::browsers
