#include "Linux/Desktop/FrontContentGuard.h"

#include "Capture/Privacy.h"
#include "Linux/Desktop/FocusedWindowTitles.h"

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

// Together below the half second that the interface promises.
constexpr auto displayPatience = 120ms;
constexpr auto programPatience = 200ms;

bool chromiumMayBeRead(const FrontFacts& facts, PrivateWindowMarkers& markers) {
    if (!facts.reading || !facts.reading->isCertain || !facts.reading->name)
        return false;
    const std::string& name = *facts.reading->name;
    const ProcessFacts& process = facts.window.identity.process;
    return belongTogether(name, facts.window.title) &&
           markers.isOrdinaryChromium(name, facts.reading->names, process.processIdentifier,
                                      process.executable);
}

bool firefoxMayBeRead(const FrontFacts& facts) {
    const auto& shown = facts.window.title;
    const auto name = facts.reading ? facts.reading->name : std::nullopt;
    if ((!shown && !name) || facts.window.identity.process.keepsNothing ||
        !isFirefoxBrowserWindow(facts.window.identity.instance))
        return false;
    return !PrivateWindowMarkers::marksFirefox(shown.value_or("")) &&
           !PrivateWindowMarkers::marksFirefox(name.value_or(""));
}

} // namespace

bool mayBeRead(const FrontFacts& facts, PrivateWindowMarkers& markers) {
    const auto& bundle = facts.application.bundleIdentifier;
    const auto name = facts.reading ? facts.reading->name : std::nullopt;
    if (Privacy::shouldRedact(bundle, facts.window.title) || Privacy::shouldRedact(bundle, name))
        return false;
    switch (facts.application.browser) {
    case Browser::None:
        return true;
    case Browser::Chromium:
        return chromiumMayBeRead(facts, markers);
    case Browser::WebKit:
        return name && !facts.window.identity.process.keepsNothing;
    case Browser::Firefox:
        return firefoxMayBeRead(facts);
    case Browser::Unmarked:
        return false;
    }
    return false;
}

bool FrontContentGuard::contentMayBeRead() {
    const auto before = front_(displayPatience);
    if (!before)
        return false;
    FrontFacts facts{*before, catalogue_->application(before->identity), std::nullopt};
    const int process = before->identity.process.processIdentifier;
    if (process > 0)
        facts.reading = windows_->read(process, programPatience);
    if (!mayBeRead(facts, markers_))
        return false;
    // Another window that came to the front meanwhile has not been judged.
    const auto after = front_(displayPatience);
    return after && after->window == before->window;
}

} // namespace mnemora::desktop
