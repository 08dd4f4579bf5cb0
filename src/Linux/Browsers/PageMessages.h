#pragma once
// What the application and the extension say to each other, as JSON; the grammar stands at the
// head of the extension's worker. The host program adds one message of its own: the hello.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace mnemora::browsers {

/// The host program's first message.
struct Hello {
    /// Path of the executable that started the host program.
    std::string browser;
};

/// What the extension says unasked whenever the page in front changes.
struct TabState {
    /// Whether one of the browser's ordinary windows has the focus.
    bool focused = false;
    /// Address of the active tab of the window focused last; absent when there is no window.
    std::optional<std::string> address;
    /// When one of its windows last had the focus, in milliseconds since the Unix epoch; 0 unknown.
    double lastUsed = 0;
};

/// The extension's answer to a request.
struct PageAnswer {
    std::uint64_t request = 0;
    /// True when there is nothing to be told of the page.
    bool refused = false;
    /// Whether one of the browser's ordinary windows has the focus; told with refusals, too.
    bool focused = false;
    std::optional<std::string> address;
    /// The titles that the tab had while it was read.
    std::vector<std::string> titles;
    /// Absent for a page without text, and where only the address was asked for.
    std::optional<std::string> text;
};

/// The answer that tells nothing.
[[nodiscard]] PageAnswer refusal(std::uint64_t request);

enum class PageQuestion { address, text };

/// A request for the page in front; `focused` when it has to be that of a window with the focus.
[[nodiscard]] std::string requestMessage(std::uint64_t request, PageQuestion question,
                                         bool focused);
/// A request to push the state anew.
[[nodiscard]] std::string stateRequestMessage();
[[nodiscard]] std::string helloMessage(const Hello& hello);

using PageMessage = std::variant<Hello, TabState, PageAnswer>;

/// Absent for everything that is no message of ours. Texts come out as valid UTF-8 without NUL.
[[nodiscard]] std::optional<PageMessage> parsePageMessage(std::string_view message);

} // namespace mnemora::browsers
