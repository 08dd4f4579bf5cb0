#pragma once
// Whether the user lets the screen be read, where the desktop asks for it.

namespace mnemora {

/// What the setup window's page shows and does. Main thread; every operation answers at once.
struct ScreenConsent {
    /// How the screen is read in this session.
    enum class Way {
        unknown,    ///< the desktop hasn't answered yet
        none,       ///< this desktop offers no way
        portal,     ///< with the user's consent, through the desktop's portal
        compositor, ///< by the compositor's own protocol, without asking
    };
    struct Facts {
        Way way = Way::unknown;
        bool isAsking = false;   ///< a dialog is open, or about to be
        bool wasRefused = false; ///< the last question was answered with no
        bool lastFailed = false; ///< or it could not be put, or the cast could not be opened

        bool operator==(const Facts&) const = default;
    };

    virtual ~ScreenConsent() = default;
    [[nodiscard]] virtual Facts facts() = 0;
    /// Lets the desktop ask the user. Does nothing where there is no portal.
    virtual void ask() = 0;
    /// Ends the reading and forgets the consent.
    virtual void withdraw() = 0;
};

} // namespace mnemora
