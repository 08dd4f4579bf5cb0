#include "Support/UserFolders.h"

#include <cerrno>
#include <cstdlib>
#include <pwd.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace mnemora::userFolders {
namespace {

std::filesystem::path absoluteFrom(const char* variable) {
    const char* value = std::getenv(variable);
    if (value == nullptr || value[0] != '/')
        return {};
    return value;
}

std::filesystem::path home() {
    if (auto folder = absoluteFrom("HOME"); !folder.empty())
        return folder;
    const passwd* entry = getpwuid(getuid());
    return entry != nullptr && entry->pw_dir != nullptr ? entry->pw_dir : "/";
}

std::filesystem::path base(const char* variable, const char* belowHome) {
    auto folder = absoluteFrom(variable);
    return folder.empty() ? home() / belowHome : folder;
}

/// mkdir applies the umask, so a new folder gets its mode once more.
bool makeOne(const std::filesystem::path& folder) {
    if (mkdir(folder.c_str(), 0700) == 0)
        return chmod(folder.c_str(), 0700) == 0;
    return errno == EEXIST;
}

bool makeWithParents(const std::filesystem::path& folder) {
    struct stat info {};
    if (folder.empty() || stat(folder.c_str(), &info) == 0)
        return true;
    return makeWithParents(folder.parent_path()) && makeOne(folder);
}

} // namespace

std::filesystem::path data() {
    return base("XDG_DATA_HOME", ".local/share");
}

std::filesystem::path settings() {
    return base("XDG_CONFIG_HOME", ".config") / "mnemora";
}

std::filesystem::path cache() {
    return base("XDG_CACHE_HOME", ".cache") / "mnemora";
}

std::filesystem::path runtime() {
    auto folder = absoluteFrom("XDG_RUNTIME_DIR");
    return folder.empty() ? folder : folder / "mnemora";
}

bool makePrivate(const std::filesystem::path& folder) {
    if (!makeWithParents(folder))
        return false;
    struct stat info {};
    if (stat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) || info.st_uid != geteuid())
        return false;
    // A read-only file system refuses the change; what is already private is fine there.
    return (info.st_mode & 077) == 0 || chmod(folder.c_str(), 0700) == 0;
}

} // namespace mnemora::userFolders
