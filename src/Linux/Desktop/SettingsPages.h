#pragma once
// Opens our own settings pages: reads the facts of this session for them and does what their
// buttons promise.

#include "Linux/Desktop/AccessibilitySwitch.h"
#include "Linux/Desktop/PermissionPage.h"
#include "Linux/Screen/ScreenConsent.h"

#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace mnemora::desktop {

class PermissionWindow;

/// Main thread, with the toolkit's application object. Made and destroyed without one too, as long
/// as nothing is opened.
class SettingsPages {
  public:
    /// `thread` outlives the pages; `prefix` is where this installation lies; `consent` is null
    /// where nobody is asked for the screen.
    SettingsPages(GLibThread& thread, std::filesystem::path prefix,
                  std::shared_ptr<ScreenConsent> consent = nullptr);
    ~SettingsPages();
    SettingsPages(const SettingsPages&) = delete;
    SettingsPages& operator=(const SettingsPages&) = delete;

    /// Brings the page of a settings address to the front; false for any other address.
    bool open(const std::string& address);

  private:
    [[nodiscard]] PermissionPage page(Permission permission);
    [[nodiscard]] PermissionPage automation() const;
    void act(PermissionAction action);
    void change(bool install);

    AccessibilitySwitch accessibility_;
    browsers::BrowserIntegration::Locations locations_;
    std::shared_ptr<ScreenConsent> consent_;
    bool lastInstallationFailed_ = false;
    std::map<Permission, std::unique_ptr<PermissionWindow>> windows_;
    bool endsWithApplication_ = false; // whether the application's end was asked to close windows
};

} // namespace mnemora::desktop
