#include "Linux/Desktop/LanguagePack.h"

#include "Text/Encoding.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace mnemora::desktop {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t maxStrings = 65536;
constexpr std::size_t maxStringBytes = 1024;
constexpr std::size_t maxPacks = 512;
constexpr std::size_t entryBytes = 6; // number (2), offset (4)
constexpr std::uint8_t utf16 = 2;
constexpr std::string_view place = "$1";

template <class Integer>
Integer number(const std::string& bytes, std::size_t offset) {
    Integer value = 0; // little-endian, as every machine that these browsers run on
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

std::string fromUtf16(std::string_view bytes) {
    std::u16string units(bytes.size() / 2, u'\0');
    if (!units.empty())
        std::memcpy(units.data(), bytes.data(), units.size() * 2);
    std::string text;
    for (std::size_t i = 0; i < units.size(); ++i) {
        char32_t point = units[i];
        if (point >= 0xD800 && point < 0xDC00 && i + 1 < units.size())
            point = 0x10000 + ((point - 0xD800) << 10U) + (units[++i] - 0xDC00U);
        const auto tail = [&](unsigned shift) {
            text += static_cast<char>(0x80U | ((point >> shift) & 0x3FU));
        };
        if (point < 0x80) {
            text += static_cast<char>(point);
        } else if (point < 0x800) {
            text += static_cast<char>(0xC0U | (point >> 6U));
            tail(0);
        } else if (point < 0x10000) {
            text += static_cast<char>(0xE0U | (point >> 12U));
            tail(6), tail(0);
        } else {
            text += static_cast<char>(0xF0U | ((point >> 18U) & 7U));
            tail(12), tail(6), tail(0);
        }
    }
    return text;
}

/// "$1 (Incognito)", "$1 (Guest)", and what other browsers of the family made of them.
bool isEnglishFormat(std::string_view text) {
    constexpr std::size_t longest = 40;
    if (!text.starts_with(place) || text.size() > longest)
        return false;
    const std::string_view after = text.substr(place.size());
    const auto word = after.find_first_not_of(" -([\xE2\x80\x93\x94");
    if (word == 0 || word == std::string_view::npos)
        return false;
    constexpr std::string_view marks[] = {"Incognito", "Private", "InPrivate", "Guest", "Isolated"};
    return std::any_of(std::begin(marks), std::end(marks),
                       [&](std::string_view mark) { return after.substr(word).starts_with(mark); });
}

std::optional<TitleFormat> formatOf(const std::optional<std::string>& string) {
    const std::string text = comparableTitle(string.value_or(""));
    const auto at = text.find(place);
    if (at == std::string::npos)
        return std::nullopt;
    TitleFormat format{text.substr(0, at), text.substr(at + place.size())};
    constexpr std::size_t shortestMarker = 3; // a bare bracket or blank marks nothing
    if (format.before.size() + format.after.size() < shortestMarker)
        return std::nullopt;
    return format;
}

} // namespace

std::optional<LanguagePack> LanguagePack::open(const fs::path& file) {
    LanguagePack pack;
    pack.file_.reset(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!pack.file_ || !pack.readTable())
        return std::nullopt;
    return pack;
}

std::string LanguagePack::bytes(std::size_t from, std::size_t length) const {
    std::string result(length, '\0');
    const ssize_t got = pread(file_.get(), result.data(), length, static_cast<off_t>(from));
    result.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return result;
}

bool LanguagePack::readTable() {
    constexpr std::size_t headerBytes = 12;
    const std::string header = bytes(0, headerBytes);
    if (header.size() < headerBytes)
        return false;
    const auto version = number<std::uint32_t>(header, 0);
    std::size_t start = headerBytes;
    if (version == 4) {
        count_ = number<std::uint32_t>(header, 4);
        isUtf16_ = number<std::uint8_t>(header, 8) == utf16;
        start = 9;
    } else if (version == 5) {
        isUtf16_ = number<std::uint8_t>(header, 4) == utf16;
        count_ = number<std::uint16_t>(header, 8);
    } else {
        return false;
    }
    if (count_ > maxStrings)
        return false;
    // One entry more than there are strings says where the last one ends.
    table_ = bytes(start, (count_ + 1) * entryBytes);
    return table_.size() == (count_ + 1) * entryBytes;
}

template <class Integer>
Integer LanguagePack::entry(std::size_t index, std::size_t offset) const {
    return number<Integer>(table_, index * entryBytes + offset);
}

std::vector<std::uint16_t> LanguagePack::numbers() const {
    std::vector<std::uint16_t> result(count_);
    for (std::size_t i = 0; i < count_; ++i)
        result[i] = entry<std::uint16_t>(i, 0);
    return result;
}

std::optional<std::string> LanguagePack::string(std::uint16_t wanted) const {
    std::size_t low = 0;
    std::size_t high = count_;
    while (low < high) {
        const std::size_t middle = (low + high) / 2;
        if (entry<std::uint16_t>(middle, 0) < wanted)
            low = middle + 1;
        else
            high = middle;
    }
    if (low == count_ || entry<std::uint16_t>(low, 0) != wanted)
        return std::nullopt;
    const std::size_t from = entry<std::uint32_t>(low, 2);
    const std::size_t to = entry<std::uint32_t>(low + 1, 2);
    if (from > to || to - from > maxStringBytes)
        return std::nullopt;
    const std::string raw = bytes(from, to - from);
    return cleanText(isUtf16_ ? fromUtf16(raw) : raw);
}

std::vector<TitleFormat> privateFormats(const fs::path& folder) {
    const auto english = LanguagePack::open(folder / "en-US.pak");
    if (!english)
        return {};
    std::vector<std::uint16_t> wanted;
    for (const std::uint16_t identifier : english->numbers())
        if (isEnglishFormat(english->string(identifier).value_or("")))
            wanted.push_back(identifier);
    std::vector<TitleFormat> formats;
    std::error_code error;
    std::size_t packs = 0;
    for (fs::directory_iterator file(folder, error), end; !error && file != end;
         file.increment(error)) {
        if (file->path().extension() != ".pak" || ++packs > maxPacks)
            continue;
        const auto pack = LanguagePack::open(file->path());
        for (const std::uint16_t identifier : wanted)
            if (const auto format = formatOf(pack ? pack->string(identifier) : std::nullopt))
                if (std::find(formats.begin(), formats.end(), *format) == formats.end())
                    formats.push_back(*format);
    }
    return formats;
}

} // namespace mnemora::desktop
