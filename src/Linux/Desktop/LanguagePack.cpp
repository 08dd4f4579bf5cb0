#include "Linux/Desktop/LanguagePack.h"

#include "Text/Encoding.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string_view>
#include <system_error>

namespace mnemora::desktop {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t maxPackBytes = 16U << 20U; // the largest of release 156 has 2 MB
constexpr std::size_t maxPacks = 512;
constexpr std::size_t entryBytes = 6; // number (2), offset (4)
constexpr std::uint8_t utf16 = 2;
constexpr std::string_view place = "$1";

std::string fromUtf16(std::string_view bytes) {
    std::u16string units(bytes.size() / 2, u'\0');
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

/// "$1 (Incognito)" and what other browsers of the family made of it.
bool isEnglishFormat(std::string_view text) {
    constexpr std::size_t longest = 40;
    if (!text.starts_with(place) || text.size() > longest)
        return false;
    const std::string_view after = text.substr(place.size());
    const auto word = after.find_first_not_of(" -([\xE2\x80\x93\x94");
    if (word == 0 || word == std::string_view::npos)
        return false;
    return after.substr(word).starts_with("Incognito") || after.substr(word).starts_with("Private") ||
           after.substr(word).starts_with("InPrivate");
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

template <class Integer>
Integer LanguagePack::at(std::size_t offset) const {
    Integer value = 0;
    if (offset + sizeof value <= bytes_.size())
        std::memcpy(&value, bytes_.data() + offset, sizeof value);
    return value;
}

std::optional<LanguagePack> LanguagePack::read(const fs::path& file) {
    std::error_code error;
    const auto size = fs::file_size(file, error);
    if (error || size > maxPackBytes)
        return std::nullopt;
    LanguagePack pack;
    pack.bytes_.resize(size);
    std::ifstream stream(file, std::ios::binary);
    stream.read(pack.bytes_.data(), static_cast<std::streamsize>(size));
    if (!stream || !pack.readHeader())
        return std::nullopt;
    return pack;
}

bool LanguagePack::readHeader() {
    const auto version = at<std::uint32_t>(0);
    if (version == 4) {
        count_ = at<std::uint32_t>(4);
        isUtf16_ = at<std::uint8_t>(8) == utf16;
        entries_ = 9;
    } else if (version == 5) {
        isUtf16_ = at<std::uint8_t>(4) == utf16;
        count_ = at<std::uint16_t>(8);
        entries_ = 12;
    } else {
        return false;
    }
    // One entry more than there are strings says where the last one ends.
    return count_ < bytes_.size() && entries_ + (count_ + 1) * entryBytes <= bytes_.size();
}

std::vector<std::uint16_t> LanguagePack::numbers() const {
    std::vector<std::uint16_t> result(count_);
    for (std::size_t i = 0; i < count_; ++i)
        result[i] = at<std::uint16_t>(entries_ + i * entryBytes);
    return result;
}

std::optional<std::string> LanguagePack::string(std::uint16_t number) const {
    std::size_t low = 0;
    std::size_t high = count_;
    while (low < high) {
        const std::size_t middle = (low + high) / 2;
        if (at<std::uint16_t>(entries_ + middle * entryBytes) < number)
            low = middle + 1;
        else
            high = middle;
    }
    const std::size_t entry = entries_ + low * entryBytes;
    if (low == count_ || at<std::uint16_t>(entry) != number)
        return std::nullopt;
    const std::size_t from = at<std::uint32_t>(entry + 2);
    const std::size_t to = at<std::uint32_t>(entry + entryBytes + 2);
    if (from > to || to > bytes_.size())
        return std::nullopt;
    const std::string_view raw = std::string_view(bytes_).substr(from, to - from);
    return cleanText(isUtf16_ ? fromUtf16(raw) : std::string(raw));
}

std::vector<TitleFormat> privateFormats(const fs::path& folder) {
    const auto english = LanguagePack::read(folder / "en-US.pak");
    if (!english)
        return {};
    std::vector<std::uint16_t> wanted;
    for (const std::uint16_t number : english->numbers())
        if (isEnglishFormat(english->string(number).value_or("")))
            wanted.push_back(number);
    std::vector<TitleFormat> formats;
    std::error_code error;
    std::size_t packs = 0;
    for (fs::directory_iterator file(folder, error), end; !error && file != end;
         file.increment(error)) {
        if (file->path().extension() != ".pak" || ++packs > maxPacks)
            continue;
        const auto pack = LanguagePack::read(file->path());
        for (const std::uint16_t number : wanted)
            if (const auto format = formatOf(pack ? pack->string(number) : std::nullopt))
                if (std::find(formats.begin(), formats.end(), *format) == formats.end())
                    formats.push_back(*format);
    }
    return formats;
}

} // namespace mnemora::desktop
