#include "Linux/Desktop/SettingsPages.h"

#include "Capture/BrowserInspector.h"
#include "Linux/Desktop/PermissionWindow.h"
#include "Platform/DesktopServices.h"

#include <QCoreApplication>

#include <cstdlib>
#include <string_view>
#include <utility>

namespace mnemora::desktop {
namespace {

using browsers::BrowserIntegration;

std::string_view variable(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr ? "" : value;
}

bool isWaylandSession() {
    return !variable("WAYLAND_DISPLAY").empty() || variable("XDG_SESSION_TYPE") == "wayland";
}

} // namespace

SettingsPages::SettingsPages(GLibThread& thread, std::filesystem::path prefix)
    : accessibility_(thread), locations_(BrowserIntegration::locations(prefix)) {
    accessibility_.refresh();
}

SettingsPages::~SettingsPages() = default;

bool SettingsPages::open(const std::string& address) {
    const auto permission = permissionOf(address);
    if (!permission)
        return false;
    if (!std::exchange(endsWithApplication_, true))
        QObject::connect(qApp, &QCoreApplication::aboutToQuit, qApp, [this] { windows_.clear(); });
    auto& window = windows_[*permission];
    if (!window)
        window = std::make_unique<PermissionWindow>(
            [this, wanted = *permission] { return page(wanted); },
            [this](PermissionAction action) { act(action); });
    window->bringToFront();
    return true;
}

PermissionPage SettingsPages::page(Permission permission) {
    const auto& services = desktopServices();
    switch (permission) {
    case Permission::accessibility:
        accessibility_.refresh(); // for the next reading
        return accessibilityPage(
            {.canRead = services.accessibility && services.accessibility->isProcessTrusted(),
             .isOn = accessibility_.isOn(),
             .lastChangeFailed = accessibility_.lastChangeFailed()});
    case Permission::screenCapture:
        return screenPage(
            {.canRead = services.screenCapture && services.screenCapture->isPermitted(),
             .isWayland = isWaylandSession()});
    case Permission::automation:
        break;
    }
    return automation();
}

PermissionPage SettingsPages::automation() const {
    const auto integration = BrowserIntegration::open(locations_);
    AutomationFacts facts{.canRead = BrowserInspector::browserAccessGranted(),
                          .isPacked = integration.has_value(),
                          .lastChangeFailed = lastInstallationFailed_,
                          .configuration = locations_.configuration};
    if (integration) {
        facts.browsers = integration->report();
        facts.extension = integration->id();
    }
    return automationPage(facts);
}

void SettingsPages::act(PermissionAction action) {
    switch (action) {
    case PermissionAction::turnAccessibilityOn:
        return accessibility_.set(true);
    case PermissionAction::turnAccessibilityOff:
        return accessibility_.set(false);
    case PermissionAction::installExtension:
        return change(true);
    case PermissionAction::removeExtension:
        return change(false);
    }
}

void SettingsPages::change(bool install) {
    const auto integration = BrowserIntegration::open(locations_);
    lastInstallationFailed_ =
        !integration || !(install ? integration->install() : integration->remove());
}

} // namespace mnemora::desktop
