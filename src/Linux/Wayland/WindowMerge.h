#pragma once
// What a Wayland session's sources say of its windows, put together. Each knows a part: the
// compositor titles and applications but rarely processes; the X server inside everything about
// its own windows; the accessibility bus processes and names, of the programs that speak to it.

#include "Linux/Accessibility/AccessibleWindows.h"
#include "Linux/Desktop/ApplicationCatalogue.h"
#include "Linux/Desktop/WindowSource.h"
#include "Linux/Wayland/ListedWindow.h"

#include <optional>
#include <string>
#include <vector>

namespace mnemora::wayland {

/// Everything that is known at one moment.
struct SessionFacts {
    /// By the compositor; absent where it lists none for others.
    std::optional<std::vector<ListedWindow>> listed;
    /// By the X server inside; empty without one.
    desktop::DisplayState server;
    std::vector<atspi::AccessibleProgram> programs;
};

/// The marks of a window that states this application and title. Web pages in windows of their
/// own, and the browser windows among Firefox's, are told apart by what the X server would say
/// of them, since Wayland has no place for it.
[[nodiscard]] desktop::WindowIdentity identityOf(const std::string& applicationId,
                                                 const std::string& title,
                                                 desktop::ProcessFacts process);

/// Rules, apart from where the facts come from. Any thread.
class WindowMerge {
  public:
    explicit WindowMerge(const desktop::ApplicationCatalogue& catalogue) : catalogue_(catalogue) {}

    /// The window in front. Where the compositor lists windows, the one that it calls active, with
    /// the process of the only program that fits; else the X server's, else the only one that
    /// calls itself active on the accessibility bus. Absent when there is none or several.
    [[nodiscard]] std::optional<desktop::FrontWindow> front(const SessionFacts& facts) const;

    /// All windows that may be on the screen. Nobody tells where they are, so each may show
    /// anywhere and hides nothing. Absent where a program doesn't tell all of its windows and the
    /// compositor none.
    [[nodiscard]] std::optional<desktop::WindowStack> stack(const SessionFacts& facts) const;

    /// Whose windows there are.
    [[nodiscard]] std::vector<desktop::WindowIdentity> clients(const SessionFacts& facts) const;

  private:
    using Programs = std::vector<const atspi::AccessibleProgram*>;

    [[nodiscard]] desktop::WindowIdentity identify(const ListedWindow& window,
                                                   const SessionFacts& facts) const;
    [[nodiscard]] const atspi::AccessibleProgram*
    programOf(const ListedWindow& window, const std::vector<atspi::AccessibleProgram>& all) const;
    [[nodiscard]] bool isSameApplication(const ListedWindow& window,
                                         const atspi::AccessibleProgram& program) const;

    const desktop::ApplicationCatalogue& catalogue_;
};

} // namespace mnemora::wayland
