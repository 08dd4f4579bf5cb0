#pragma once
// Menu titles made fit for what shows them: they carry captured text, which may hold anything.

#include <QString>

#include <string>

namespace mnemora::desktop {

/// The title on one line: blanks stand for control characters, tabulators among them, and for the
/// marks that turn the direction of writing. At most 300 UTF-16 units, the last one an ellipsis
/// where it was longer.
[[nodiscard]] QString shownTitle(const std::string& title);

/// For the toolkit's menus and buttons, where "&" marks the letter that chooses an item.
[[nodiscard]] QString toolkitTitle(const std::string& title);

/// For menus on the message bus, where "_" does.
[[nodiscard]] QString busTitle(const std::string& title);

} // namespace mnemora::desktop
