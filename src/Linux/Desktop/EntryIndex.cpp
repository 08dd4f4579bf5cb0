#include "Linux/Desktop/ApplicationTable.h"
#include "Linux/Desktop/DesktopEntries.h"

#include <utility>

namespace mnemora::desktop {

EntryIndex::EntryIndex(std::vector<DesktopEntry> entries) : entries_(std::move(entries)) {
    // Entries that menus show come first, for several may start the same program.
    for (const bool shown : {true, false})
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            const DesktopEntry& entry = entries_[i];
            if (entry.isShown != shown)
                continue;
            const std::string identifier = foldedMark(entry.identifier);
            byIdentifier_.emplace(identifier, i);
            byLastPart_.emplace(identifier.substr(identifier.rfind('.') + 1), i);
            if (!entry.windowClass.empty())
                byClass_.emplace(foldedMark(entry.windowClass), i);
            if (!entry.program.empty() && !entry.isWebApplication)
                byProgram_.emplace(foldedMark(entry.program), i);
        }
    // The entry that bears the program's own name speaks for it before any other.
    for (const auto& [identifier, i] : byIdentifier_)
        if (foldedMark(entries_[i].program) == identifier && !entries_[i].isWebApplication)
            byProgram_[identifier] = i;
}

const DesktopEntry* EntryIndex::in(const Map& map, const std::string& key) const {
    const auto found = key.empty() ? map.end() : map.find(foldedMark(key));
    return found == map.end() ? nullptr : &entries_[found->second];
}

std::optional<DesktopEntry> EntryIndex::find(const WindowIdentity& window) const {
    const std::string& sandbox = window.process.sandbox;
    const std::pair<const Map*, std::string> ways[] = {
        {&byIdentifier_, window.desktopId},
        {&byClass_, window.windowClass},
        {&byClass_, window.instance},
        {&byIdentifier_, sandbox},
        {&byIdentifier_, sandbox.empty() ? sandbox : sandbox + "_" + sandbox},
        {&byIdentifier_, window.windowClass},
        {&byIdentifier_, window.instance},
        {&byLastPart_, window.windowClass},
        {&byProgram_, window.process.program},
        {&byLastPart_, window.process.program},
    };
    for (const auto& [map, key] : ways)
        if (const DesktopEntry* entry = in(*map, key))
            return *entry;
    return std::nullopt;
}

} // namespace mnemora::desktop
