#include "Linux/Wayland/WindowMerge.h"

#include "Linux/Desktop/FocusedWindowTitles.h"

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <string_view>
#include <utility>

namespace mnemora::wayland {
namespace {

using atspi::AccessibleProgram;
using desktop::Browser;
using desktop::foldedMark;
using desktop::FrontWindow;
using desktop::ProcessFacts;
using desktop::StackedWindow;
using desktop::WindowIdentity;

/// Chromium calls a page in a window of its own "chrome-", the page's host and path or the
/// application's number, and the profile (chrome/browser/shell_integration_linux.cc of its
/// sources); its relatives have their own beginnings.
struct PagePrefix {
    std::string_view prefix;
    std::string_view windowClass;
};
constexpr std::array<PagePrefix, 4> pagePrefixes = {{{"chrome-", "google-chrome"},
                                                     {"chromium-", "chromium"},
                                                     {"msedge-", "microsoft-edge"},
                                                     {"brave-", "brave-browser"}}};

// How the titles of Firefox's windows that show pages end, in every language.
constexpr std::array<std::string_view, 8> firefoxBrands = {
    "Firefox", "Developer Edition", "Nightly", "LibreWolf", "Waterfox",
    "Floorp",  "Zen Browser",       "IceCat"};

// The desktop's own, which may call themselves active besides the window that has the focus.
constexpr std::array<std::string_view, 3> shells = {"gnome-shell", "plasmashell", "kwin_wayland"};

bool isShell(const ProcessFacts& process) {
    return std::find(shells.begin(), shells.end(), process.program) != shells.end();
}

bool hasName(const AccessibleProgram& program, const std::string& title) {
    const auto& names = program.reading.names;
    return !title.empty() && std::any_of(names.begin(), names.end(), [&](const auto& name) {
        return desktop::belongTogether(name, title);
    });
}

/// Of windows that only the accessibility bus knows: the same for the same window as long as it is
/// called the same, never one of the compositor's or the server's numbers.
std::uint32_t numberOf(const AccessibleProgram& program, const std::string& name) {
    const auto hash = std::hash<std::string>()(name) ^
                      static_cast<std::size_t>(program.process.processIdentifier) << 7U;
    return static_cast<std::uint32_t>(hash) | 0x8000'0000U;
}

/// A window that only the accessibility bus knows.
FrontWindow unlisted(const AccessibleProgram& program, const std::optional<std::string>& name) {
    return {numberOf(program, name.value_or("")),
            identityOf({}, name.value_or(""), program.process), name};
}

std::optional<std::string> titleOf(const ListedWindow& window) {
    return window.title.empty() ? std::nullopt : std::optional(window.title);
}

/// The X server's own window behind a listed one.
const WindowIdentity* onServer(const ListedWindow& window, const desktop::DisplayState& server) {
    const auto isClass = [&](const WindowIdentity& identity) {
        return !window.applicationId.empty() &&
               foldedMark(identity.windowClass) == foldedMark(window.applicationId);
    };
    if (window.isActive)
        return server.front && isClass(server.front->identity) ? &server.front->identity : nullptr;
    if (!server.stack)
        return nullptr;
    for (const StackedWindow& other : server.stack->windows)
        if (other.front.window != 0 && isClass(other.front.identity) &&
            other.front.title == titleOf(window))
            return &other.front.identity;
    return nullptr;
}

} // namespace

WindowIdentity identityOf(const std::string& applicationId, const std::string& title,
                          ProcessFacts process) {
    WindowIdentity identity{applicationId, applicationId, {}, std::move(process)};
    const auto* row =
        desktop::rowNamed({applicationId, identity.process.sandbox, identity.process.program});
    if (row != nullptr && row->browser == Browser::Firefox) {
        const bool isBrowserWindow =
            std::any_of(firefoxBrands.begin(), firefoxBrands.end(),
                        [&](std::string_view brand) { return title.ends_with(brand); });
        identity.instance = isBrowserWindow ? "Navigator" : "";
    }
    if (desktop::rowNamed({applicationId}) != nullptr)
        return identity;
    for (const PagePrefix& page : pagePrefixes)
        if (foldedMark(applicationId).starts_with(page.prefix)) {
            identity.windowClass = page.windowClass;
            identity.instance = applicationId.substr(page.prefix.size());
        }
    return identity;
}

bool WindowMerge::isSameApplication(const ListedWindow& window,
                                    const AccessibleProgram& program) const {
    const auto stated = catalogue_.application(identityOf(window.applicationId, {}, {}));
    const auto running = catalogue_.application(identityOf({}, {}, program.process));
    if (stated.bundleIdentifier && stated.bundleIdentifier == running.bundleIdentifier)
        return true;
    return !window.applicationId.empty() &&
           foldedMark(window.applicationId) == foldedMark(program.process.program);
}

// The title may have changed a moment ago, so one that fits counts more than none, but not all.
const AccessibleProgram* WindowMerge::programOf(const ListedWindow& window,
                                                const std::vector<AccessibleProgram>& all) const {
    Programs same;
    for (const AccessibleProgram& program : all)
        if (isSameApplication(window, program))
            same.push_back(&program);
    const auto only = [](Programs& programs, const auto& fits) {
        Programs fitting;
        std::copy_if(programs.begin(), programs.end(), std::back_inserter(fitting),
                     [&](const auto* program) { return fits(*program); });
        if (!fitting.empty())
            programs = std::move(fitting);
    };
    only(same, [&](const auto& program) { return hasName(program, window.title); });
    if (window.isActive)
        only(same, [](const auto& program) { return program.reading.isCertain; });
    if (same.size() == 1)
        return same.front();
    if (!same.empty() || !window.isActive || window.title.empty())
        return nullptr;
    // A program whose application nobody knows.
    for (const AccessibleProgram& program : all)
        if (program.reading.isCertain && program.reading.name == window.title)
            same.push_back(&program);
    return same.size() == 1 ? same.front() : nullptr;
}

WindowIdentity WindowMerge::identify(const ListedWindow& window, const SessionFacts& facts) const {
    if (window.process > 0) {
        auto process = desktop::processFacts(window.process);
        process.processIdentifier = window.process;
        return identityOf(window.applicationId, window.title, std::move(process));
    }
    if (const auto* known = onServer(window, facts.server))
        return *known;
    const auto* program = programOf(window, facts.programs);
    return identityOf(window.applicationId, window.title,
                      program == nullptr ? ProcessFacts() : desktop::upToDate(program->process));
}

std::optional<FrontWindow> WindowMerge::front(const SessionFacts& facts) const {
    if (facts.listed) {
        const auto isActive = [](const ListedWindow& window) { return window.isActive; };
        const auto& all = *facts.listed;
        if (std::count_if(all.begin(), all.end(), isActive) != 1)
            return std::nullopt;
        const auto& window = *std::find_if(all.begin(), all.end(), isActive);
        return FrontWindow{window.number, identify(window, facts), titleOf(window)};
    }
    // While a native window has the focus, the window manager may hold the server's with a window
    // of its own.
    if (facts.server.front && !isShell(facts.server.front->identity.process))
        return facts.server.front;
    Programs active;
    for (const AccessibleProgram& program : facts.programs)
        if (program.reading.isCertain && !isShell(program.process))
            active.push_back(&program);
    if (active.size() != 1)
        return std::nullopt;
    return unlisted(*active.front(), active.front()->reading.name);
}

std::optional<desktop::WindowStack> WindowMerge::stack(const SessionFacts& facts) const {
    const auto isComplete = [](const AccessibleProgram& program) {
        return program.reading.areAllNamesKnown || isShell(program.process);
    };
    if (!facts.listed && !std::all_of(facts.programs.begin(), facts.programs.end(), isComplete))
        return std::nullopt;
    desktop::WindowStack stack;
    stack.arePlacesKnown = false;
    const auto add = [&](FrontWindow window) {
        stack.windows.push_back({std::move(window), {}, {}});
    };
    if (facts.listed) {
        for (const ListedWindow& window : *facts.listed)
            if (!window.isMinimized)
                add({window.number, identify(window, facts), titleOf(window)});
    } else {
        for (const AccessibleProgram& program : facts.programs)
            for (const std::string& name : program.reading.names)
                if (!isShell(program.process))
                    add(unlisted(program, name));
    }
    // What the compositor lists of the server's windows leaves its menus and hints out.
    if (facts.server.stack)
        for (const StackedWindow& window : facts.server.stack->windows)
            if (!facts.listed || window.front.window == 0)
                add(window.front);
    const auto active = front(facts);
    stack.active = active ? active->window : 0;
    return stack;
}

std::vector<WindowIdentity> WindowMerge::clients(const SessionFacts& facts) const {
    std::vector<WindowIdentity> all = facts.server.clients;
    if (facts.listed)
        for (const ListedWindow& window : *facts.listed)
            all.push_back(identify(window, facts));
    else
        for (const AccessibleProgram& program : facts.programs)
            if (!program.reading.names.empty() && !isShell(program.process))
                all.push_back(identityOf({}, {}, program.process));
    return all;
}

} // namespace mnemora::wayland
