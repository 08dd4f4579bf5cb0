#include "Linux/Desktop/ApplicationCatalogue.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace mnemora::desktop {
namespace {

/// The host in the instance that Chromium gives the window of a web page opened as an
/// application: "teams.microsoft.com__v2_".
std::string_view hostOf(const WindowIdentity& window) {
    const std::string_view instance = window.instance;
    const std::string_view host = instance.substr(0, instance.find('_'));
    return host.find('.') == std::string_view::npos ? std::string_view() : host;
}

/// An installed web application: Chromium's classes are "crx_" and its identifier, GNOME Web's
/// carry theirs after the browser's own.
bool isWebApplication(const WindowIdentity& window) {
    constexpr std::string_view prefixes[] = {"crx_", "msedge-_", "org.gnome.epiphany.webapp"};
    return std::any_of(std::begin(prefixes), std::end(prefixes), [&](std::string_view prefix) {
        return foldedMark(window.windowClass).starts_with(prefix) ||
               foldedMark(window.instance).starts_with(prefix);
    });
}

const TableRow* rowOf(const WindowIdentity& window, const std::optional<DesktopEntry>& entry) {
    // A window's class is what its program says; whose process it is, the system says.
    const TableRow* owner = rowNamed({window.process.sandbox, window.process.program});
    if (owner != nullptr && isConcealed(*owner))
        return owner;
    const bool isWebApp = isWebApplication(window) || (entry && entry->isWebApplication);
    if (isWebApp) {
        if (const TableRow* row = rowAtHost(hostOf(window)))
            return row;
        return entry ? rowNamed({entry->name}) : nullptr;
    }
    const TableRow* row = rowNamed({entry ? entry->identifier : std::string(), window.desktopId,
                                    window.process.sandbox, window.windowClass, window.instance,
                                    window.process.program});
    if (row == nullptr || row->browser != Browser::Chromium)
        return row;
    const TableRow* page = rowAtHost(hostOf(window));
    return page != nullptr ? page : row;
}

/// The browser whose window it is, also where the row is that of a web application in it.
Browser browserOf(const WindowIdentity& window, const TableRow* row) {
    if (row != nullptr && row->browser != Browser::None)
        return row->browser;
    const TableRow* engine =
        rowNamed({window.process.sandbox, window.windowClass, window.process.program});
    return engine != nullptr ? engine->browser : Browser::None;
}

std::optional<std::string> nameOf(const WindowIdentity& window,
                                  const std::optional<DesktopEntry>& entry) {
    if (entry && !entry->name.empty())
        return entry->name;
    for (const std::string* name :
         {&window.windowClass, &window.instance, &window.process.program, &window.desktopId})
        if (!name->empty())
            return *name;
    return std::nullopt;
}

} // namespace

CataloguedApplication ApplicationCatalogue::application(const WindowIdentity& window) const {
    const auto entry = entries_->find(window);
    const TableRow* row = rowOf(window, entry);
    CataloguedApplication result;
    result.name = nameOf(window, entry);
    result.browser = browserOf(window, row);
    if (row != nullptr && !row->bundleIdentifier.empty())
        result.bundleIdentifier = row->bundleIdentifier;
    else if (entry)
        result.bundleIdentifier = entry->identifier;
    return result;
}

} // namespace mnemora::desktop
