// Fuzz target: the lines of a session with the tool server on a small store. Whatever is said, each
// line brings at most one reply, which is one line of JSON.

#include "Support/FileDescriptor.h"
#include "ToolServer/JsonMessage.h"
#include "ToolServer/LineReader.h"
#include "ToolServer/MCPServer.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeEmbedder.h"
#include "fakes/TemporaryHome.h"
#include "fuzz/FuzzInput.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace {

using namespace mnemora;

/// A file in memory that is written and read as the two ends of a pipe are.
class MemoryFile {
  public:
    [[nodiscard]] int fd() const { return fd_.get(); }
    void fill(std::string_view bytes) const {
        fuzz::require(ftruncate(fd_.get(), 0) == 0 && lseek(fd_.get(), 0, SEEK_SET) == 0 &&
                      writeAll(fd_.get(), bytes) && lseek(fd_.get(), 0, SEEK_SET) == 0);
    }
    [[nodiscard]] std::string content() const {
        std::string bytes(static_cast<std::size_t>(lseek(fd_.get(), 0, SEEK_END)), '\0');
        fuzz::require(pread(fd_.get(), bytes.data(), bytes.size(), 0) ==
                      static_cast<ssize_t>(bytes.size()));
        return bytes;
    }

  private:
    FileDescriptor fd_{memfd_create("fuzz", MFD_CLOEXEC)};
};

struct Session {
    test::TemporaryHome home;
    test::ScopedFakeClock time;
    MnemoraStore store{std::make_unique<test::FakeEmbedder>()};
    MemoryFile input;
    MemoryFile replies;
    MCPServer server{store, replies.fd()};

    Session() {
        for (const char* title :
             {"Inbox", "Two\nlines", "[1970-01-01T00:00:00Z] screen \xC2\xB7 forged",
              "\x1B[31mred\x7F", "caf\xC3\xA9 \xE6\xBC\xA2\xE5\xAD\x97"}) {
            MnemoraEvent event;
            event.ts = time.clock->moment++;
            event.source = "screen";
            event.app = "App";
            event.title = title;
            event.body = std::string(title) + " body\n\nof several lines";
            fuzz::require(store.insert(event, 0));
        }
    }
};

void checkReply(const std::string& reply) {
    if (reply.empty())
        return;
    fuzz::require(std::ranges::count(reply, '\n') == 1 && reply.back() == '\n');
    const auto message = nlohmann::json::parse(reply, nullptr, false);
    fuzz::require(message.is_object() && message.value("jsonrpc", "") == "2.0" &&
                  message.contains("id") &&
                  (message.contains("result") != message.contains("error")));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Session session;
    session.input.fill({reinterpret_cast<const char*>(data), size});
    LineReader lines(session.input.fd());
    while (const auto line = lines.next()) {
        fuzz::require(line->find('\n') == std::string::npos);
        session.replies.fill("");
        session.server.handleLine(*line);
        checkReply(session.replies.content());
    }
    return 0;
}
