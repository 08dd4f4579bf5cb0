#pragma once
// What the settings page of each permission says and offers, as a value made of the facts of this
// session: what is missing, the one button that does it, what has to be restarted, how to undo it.

#include "Linux/Browsers/BrowserIntegration.h"
#include "Linux/Screen/ScreenConsent.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora::desktop {

enum class Permission { accessibility, screenCapture, automation };

/// The permission that a settings address is about; absent for every other address.
[[nodiscard]] std::optional<Permission> permissionOf(std::string_view address);

/// What a button of a page does.
enum class PermissionAction {
    turnAccessibilityOn,
    turnAccessibilityOff,
    allowScreen,
    forbidScreen,
    installExtension,
    removeExtension
};

struct PermissionPage {
    struct Item {
        std::string name;
        std::string detail;
        bool isDone = false;
        bool operator==(const Item&) const = default;
    };
    struct Button {
        std::string label;
        PermissionAction action;
        bool isMain = false; // what most people open the page for; Return presses it
        bool operator==(const Button&) const = default;
    };

    std::string title; // of the window
    bool isGranted = false;
    std::string state; // one sentence
    std::string explanation;
    std::vector<Item> items = {};
    std::vector<std::string> notes = {};
    std::vector<Button> buttons = {}; // at most two

    bool operator==(const PermissionPage&) const = default;
};

struct AccessibilityFacts {
    bool canRead = false;     ///< titles can be read here
    std::optional<bool> isOn; ///< the switch; absent without a session bus that knows it
    bool lastChangeFailed = false;
};

struct ScreenFacts {
    bool canRead = false;
    bool isWayland = false;
    ScreenConsent::Facts consent = {}; ///< in a Wayland session
};

struct AutomationFacts {
    bool canRead = false; ///< the address of a running browser
    std::vector<browsers::BrowserReport> browsers = {};
    bool isPacked = true; ///< the extension is part of this installation
    bool lastChangeFailed = false;
    std::filesystem::path configuration = {}; ///< the user's folder
    std::string extension = {};               ///< its id
};

[[nodiscard]] PermissionPage accessibilityPage(const AccessibilityFacts& facts);
[[nodiscard]] PermissionPage screenPage(const ScreenFacts& facts);
[[nodiscard]] PermissionPage automationPage(const AutomationFacts& facts);

} // namespace mnemora::desktop
