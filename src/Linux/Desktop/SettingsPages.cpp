#include "Linux/Desktop/SettingsPages.h"

#include "Capture/BrowserInspector.h"
#include "Linux/Desktop/PermissionWindow.h"
#include "Platform/DesktopServices.h"

#include <QCoreApplication>

#include <utility>

namespace mnemora::desktop {

using browsers::BrowserIntegration;

SettingsPages::SettingsPages(GLibThread& thread, std::filesystem::path prefix,
                             std::shared_ptr<ScreenConsent> consent)
    : accessibility_(thread), locations_(BrowserIntegration::locations(prefix)),
      consent_(std::move(consent)) {
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
             .isWayland = consent_ != nullptr,
             .consent = consent_ ? consent_->facts() : ScreenConsent::Facts()});
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
    case PermissionAction::allowScreen:
        return consent_ ? consent_->ask() : void();
    case PermissionAction::forbidScreen:
        return consent_ ? consent_->withdraw() : void();
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
