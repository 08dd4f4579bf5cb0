// Fuzz target: the windows of a Wayland session, put together from what programs say of themselves
// in two places. Whatever others claim, no window vanishes from what is judged, and what one says
// of itself is never lifted from it.

#include "Capture/Privacy.h"
#include "Linux/Wayland/WindowMerge.h"
#include "Text/Encoding.h"
#include "fuzz/FuzzInput.h"

namespace {

using namespace mnemora;
using namespace mnemora::wayland;

const desktop::ApplicationCatalogue& catalogue() {
    static const desktop::ApplicationCatalogue made(
        std::make_shared<desktop::EntryIndex>(std::vector<desktop::DesktopEntry>{
            {.identifier = "org.example.Editor", .name = "Editor", .program = "editor"}}));
    return made;
}

ListedWindow windowFrom(fuzz::FuzzInput& input, std::uint32_t number) {
    const auto flags = input.byte();
    return {.number = number,
            .title = cleanText(input.text()),
            .applicationId = cleanText(input.text()),
            .isActive = (flags & 1U) != 0,
            .isMinimized = (flags & 2U) != 0};
}

atspi::AccessibleProgram programFrom(fuzz::FuzzInput& input, int process) {
    const auto flags = input.byte();
    atspi::AccessibleProgram made{{.processIdentifier = process,
                                   .executable = "/usr/bin/x",
                                   .program = cleanText(input.text()),
                                   .sandbox = {}},
                                  {.areAllNamesKnown = (flags & 2U) != 0}};
    for (unsigned i = 0; i < flags % 4U; ++i)
        made.reading.names.push_back(cleanText(input.text()));
    made.reading.isCertain = (flags & 4U) != 0;
    if (made.reading.isCertain && !made.reading.names.empty())
        made.reading.name = made.reading.names.front();
    return made;
}

bool isWithheld(const desktop::WindowIdentity& identity, const std::optional<std::string>& title) {
    return Privacy::shouldRedact(catalogue().application(identity).bundleIdentifier, title);
}

void checkListed(const WindowMerge& merge, const SessionFacts& facts) {
    const auto stack = merge.stack(facts);
    fuzz::require(stack && merge.clients(facts).size() == facts.listed->size());
    auto judged = stack->windows.begin();
    for (const ListedWindow& window : *facts.listed) {
        if (window.isMinimized)
            continue;
        fuzz::require(judged != stack->windows.end() && judged->front.window == window.number &&
                      judged->front.title.value_or("") == window.title);
        if (isWithheld(identityOf(window.applicationId, window.title, {}), window.title))
            fuzz::require(isWithheld(judged->front.identity, judged->front.title));
        ++judged;
    }
    fuzz::require(judged == stack->windows.end());
    const auto front = merge.front(facts);
    fuzz::require((front ? front->window : 0) == stack->active);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const auto counts = input.byte();
    SessionFacts facts;
    for (int i = 0; i < counts / 8 % 4; ++i)
        facts.programs.push_back(programFrom(input, 10 + i));
    const WindowMerge merge(catalogue());
    const auto unlisted = merge.stack(facts);
    std::size_t names = 0;
    for (const auto& program : facts.programs)
        names += program.reading.names.size();
    fuzz::require(!unlisted || unlisted->windows.size() <= names);
    (void)merge.front(facts);
    facts.listed.emplace();
    for (std::uint32_t i = 0; i < counts % 8U; ++i)
        facts.listed->push_back(windowFrom(input, i + 1));
    checkListed(merge, facts);
    return 0;
}
