// Fuzz target: the names of a program's windows as the accessibility bus tells them. A page names
// its window itself, and must not be able to talk a private window out of its marker.

#include "Capture/Privacy.h"
#include "Linux/Desktop/PrivateWindowMarkers.h"
#include "Text/Characters.h"
#include "Text/Encoding.h"
#include "fuzz/FuzzInput.h"

#include <string>

namespace {

using namespace mnemora;
using namespace mnemora::desktop;

constexpr auto browser = "/nowhere/browser";

void checkMarkers(const std::string& name, std::uint8_t choice) {
    static PrivateWindowMarkers markers;
    const auto formats = chromiumFormats();
    const auto& format = formats[choice % formats.size()];
    const std::string hidden = format.before + name + format.after;
    fuzz::require(markers.marksChromium(hidden, 0, browser));
    fuzz::require(!markers.isOrdinaryChromium(hidden, {hidden}, 0, browser));
    const auto words = firefoxMarkers();
    const std::string own = " \xE2\x80\x94 " + std::string(words[choice % words.size()]);
    fuzz::require(PrivateWindowMarkers::marksFirefox(name + own));
}

void checkText(const std::string& name) {
    const auto start = firstCharacters(name, 20);
    fuzz::require(name.starts_with(start) && repairedUtf8(start) == start);
    fuzz::require(firstCharacters(start, 20) == start);
    const auto once = normalized(name);
    fuzz::require(normalized(once) == once);
    const auto inner = trimmed(name);
    fuzz::require(trimmed(inner) == inner && name.find(inner) != name.npos);
    fuzz::require(Privacy::shouldRedact(std::nullopt, name + " Password " + name));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::FuzzInput input(data, size);
    const auto choice = input.byte();
    const std::string name = cleanText(input.text());
    std::vector<std::string> others;
    while (!input.empty())
        others.push_back(cleanText(input.text()));
    static PrivateWindowMarkers markers;
    (void)markers.isOrdinaryChromium(name, others, 0, browser);
    checkMarkers(name, choice);
    checkText(name);
    return 0;
}
