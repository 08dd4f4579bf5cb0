#pragma once
// The words by which browsers mark the titles of their private windows, in every language that
// they ship.

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace mnemora::desktop {

/// A marked title: what stands before and after the page's own title.
struct TitleFormat {
    std::string before;
    std::string after;

    bool operator==(const TitleFormat&) const = default;
};

/// Any thread.
class PrivateWindowMarkers {
  public:
    /// Whether a Chromium-family window of this accessible name is private or a guest's: by the
    /// formats of the language packs that lie beside the browser's executable, and by those that
    /// are known from Chromium's own. The packs are read once for each folder; that takes some
    /// milliseconds.
    [[nodiscard]] bool marksChromium(std::string_view accessibleName, int processIdentifier,
                                     const std::string& executable);

    /// Whether a Chromium-family window of this accessible name is known not to be private, `all`
    /// being the names of the process's windows. While one of them is marked, a window that
    /// doesn't name the browser (a tool, a video taken out) may belong to it, and isn't.
    [[nodiscard]] bool isOrdinaryChromium(std::string_view accessibleName,
                                          const std::vector<std::string>& all,
                                          int processIdentifier, const std::string& executable);

    /// Whether a Firefox window of this title is private, where it is one that shows pages. The
    /// others that a private window opens (page information, developer tools, a video taken out)
    /// bear no marker: see isFirefoxBrowserWindow.
    [[nodiscard]] static bool marksFirefox(std::string_view title);

  private:
    using Formats = std::shared_ptr<const std::vector<TitleFormat>>;
    /// A marked name without its mark; absent when there is none.
    [[nodiscard]] std::optional<std::string>
    unmarked(std::string_view accessibleName, int processIdentifier, const std::string& executable);
    [[nodiscard]] Formats formatsBeside(int processIdentifier, const std::string& executable);

    std::mutex mutex_;
    std::map<std::string, Formats> known_; // by executable; guarded by mutex_
};

/// Whether the window is one of Firefox's that show pages and bear the marker when they are
/// private: the family names the instance of a window after its kind (WM_CLASS), the first part of
/// the "windowtype" of its document (widget/gtk/nsWindow.cpp of the Mozilla sources).
[[nodiscard]] bool isFirefoxBrowserWindow(std::string_view instance);

/// A title as markers are compared: in normal form C and without the invisible characters that
/// turn the direction of writing, which browsers add in right-to-left languages.
[[nodiscard]] std::string comparableTitle(std::string_view title);

/// Chromium's formats, from the language packs of its release 156.
[[nodiscard]] std::span<const TitleFormat> chromiumFormats();
/// What Firefox's private windows add to their titles, from its language packs of release 140.
[[nodiscard]] std::span<const std::string_view> firefoxMarkers();

} // namespace mnemora::desktop
