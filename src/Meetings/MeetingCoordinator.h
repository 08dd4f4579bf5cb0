#pragma once
// Notices when the user turns to a call application and offers, once a day for each of them, to
// record the call. The status menu starts and stops recordings through it too.

#include "Meetings/MeetingRecorder.h"
#include "Platform/Panel.h"
#include "Platform/Workspace.h"

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

namespace mnemora {

/// Made and started once by the application delegate; held by a shared pointer. It never ends a
/// recording by itself. Main thread.
class MeetingCoordinator : public std::enable_shared_from_this<MeetingCoordinator> {
  public:
    /// `store` outlives the coordinator. Watches nothing yet.
    explicit MeetingCoordinator(MnemoraStore& store);

    /// The applications that count as calls, by bundle identifier.
    [[nodiscard]] static const std::set<std::string>& callApps();

    /// Watches the applications that come to the front, for the coordinator's life.
    void start();
    /// Asks for the permissions and starts the recorder once they are granted; an error line when
    /// they aren't.
    void beginRecording();
    [[nodiscard]] MeetingRecorder& recorder() { return *recorder_; }

  private:
    void frontmostChanged(const std::optional<RunningApplication>& application);
    void showConsent();
    void consentRecord();
    void consentDismiss();

    std::shared_ptr<MeetingRecorder> recorder_;
    std::unique_ptr<Panel> consentPanel_; // while the offer is on screen
    std::unique_ptr<Observation> observer_;
    /// For a call application, the day ("2026-11-16") of the last offer. Forgotten at exit.
    std::map<std::string, std::string> askedToday_;
};

} // namespace mnemora
