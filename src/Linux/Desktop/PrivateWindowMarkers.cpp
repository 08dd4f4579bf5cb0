#include "Linux/Desktop/PrivateWindowMarkers.h"

#include "Linux/Desktop/LanguagePack.h"
#include "Text/Characters.h"

#include <algorithm>
#include <filesystem>

namespace mnemora::desktop {
namespace {

bool bears(std::string_view title, const TitleFormat& format) {
    return title.size() >= format.before.size() + format.after.size() &&
           title.starts_with(format.before) && title.ends_with(format.after);
}

bool bearsAny(std::string_view title, std::span<const TitleFormat> formats) {
    return std::any_of(formats.begin(), formats.end(),
                       [&](const TitleFormat& format) { return bears(title, format); });
}

} // namespace

bool isFirefoxBrowserWindow(std::string_view instance) {
    return instance == "Navigator";
}

std::string comparableTitle(std::string_view title) {
    std::string text = normalized(title);
    for (const std::string_view control :
         {"\u200E", "\u200F", "\u202A", "\u202B", "\u202C", "\u202D", "\u202E", "\u2066", "\u2067",
          "\u2068", "\u2069"})
        for (auto at = text.find(control); at != std::string::npos; at = text.find(control, at))
            text.erase(at, control.size());
    return text;
}

// The executable's path is the one inside a sandbox; the process's own root leads there.
PrivateWindowMarkers::Formats PrivateWindowMarkers::formatsBeside(int processIdentifier,
                                                                  const std::string& executable) {
    {
        const std::lock_guard lock(mutex_);
        if (const auto found = known_.find(executable); found != known_.end())
            return found->second;
    }
    const std::filesystem::path root = "/proc/" + std::to_string(processIdentifier) + "/root";
    const auto folder =
        root / std::filesystem::path(executable).parent_path().relative_path() / "locales";
    auto formats = std::make_shared<const std::vector<TitleFormat>>(privateFormats(folder));
    const std::lock_guard lock(mutex_);
    return known_.emplace(executable, std::move(formats)).first->second;
}

bool PrivateWindowMarkers::marksChromium(std::string_view accessibleName, int processIdentifier,
                                         const std::string& executable) {
    const std::string title = comparableTitle(accessibleName);
    return bearsAny(title, chromiumFormats()) ||
           bearsAny(title, *formatsBeside(processIdentifier, executable));
}

// Firefox joins the page's title and its own words, the marker among them, with a dash.
bool PrivateWindowMarkers::marksFirefox(std::string_view title) {
    constexpr std::string_view joint = " — ";
    const std::string whole = comparableTitle(title);
    const auto at = whole.rfind(joint);
    const auto own = std::string_view(whole).substr(at == whole.npos ? 0 : at + joint.size());
    return std::any_of(firefoxMarkers().begin(), firefoxMarkers().end(),
                       [&](std::string_view marker) { return own.find(marker) != own.npos; });
}

} // namespace mnemora::desktop
