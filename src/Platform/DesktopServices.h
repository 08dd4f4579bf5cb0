#pragma once
// The services of a desktop session, installed by the desktop module before the shell starts.

#include "Platform/Accessibility.h"
#include "Platform/Application.h"
#include "Platform/Audio.h"
#include "Platform/MainLoop.h"
#include "Platform/Panel.h"
#include "Platform/ScreenCapture.h"
#include "Platform/ScriptHost.h"
#include "Platform/SpeechRecognizer.h"
#include "Platform/StatusItem.h"
#include "Platform/TextRecognizer.h"
#include "Platform/UserDefaults.h"
#include "Platform/Workspace.h"

#include <memory>

namespace mnemora {

/// A member that is null is a service that this session lacks; the logic treats it as one that
/// answers absent to everything.
struct DesktopServices {
    std::shared_ptr<MainLoop> mainLoop = {};
    std::shared_ptr<Workspace> workspace = {};
    std::shared_ptr<Accessibility> accessibility = {};
    std::shared_ptr<ScreenCapture> screenCapture = {};
    std::shared_ptr<TextRecognizer> textRecognizer = {};
    std::shared_ptr<ScriptHost> scriptHost = {};
    std::shared_ptr<AudioInput> audioInput = {};
    std::shared_ptr<SystemAudio> systemAudio = {};
    std::shared_ptr<SpeechService> speech = {};
    std::shared_ptr<Panels> panels = {};
    std::shared_ptr<UserDefaults> defaults = {};
    std::shared_ptr<StatusArea> statusArea = {};
    std::shared_ptr<Application> application = {};
};

/// The installed services; all null before installation.
[[nodiscard]] const DesktopServices& desktopServices();

/// Installs the services for the process. Main thread, before any other thread uses them.
void installDesktopServices(DesktopServices services);

/// Installs services for a scope, then puts the former ones back; for tests.
class ScopedDesktopServices {
  public:
    explicit ScopedDesktopServices(DesktopServices services);
    ~ScopedDesktopServices();
    ScopedDesktopServices(const ScopedDesktopServices&) = delete;
    ScopedDesktopServices& operator=(const ScopedDesktopServices&) = delete;

  private:
    DesktopServices former_;
};

} // namespace mnemora
