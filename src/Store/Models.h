#pragma once
// The record that everything the program remembers is made of.

#include <optional>
#include <string>

namespace mnemora {

/// One observation. A plain value; writers fill it step by step. All text is UTF-8 without NUL.
///
/// `source` and `kind` go together: "screen"/"window" and "browser"/"page" are written by the
/// activity sampler, "audio"/"meeting" by the meeting recorder.
struct MnemoraEvent {
    /// When the observation was made, seconds since the Unix epoch.
    double ts = 0;
    /// Where it came from.
    std::string source;
    /// Display name of the application concerned.
    std::optional<std::string> app;
    /// Its bundle identifier; for meeting segments the recording's session key.
    std::optional<std::string> bundle;
    /// What kind of observation it is.
    std::string kind;
    /// A person or speaker that it belongs to.
    std::optional<std::string> person;
    /// Window, page or meeting title.
    std::optional<std::string> title;
    /// Address of a browser page.
    std::optional<std::string> url;
    /// Page text, recognised screen text or transcript.
    std::optional<std::string> body;

    /// Content identity: the decimal text of a signed 64-bit hash over source, app, kind, title,
    /// url and body, absent counting as empty. Canonically equivalent texts hash alike. The hash
    /// is keyed with a seed of this process, so it tells nothing to other runs.
    [[nodiscard]] std::string hash() const;

    bool operator==(const MnemoraEvent&) const = default;
};

} // namespace mnemora
