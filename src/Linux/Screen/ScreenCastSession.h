#pragma once
// What ScreenCastPortal does on its thread: its life in ScreenCastSession.cpp, the conversation
// that makes a cast, step by step, in ScreenCastSteps.cpp. Nobody else includes this.

#include "Linux/Screen/PortalRequest.h"
#include "Linux/Screen/ScreenCastPortal.h"

#include <condition_variable>
#include <mutex>
#include <optional>

namespace mnemora::portal {

/// What every thread may read, guarded by its mutex.
struct ScreenCastState {
    using Time = std::chrono::steady_clock::time_point;

    mutable std::mutex mutex;
    mutable std::condition_variable changed;
    ScreenCastPortal::Presence presence = ScreenCastPortal::Presence::unknown;
    std::string token;
    std::shared_ptr<FrameStream> stream; // of the running cast
    bool isStarting = false;
    ScreenCastPortal::Status status;
    int failures = 0; // starts in a row
    Time notBefore{}; // of the next start with the token
};

/// Everything but the state is the thread's own.
struct ScreenCastPortal::Session : std::enable_shared_from_this<ScreenCastPortal::Session> {
    explicit Session(Options given) : options(std::move(given)) { state.token = options.token; }

    /// Connects to the message bus and looks for the portal.
    void begin();
    /// Ends the cast that runs or is being started, and starts one: with a dialog, or by the token.
    void start(bool withDialog);
    /// The same by the token, unless a cast runs or is being started, or the session isn't in
    /// front.
    void startIfIdle();
    /// Ends a cast that gives no pictures any more; it is started again a little later.
    void castEnded();
    /// Ends the cast; the consent stays.
    void close();
    /// Ends the cast and forgets the consent, without a word of it as a failure.
    void withdraw();

    const Options options;
    ScreenCastState state;

  private:
    void connected(desktop::GRef<GDBusConnection> connection);
    void ownerChanged(bool isThere);
    void introduceOurselves(std::function<void()> then);
    void look();
    void lookAgain();
    void looked(GVariant* properties);
    void decide(Presence presence);

    // The steps of a start, each the answer to the one before.
    void createSession();
    void selectSources(GVariant* created);
    void startCast(GVariant* selected);
    void started(GVariant* results);
    void openRemote(std::uint32_t node);
    void remoteOpened(GAsyncResult* result, std::uint32_t node);
    static void remoteReplied(GObject* bus, GAsyncResult* result, gpointer call);
    void ask(const Question& question, GVariantBuilder& builder,
             void (Session::*next)(GVariant* results), const char* step);
    void unanswered(Answer answer, const std::string& step);

    void fail(const std::string& reason);
    void refuse(const std::string& reason);
    void end(bool startsAgain = false);
    void closed();
    void decideWhyClosed();
    void after(std::chrono::milliseconds pause, void (Session::*then)());
    void keep(const std::string& token);

    desktop::GRef<GDBusConnection> bus;
    FrameStreamOpener opener;
    bool isIntroduced = false;
    bool isLooking = false;  // one look at a time, as with the next two
    bool isLookDue = false;  // another owner has come since
    bool looksLater = false; // a timer runs
    bool hidesCursor = false;
    bool restores = false;   // the portal knows tokens
    bool isDialog = false;   // the start under way may show one
    unsigned generation = 0; // of starts; answers to former ones are void
    std::shared_ptr<void> request;
    std::string sessionPath;
    guint ownerSignal = 0;
    guint closedSignal = 0;
    std::string lastReason; // what was last written to the log
};

} // namespace mnemora::portal
