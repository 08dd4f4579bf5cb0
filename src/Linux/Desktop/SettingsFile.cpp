#include "Linux/Desktop/SettingsFile.h"

#include "Log.h"
#include "Support/FileDescriptor.h"
#include "Support/UserFolders.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace mnemora::desktop {
namespace {

/// Where the file really lies: a user may keep settings elsewhere behind a link, which stays.
std::filesystem::path resolved(const std::filesystem::path& file) {
    std::error_code error;
    auto target = std::filesystem::weakly_canonical(file, error);
    return error ? file : target;
}

enum class Reading { done, noFile, unreadable };

/// Reads a regular file of our size; anything else, a pipe that would never end among it, is
/// unreadable.
Reading read(const std::filesystem::path& file, std::string& text) {
    const FileDescriptor in(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (!in)
        return errno == ENOENT ? Reading::noFile : Reading::unreadable;
    struct stat info {};
    if (fstat(in.get(), &info) != 0 || !S_ISREG(info.st_mode))
        return Reading::unreadable;
    text.resize(maxDefaultsBytes + 1);
    size_t length = 0;
    while (length < text.size()) {
        const ssize_t count = ::read(in.get(), text.data() + length, text.size() - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return Reading::unreadable;
        if (count == 0)
            break;
        length += static_cast<size_t>(count);
    }
    text.resize(length);
    return Reading::done;
}

// Not synced to the disk: the main thread waits for none. After a power cut the file is the old
// one, the new one, or on some file systems empty, and an empty file reads as a damaged one.
bool replace(const std::filesystem::path& file, const std::string& text) {
    std::string temporary = file.string() + ".XXXXXX"; // mkostemp asks for 0600
    const FileDescriptor out(mkostemp(temporary.data(), O_CLOEXEC));
    if (!out)
        return false;
    // The umask may have taken some of it.
    if (fchmod(out.get(), 0600) == 0 && writeAll(out.get(), text) &&
        std::rename(temporary.c_str(), file.c_str()) == 0)
        return true;
    unlink(temporary.c_str());
    return false;
}

} // namespace

SettingsFile::SettingsFile(std::filesystem::path file) : file_(std::move(file)) {
    load();
}

void SettingsFile::load() {
    std::string text;
    const auto reading = read(file_, text);
    if (reading == Reading::noFile)
        return;
    auto values = reading == Reading::done ? parseDefaults(text) : std::nullopt;
    if (values) {
        values_ = std::move(*values);
        return;
    }
    logError("settings unreadable, starting afresh: " + file_.string());
    const auto kept = file_.string() + ".damaged";
    (void)std::rename(file_.c_str(), kept.c_str());
}

std::optional<DefaultsValue> SettingsFile::value(const std::string& key) const {
    const auto found = values_.find(key);
    return found == values_.end() ? std::nullopt : std::optional(found->second);
}

void SettingsFile::set(const std::string& key, DefaultsValue value) {
    const auto found = values_.find(key);
    if (found != values_.end() && found->second == value)
        return;
    values_[key] = std::move(value);
    if (write()) {
        saidThatItFails_ = false;
    } else if (!std::exchange(saidThatItFails_, true)) {
        logError("settings can't be written: " + file_.string());
    }
}

bool SettingsFile::write() const {
    return userFolders::makePrivate(file_.parent_path()) &&
           replace(resolved(file_), formatDefaults(values_));
}

} // namespace mnemora::desktop
