#include "Linux/Desktop/PermissionPage.h"

#include <algorithm>

namespace mnemora::desktop {
namespace {

using browsers::BrowserReport;
using browsers::IntegrationState;

constexpr std::string_view settingsPage =
    "x-apple.systempreferences:com.apple.preference.security?Privacy_";

std::string administratorText(const BrowserReport& report, const AutomationFacts& facts) {
    for (const auto& browser : browsers::browserTable)
        if (report.name == browser.name) {
            const auto file = facts.configuration / browser.folder / "External Extensions" /
                              (facts.extension + ".json");
            return "Takes extensions only from its store or from an administrator, who copies " +
                   file.string() + " to " + browser.systemExtensions + ".";
        }
    return "Takes extensions only from its store or from an administrator.";
}

PermissionPage::Item item(const BrowserReport& report, const AutomationFacts& facts) {
    switch (report.state) {
    case IntegrationState::installed:
        return {report.name, "Installed. A running browser takes it up when it is restarted.",
                true};
    case IntegrationState::needsAdministrator:
        return {report.name, administratorText(report, facts), false};
    case IntegrationState::notInstalled:
        break;
    }
    return {report.name, "Not installed.", false};
}

bool any(const AutomationFacts& facts, bool isUntouched) {
    return std::ranges::any_of(facts.browsers, [isUntouched](const BrowserReport& report) {
        return (report.state == IntegrationState::notInstalled) == isUntouched;
    });
}

std::string automationState(const AutomationFacts& facts) {
    if (facts.canRead)
        return "Granted: the page in front can be read.";
    if (!facts.isPacked)
        return "The browser extension is missing from this installation.";
    if (facts.browsers.empty())
        return "No supported browser was found: Chromium, Google Chrome, Microsoft Edge or Brave.";
    if (any(facts, true))
        return "Pages can't be read yet: the extension is missing in a browser below.";
    return "No running browser shares its page yet. Restart it, then look here again.";
}

/// Where the desktop's portal has the say.
void addConsent(PermissionPage& page, const ScreenConsent::Facts& consent) {
    if (page.isGranted) {
        page.notes = {"The desktop remembers your consent, and may show a sign while Mnemora runs. "
                      "Stopping the sharing there takes it back, too.",
                      "To undo it, turn it off here."};
        page.buttons = {{"Turn Off", PermissionAction::forbidScreen}};
        return;
    }
    page.state = consent.isAsking     ? "The desktop is asking you. Choose a monitor and share it."
                 : consent.wasRefused ? "The desktop doesn't let Mnemora read the screen."
                 : consent.lastFailed ? "The desktop's screen sharing doesn't work at the moment."
                                      : "The desktop hasn't been asked for the screen yet.";
    page.notes = {"The desktop asks which monitor to share. Choose the one that you work on, and "
                  "let it remember the choice if it offers to; else you have to allow it here "
                  "after every start.",
                  "You can turn it off again on this page. Nothing has to be restarted."};
    page.buttons = {{consent.isAsking ? "Ask Again" : "Allow", PermissionAction::allowScreen,
                     !consent.isAsking}};
}

void describeWayland(PermissionPage& page, const ScreenConsent::Facts& consent) {
    switch (consent.way) {
    case ScreenConsent::Way::portal:
        return addConsent(page, consent);
    case ScreenConsent::Way::compositor:
        page.notes = {"This compositor lets every program of yours read the screen, so there is "
                      "nothing to switch on or off here. To stop it, quit Mnemora."};
        return;
    case ScreenConsent::Way::unknown:
        page.state = "The desktop hasn't said yet whether it shares its screen.";
        return;
    case ScreenConsent::Way::none:
        page.state = "This Wayland session offers no way to read its screen.";
        page.notes = {"Screens are shared by PipeWire and the package xdg-desktop-portal with the "
                      "backend of your desktop, such as xdg-desktop-portal-gnome. Install what is "
                      "missing, then log in again.",
                      "Titles and browser pages are kept without it."};
        return;
    }
}

} // namespace

std::optional<Permission> permissionOf(std::string_view address) {
    if (!address.starts_with(settingsPage))
        return std::nullopt;
    const auto page = address.substr(settingsPage.size());
    if (page == "Accessibility")
        return Permission::accessibility;
    if (page == "ScreenCapture")
        return Permission::screenCapture;
    if (page == "Automation")
        return Permission::automation;
    return std::nullopt;
}

PermissionPage accessibilityPage(const AccessibilityFacts& facts) {
    PermissionPage page{
        .title = "Accessibility",
        .isGranted = facts.canRead,
        .state = "Granted: window titles can be read.",
        .explanation = "Programs tell the titles of their windows over the desktop's accessibility "
                       "bus, the one that screen readers use. Mnemora reads titles from it and, in "
                       "some browsers, the page. No screen reader is started."};
    if (!facts.canRead) {
        page.state = !facts.isOn   ? "This session has no accessibility bus. Install the package "
                                     "at-spi2-core, then log in again."
                     : *facts.isOn ? "The accessibility bus is on, but it doesn't answer yet."
                                   : "The accessibility bus is switched off.";
        if (facts.lastChangeFailed)
            page.state += " The switch could not be changed.";
    }
    if (!facts.isOn)
        return page;
    if (*facts.isOn) {
        page.notes = {
            "Programs that were running before it was switched on have to be restarted "
            "before their titles are known.",
            "To undo it, turn it off here. Other assistive programs use the same switch."};
        page.buttons = {{"Turn Off", PermissionAction::turnAccessibilityOff}};
    } else {
        page.notes = {"Programs that are already running have to be restarted before their titles "
                      "are known.",
                      "You can turn it off again on this page."};
        page.buttons = {{"Turn On", PermissionAction::turnAccessibilityOn, true}};
    }
    return page;
}

PermissionPage screenPage(const ScreenFacts& facts) {
    PermissionPage page{
        .title = "Screen Recording",
        .isGranted = facts.canRead,
        .state = "Granted: the screen can be read.",
        .explanation = "Mnemora looks at the first display every few seconds and keeps the text on "
                       "it, never the picture. Windows that are private aren't read."};
    if (facts.isWayland) {
        describeWayland(page, facts.consent);
    } else if (facts.canRead) {
        page.notes = {"On X11 every program of yours may read the screen, so there is nothing to "
                      "switch on or off here. To stop it, quit Mnemora."};
    } else {
        page.state = "The X server doesn't let Mnemora read the screen.";
        page.notes = {"It has to be started in your own session, with DISPLAY naming a screen that "
                      "you may read (xauth list shows the ones you may).",
                      "Restart Mnemora when that has changed."};
    }
    return page;
}

PermissionPage automationPage(const AutomationFacts& facts) {
    PermissionPage page{
        .title = "Browser Pages",
        .isGranted = facts.canRead,
        .state = automationState(facts),
        .explanation = "A small extension tells Mnemora, and nobody else, which page is in front. "
                       "It has no access to private windows unless you allow it in the browser."};
    for (const auto& report : facts.browsers)
        page.items.push_back(item(report, facts));
    if (facts.lastChangeFailed)
        page.notes.emplace_back("Some files could not be written or removed: is the browser's "
                                "folder in your configuration folder writable?");
    if (!facts.isPacked || facts.browsers.empty())
        return page;
    page.notes.emplace_back("Restart a browser that is running. It may ask whether to switch the "
                            "extension on.");
    page.notes.emplace_back("Removing takes the extension and its two small files away for every "
                            "browser.");
    if (any(facts, true))
        page.buttons.push_back({"Install Extension", PermissionAction::installExtension, true});
    if (any(facts, false))
        page.buttons.push_back({"Remove Extension", PermissionAction::removeExtension});
    return page;
}

} // namespace mnemora::desktop
