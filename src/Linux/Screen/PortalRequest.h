#pragma once
// One question to the desktop's portal, which answers by a signal of an object made for it
// (https://flatpak.github.io/xdg-desktop-portal/docs/doc-org.freedesktop.portal.Request.html).
// Only adapters' .cpp files include this.

#include "Linux/Desktop/BusCalls.h"

#include <chrono>
#include <functional>
#include <memory>
#include <string>

namespace mnemora::portal {

inline constexpr const char* service = "org.freedesktop.portal.Desktop";
inline constexpr const char* objectPath = "/org/freedesktop/portal/desktop";
inline constexpr const char* castInterface = "org.freedesktop.portal.ScreenCast";

/// How a question ended.
enum class Answer {
    given,   ///< done, or allowed by the user
    refused, ///< the user said no
    failed,  ///< the portal can't, or doesn't understand
    late     ///< nothing came in time, or the portal went away
};

/// What is asked: an operation of the portal's screen cast interface.
struct Question {
    std::string member;
    /// The argument before the options; empty for none.
    std::string session = {};
    /// Start() wants to know a window of ours to put its dialog above; it gets none.
    bool namesWindow = false;
    std::chrono::milliseconds patience;
};

/// Puts the question with the options (a dictionary under construction, of which this adds the
/// request's own entry and which it ends) and calls `done` once, with the results of a given
/// answer, on the calling thread's main context. A question that is answered late is withdrawn,
/// and with it whatever dialog it showed. The returned handle withdraws it too, then `done` isn't
/// called any more.
[[nodiscard]] std::shared_ptr<void> ask(GDBusConnection* bus, const Question& question,
                                        GVariantBuilder& options,
                                        std::function<void(Answer answer, GVariant* results)> done);

/// A name for an object that the portal makes for us; each call gives another.
[[nodiscard]] std::string newHandle();

} // namespace mnemora::portal
