#pragma once
// Which application a window belongs to: the identifier that the rules compare, the name that
// the user knows, and whether it is a browser whose private windows have to be told apart.

#include "Linux/Desktop/ApplicationTable.h"
#include "Linux/Desktop/DesktopEntries.h"
#include "Linux/Desktop/FrontWindow.h"

#include <memory>
#include <optional>
#include <string>

namespace mnemora::desktop {

/// An application as the catalogue knows it.
struct CataloguedApplication {
    /// The rules' own identifier where the table has one, else that of the desktop entry (without
    /// ".desktop"); absent when there is neither.
    std::optional<std::string> bundleIdentifier;
    /// From the desktop entry in the user's language, else the window's class or the program;
    /// absent when nothing is known at all.
    std::optional<std::string> name;
    Browser browser = Browser::None;

    bool operator==(const CataloguedApplication&) const = default;
};

/// Any thread; answers from memory.
class ApplicationCatalogue {
  public:
    explicit ApplicationCatalogue(std::shared_ptr<const EntrySource> entries)
        : entries_(std::move(entries)) {}

    [[nodiscard]] CataloguedApplication application(const WindowIdentity& window) const;

  private:
    std::shared_ptr<const EntrySource> entries_;
};

} // namespace mnemora::desktop
