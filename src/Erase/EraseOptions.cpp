#include "Erase/EraseOptions.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>
#include <optional>
#include <set>
#include <string_view>

namespace mnemora {
namespace {

/// Which of two meanings counts, where an hour happens twice: what is to be erased is rather too
/// much than too little.
enum class Edge { from, until };

/// The local time as seconds since the epoch; absent when there is no such day.
std::optional<double> instant(const tm& wall, Edge edge) {
    std::optional<double> found;
    std::optional<double> shifted;
    for (const int summer : {-1, 0, 1}) {
        tm read = wall;
        read.tm_isdst = summer;
        const auto moment = static_cast<double>(mktime(&read));
        if (read.tm_mday != wall.tm_mday || read.tm_mon != wall.tm_mon)
            continue;
        if (summer < 0)
            shifted = moment; // in a skipped hour this is the nearest there is
        if (read.tm_hour == wall.tm_hour && read.tm_min == wall.tm_min)
            found = !found               ? moment
                    : edge == Edge::from ? std::min(*found, moment)
                                         : std::max(*found, moment);
    }
    return found ? found : shifted;
}

/// Whether the text has this form, in which a zero stands for any digit. A year of two digits, for
/// one, would mean the first century, and all that came after it.
bool hasForm(std::string_view text, std::string_view form) {
    return std::ranges::equal(text, form, [](char is, char wanted) {
        return wanted == '0' ? is >= '0' && is <= '9' : is == wanted;
    });
}

/// "2026-11-20" or "2026-11-20 09:30[:15]", also with a T; false when it is neither.
bool read(const std::string& text, tm& wall, bool& hasTime) {
    constexpr std::string_view forms[] = {"0000-00-00 00:00", "0000-00-00T00:00",
                                          "0000-00-00 00:00:00", "0000-00-00T00:00:00"};
    const auto isForm = [&](std::string_view form) { return hasForm(text, form); };
    hasTime = std::ranges::any_of(forms, isForm);
    if (!hasTime && !isForm("0000-00-00"))
        return false;
    wall = {};
    std::sscanf(text.c_str(), "%d-%d-%d%*c%d:%d:%d", &wall.tm_year, &wall.tm_mon, &wall.tm_mday,
                &wall.tm_hour, &wall.tm_min, &wall.tm_sec);
    wall.tm_year -= 1900;
    wall.tm_mon -= 1;
    return wall.tm_hour <= 23 && wall.tm_min <= 59 && wall.tm_sec <= 59;
}

/// The instant that a text means; a day alone is its start, or as `until` its end.
std::optional<double> parsed(const std::string& text, Edge edge, const Clock& clock) {
    tm wall{};
    bool hasTime = false;
    if (!read(text, wall, hasTime))
        return std::nullopt;
    if (hasTime)
        return instant(wall, edge);
    wall.tm_hour = 12; // which every day has, and far from its ends
    const auto noon = instant(wall, edge);
    if (!noon)
        return std::nullopt;
    constexpr double day =
        24 * 3600.0; // from noon it leads into the next, however long this one is
    return clock.startOfDay(edge == Edge::from ? *noon : *noon + day);
}

std::optional<long> number(const std::string& text) {
    long value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool isWhole = result.ec == std::errc() && result.ptr == text.data() + text.size();
    return isWhole && value >= 0 && value <= 86'400 ? std::optional(value) : std::nullopt;
}

struct Reader {
    const Clock& clock;
    EraseOptions options{};
    int ranges = 0; // --all, --day, and --from with --to count one each
    bool hasEdges = false;
    std::set<std::string> given{}; // of the options that take a value

    [[nodiscard]] bool setRange(const std::string& option, const std::string& value) {
        const auto from = parsed(value, Edge::from, clock);
        const auto until = parsed(value, Edge::until, clock);
        if (!from || !until || (option == "--day" && value.find(':') != std::string::npos))
            return false;
        if (option != "--to")
            options.range.from = *from;
        if (option != "--from")
            options.range.until = *until;
        ranges += option == "--day" || !hasEdges ? 1 : 0;
        hasEdges = hasEdges || option != "--day";
        return true;
    }

    /// What is wrong with an option that takes a value; empty when nothing is.
    [[nodiscard]] std::string set(const std::string& option, const std::string& value) {
        if (option == "--wait") {
            const auto seconds = number(value);
            if (!seconds)
                return "--wait takes a number of seconds";
            options.patience = std::chrono::seconds(*seconds);
            return {};
        }
        return setRange(option, value)
                   ? std::string()
                   : option + ": '" + value + "' is no " + (option == "--day" ? "day" : "time");
    }
};

} // namespace

std::variant<EraseOptions, std::string> parseEraseOptions(const std::vector<std::string>& arguments,
                                                          const Clock& clock) {
    Reader reader{.clock = clock};
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string& option = arguments[i];
        if (option == "--all") {
            ++reader.ranges;
        } else if (option == "--yes") {
            reader.options.isConfirmed = true;
        } else if (option == "--dry-run") {
            reader.options.isDryRun = true;
        } else if (option == "--help" || option == "-h") {
            reader.options.wantsHelp = true;
        } else if (option == "--day" || option == "--from" || option == "--to" ||
                   option == "--wait") {
            if (i + 1 == arguments.size())
                return option + " takes a value";
            if (!reader.given.insert(option).second)
                return option + " is given twice";
            if (const auto wrong = reader.set(option, arguments[++i]); !wrong.empty())
                return wrong;
        } else {
            return "unknown option '" + option + "'";
        }
    }
    if (reader.options.wantsHelp)
        return reader.options;
    if (reader.ranges != 1)
        return "say what to erase: --all, --day DAY, or --from TIME and --to TIME";
    if (reader.options.range.from >= reader.options.range.until)
        return "the end lies before the beginning";
    return reader.options;
}

} // namespace mnemora
