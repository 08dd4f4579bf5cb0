#pragma once
// The applications that the rules of the program mean, by the names under which Linux knows them.

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora::desktop {

/// How a browser lets its private windows be told from others.
enum class Browser {
    /// Not a browser.
    None,
    /// By the accessible name only; the window manager's title has no marker.
    Chromium,
    /// By the command line of the process; needs a readable accessible name besides.
    WebKit,
    /// By the title, in the language of the browser.
    Firefox,
    /// By nothing: each of its windows may be private.
    Unmarked,
};

/// A row of the table.
struct TableRow {
    /// What the rules know the application as; empty where they don't, and it keeps its own.
    std::string_view bundleIdentifier;
    Browser browser = Browser::None;
    /// Names in lower case, separated by '|': desktop entries and Flatpak identifiers, window
    /// classes, executables, snaps.
    std::string_view names;
    /// Web hosts, likewise, of the same application in a browser's window of its own; a host
    /// stands for all below it.
    std::string_view hosts = {};
};

/// All rows, the first of two that share a name counting.
[[nodiscard]] std::span<const TableRow> applicationTable();

/// The row that one of `marks` names, without regard to ASCII case; a row whose content is never
/// read before all others, else the earliest mark's. Null when there is none.
[[nodiscard]] const TableRow* rowNamed(const std::vector<std::string>& marks);

/// The row for a web application at this host; null when there is none.
[[nodiscard]] const TableRow* rowAtHost(std::string_view host);

/// Whether the privacy filter withholds everything of the row's application.
[[nodiscard]] bool isConcealed(const TableRow& row);

/// ASCII letters in lower case; identifiers and classes are compared so.
[[nodiscard]] std::string foldedMark(std::string_view text);

} // namespace mnemora::desktop
