#include "Linux/Desktop/FocusedWindowTitles.h"

#include "Capture/Privacy.h"
#include "Text/Encoding.h"

#include <chrono>
#include <string_view>
#include <utility>

namespace mnemora::desktop {
namespace {

using namespace std::chrono_literals;

constexpr auto patience = 25ms;
constexpr std::size_t maxTitleBytes = 4096;

bool isWithheld(const std::optional<std::string>& title) {
    return Privacy::shouldRedact(std::nullopt, title);
}

/// What a Chromium-family browser shows without its own name: "Second page - Chromium".
std::string_view pageTitle(std::string_view shown) {
    const auto dash = shown.rfind(" - ");
    return dash == std::string_view::npos ? shown : shown.substr(0, dash);
}

} // namespace

bool belongTogether(const std::string& accessible, const std::optional<std::string>& shown) {
    return !shown || accessible.find(pageTitle(*shown)) != std::string::npos;
}

std::optional<std::string> chosenTitle(Browser browser,
                                       const std::optional<std::string>& accessible,
                                       const std::optional<std::string>& shown) {
    if (browser == Browser::Chromium)
        return accessible && belongTogether(*accessible, shown) ? accessible : std::nullopt;
    if (isWithheld(accessible))
        return accessible;
    if (isWithheld(shown))
        return shown;
    const bool hasName = accessible && !accessible->empty();
    return hasName || !shown ? accessible : shown;
}

std::optional<std::string> stillTrue(std::optional<std::string> heard,
                                     const std::optional<std::string>& shown) {
    const bool canBeTold = shown && !pageTitle(*shown).empty();
    return heard && canBeTold && belongTogether(*heard, shown) ? std::move(heard) : std::nullopt;
}

std::string shortenedTitle(std::string title) {
    if (title.size() <= maxTitleBytes)
        return title;
    constexpr std::string_view ellipsis = "…";
    constexpr std::size_t tail = maxTitleBytes / 4;
    std::size_t head = maxTitleBytes - tail - ellipsis.size();
    std::size_t from = title.size() - tail;
    const auto isInside = [&](std::size_t at) {
        return (static_cast<unsigned char>(title[at]) & 0xC0U) == 0x80U;
    };
    while (head > 0 && isInside(head))
        --head;
    while (from < title.size() && isInside(from))
        ++from;
    return title.substr(0, head).append(ellipsis).append(title, from);
}

bool FocusedWindowTitles::isProcessTrusted() {
    return windows_->isAvailable();
}

std::optional<FocusedWindow> FocusedWindowTitles::focusedWindow(int processIdentifier) {
    const auto front = front_();
    const bool isFront = front && front->identity.process.processIdentifier == processIdentifier;
    const auto browser = isFront ? catalogue_->application(front->identity).browser : Browser::None;
    std::optional<std::string> shown;
    if (isFront)
        shown = front->title;
    std::optional<std::string> accessible;
    if (windows_->isAvailable() && processIdentifier > 0) {
        const auto reading = windows_->read(processIdentifier, patience);
        accessible =
            reading ? reading->name : stillTrue(windows_->last(processIdentifier).name, shown);
    }
    auto title = chosenTitle(browser, accessible, shown);
    if (!title && !isFront)
        return std::nullopt;
    if (title)
        title = shortenedTitle(std::move(*title));
    return FocusedWindow{std::move(title)};
}

} // namespace mnemora::desktop
