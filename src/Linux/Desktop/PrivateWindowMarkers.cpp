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

std::optional<std::string> withoutMark(std::string_view title,
                                       std::span<const TitleFormat> formats) {
    const auto found = std::find_if(formats.begin(), formats.end(), [&](const TitleFormat& format) {
        return bears(title, format);
    });
    if (found == formats.end())
        return std::nullopt;
    title.remove_prefix(found->before.size());
    title.remove_suffix(found->after.size());
    return std::string(title);
}

// What stands between the page's title, the browser's name and the profile's in one language or
// another.
constexpr std::string_view joints[] = {" - ", " – ", " — ", " -- ", ": "};

/// The browser's name in the title of one of its windows; without a page's title it is all.
std::string_view productIn(std::string_view title) {
    std::size_t begin = 0;
    for (const std::string_view joint : joints)
        if (const auto at = title.rfind(joint); at != title.npos)
            begin = std::max(begin, at + joint.size());
    return title.substr(begin);
}

/// Whether the product stands at the end or before the name of a profile.
bool namesProduct(std::string_view title, std::string_view product) {
    const auto startsWithJoint = [](std::string_view rest) {
        return std::any_of(std::begin(joints), std::end(joints),
                           [&](std::string_view joint) { return rest.starts_with(joint); });
    };
    const auto endsWithJoint = [](std::string_view before) {
        return std::any_of(std::begin(joints), std::end(joints),
                           [&](std::string_view joint) { return before.ends_with(joint); });
    };
    for (auto at = title.find(product); at != title.npos; at = title.find(product, at + 1)) {
        const auto rest = title.substr(at + product.size());
        if ((at == 0 || endsWithJoint(title.substr(0, at))) &&
            (rest.empty() || startsWithJoint(rest)))
            return true;
    }
    return false;
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
    constexpr std::size_t mostKnown = 16; // images are mounted in another folder at each start
    if (known_.size() >= mostKnown)
        known_.clear();
    return known_.emplace(executable, std::move(formats)).first->second;
}

std::optional<std::string> PrivateWindowMarkers::unmarked(std::string_view accessibleName,
                                                          int processIdentifier,
                                                          const std::string& executable) {
    const std::string title = comparableTitle(accessibleName);
    auto known = withoutMark(title, chromiumFormats());
    return known ? known : withoutMark(title, *formatsBeside(processIdentifier, executable));
}

bool PrivateWindowMarkers::marksChromium(std::string_view accessibleName, int processIdentifier,
                                         const std::string& executable) {
    return unmarked(accessibleName, processIdentifier, executable).has_value();
}

bool PrivateWindowMarkers::isOrdinaryChromium(std::string_view accessibleName,
                                              const std::vector<std::string>& all,
                                              int processIdentifier,
                                              const std::string& executable) {
    if (marksChromium(accessibleName, processIdentifier, executable))
        return false;
    const std::string title = comparableTitle(accessibleName);
    return std::all_of(all.begin(), all.end(), [&](const std::string& other) {
        const auto hidden = unmarked(other, processIdentifier, executable);
        return !hidden || namesProduct(title, productIn(*hidden));
    });
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
