#pragma once
// The program's place in the desktop's status area and the menu behind it.

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace mnemora {

/// One line of a menu. An item without an action is plain text, shown disabled.
struct MenuItem {
    std::string title;
    std::function<void()> action;
    /// The letter that, with the platform's command key, runs the action; 0 for none.
    char keyEquivalent = 0;
    bool isSeparator = false;

    [[nodiscard]] bool isEnabled() const { return static_cast<bool>(action); }
};

using Menu = std::vector<MenuItem>;

/// What stands in the status area.
struct StatusItemContent {
    int iconSize = 18; // of the brand mark, device-independent pixels
    std::string toolTip;
    /// Called each time the menu is about to open.
    std::function<Menu()> menuNeedsUpdate;
};

/// An item that stands there until it is destroyed. Main thread.
struct StatusItem {
    virtual ~StatusItem() = default;

    /// Whether the icon carries the red mark that says that sound is being recorded.
    virtual void setRecording(bool recording) = 0;
    /// Opens the menu near the pointer, as a window, wherever the icon is or isn't.
    virtual void showMenu() = 0;
};

/// Makes items. Main thread.
struct StatusArea {
    virtual ~StatusArea() = default;

    /// Adds an item, now or when a status area appears. Never null; where there is no status area
    /// one log line says how the menu can be reached.
    [[nodiscard]] virtual std::unique_ptr<StatusItem> add(StatusItemContent content) = 0;
};

} // namespace mnemora
