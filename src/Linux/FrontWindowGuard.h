#pragma once
// What the adapters know of the window in front beyond its title, so that the picture and the
// page of a private window are never taken.

namespace mnemora {

/// Asked by the screen and script adapters right before and right after they read content.
struct FrontWindowGuard {
    virtual ~FrontWindowGuard() = default;

    /// Whether the content of the window that is in front at this very moment may be read: false
    /// for an application or title that the privacy filter withholds, for a browser's private
    /// window in any language, for a browser window whose privacy can't be established, and while
    /// the screen is locked or off. Asks the desktop anew; any thread but the main one; answers
    /// within half a second, false when it can't tell in time.
    [[nodiscard]] virtual bool contentMayBeRead() = 0;
};

} // namespace mnemora
