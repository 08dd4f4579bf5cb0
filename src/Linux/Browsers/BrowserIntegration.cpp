#include "Linux/Browsers/BrowserIntegration.h"

#include "Support/FileDescriptor.h"
#include "Support/UserFolders.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

namespace mnemora::browsers {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr auto hostName = "app.mnemora.pages";
constexpr std::string_view originStart = "chrome-extension://";

std::optional<std::string> contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        return std::nullopt;
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

/// The file's object; null where it is missing or damaged.
Json objectIn(const fs::path& path) {
    const auto content = contentOf(path);
    auto parsed = content ? Json::parse(*content, nullptr, false) : Json();
    return parsed.is_object() ? parsed : Json();
}

std::string textAt(const Json& object, const char* key) {
    return object.is_object() && object.contains(key) && object[key].is_string()
               ? object[key].get<std::string>()
               : std::string();
}

/// Written beside its place and renamed, so that a browser never reads half of it.
bool writeWhole(const fs::path& path, const std::string& content) {
    if (!userFolders::makePrivate(path.parent_path()))
        return false;
    const auto draft = path.native() + ".new";
    unlink(draft.c_str());
    FileDescriptor file(
        ::open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0600));
    const bool written = file && fchmod(file.get(), 0600) == 0 && writeAll(file.get(), content) &&
                         fsync(file.get()) == 0 && std::rename(draft.c_str(), path.c_str()) == 0;
    if (!written)
        unlink(draft.c_str());
    return written;
}

bool removeFile(const fs::path& path) {
    return unlink(path.c_str()) == 0 || errno == ENOENT;
}

bool inPath(const char* command) {
    const char* variable = std::getenv("PATH");
    std::istringstream folders(variable != nullptr ? variable : "");
    for (std::string folder; std::getline(folders, folder, ':');)
        if (!folder.empty() && access((fs::path(folder) / command).c_str(), X_OK) == 0)
            return true;
    return false;
}

/// The extension that a host manifest of ours admits; empty where it isn't one.
std::string idIn(const fs::path& hostManifest) {
    const auto manifest = objectIn(hostManifest);
    const auto origins = manifest.is_object() ? manifest.value("allowed_origins", Json()) : Json();
    if (!origins.is_array() || origins.empty() || !origins[0].is_string())
        return {};
    const auto origin = origins[0].get<std::string>();
    const auto id = origin.starts_with(originStart) ? origin.substr(originStart.size(), 32) : "";
    const bool sound = id.size() == 32 && std::all_of(id.begin(), id.end(), [](char letter) {
                           return letter >= 'a' && letter <= 'p';
                       });
    return sound ? id : std::string();
}

} // namespace

BrowserIntegration::Locations BrowserIntegration::locations(const fs::path& prefix) {
    return {.configuration = userFolders::settings().parent_path(),
            .hostProgram = prefix / "libexec/mnemora/mnemora-browser-host",
            .extension = prefix / "share/mnemora/browser"};
}

std::optional<BrowserIntegration> BrowserIntegration::open(Locations locations) {
    const auto described = objectIn(locations.extension / "extension.json");
    auto id = textAt(described, "id");
    auto version = textAt(described, "version");
    if (id.empty() || version.empty())
        return std::nullopt;
    return BrowserIntegration(std::move(locations), std::move(id), std::move(version));
}

std::vector<BrowserReport> BrowserIntegration::report() const {
    std::vector<BrowserReport> reports;
    for (const auto& browser : browserTable)
        if (present(browser))
            reports.push_back({browser.name, browser.bundleIdentifier, state(browser)});
    return reports;
}

bool BrowserIntegration::install() const {
    bool any = false;
    bool all = true;
    for (const auto& browser : browserTable)
        if (present(browser)) {
            any = true;
            all = installFor(browser) && all;
        }
    return any && all;
}

bool BrowserIntegration::remove() const {
    bool all = true;
    for (const auto& browser : browserTable)
        all = removeFrom(browser) && all;
    return all;
}

bool BrowserIntegration::present(const Browser& browser) const {
    std::error_code failed;
    return fs::is_directory(locations_.configuration / browser.folder, failed) ||
           std::any_of(browser.commands.begin(), browser.commands.end(),
                       [](const char* command) { return command != nullptr && inPath(command); });
}

IntegrationState BrowserIntegration::state(const Browser& browser) const {
    if (contentOf(hostManifest(browser)) != hostManifestText())
        return IntegrationState::notInstalled;
    if (browser.installedBy == InstalledBy::user)
        return contentOf(extensionFile(browser, id_)) == extensionFileText()
                   ? IntegrationState::installed
                   : IntegrationState::notInstalled;
    std::error_code failed;
    const auto systemFile =
        locations_.root / fs::path(browser.systemExtensions).relative_path() / (id_ + ".json");
    return fs::exists(systemFile, failed) ? IntegrationState::installed
                                          : IntegrationState::needsAdministrator;
}

bool BrowserIntegration::installFor(const Browser& browser) const {
    const auto former = idIn(hostManifest(browser));
    if (!former.empty() && former != id_ && !removeFile(extensionFile(browser, former)))
        return false;
    return writeWhole(hostManifest(browser), hostManifestText()) &&
           writeWhole(extensionFile(browser, id_), extensionFileText());
}

bool BrowserIntegration::removeFrom(const Browser& browser) const {
    const auto former = idIn(hostManifest(browser));
    return (former.empty() || removeFile(extensionFile(browser, former))) &&
           removeFile(extensionFile(browser, id_)) && removeFile(hostManifest(browser));
}

fs::path BrowserIntegration::hostManifest(const Browser& browser) const {
    return locations_.configuration / browser.folder / "NativeMessagingHosts" /
           (std::string(hostName) + ".json");
}

fs::path BrowserIntegration::extensionFile(const Browser& browser, const std::string& id) const {
    return locations_.configuration / browser.folder / "External Extensions" / (id + ".json");
}

std::string BrowserIntegration::hostManifestText() const {
    return Json{{"name", hostName},
                {"description", "Tells Mnemora which page is in front"},
                {"path", locations_.hostProgram.string()},
                {"type", "stdio"},
                {"allowed_origins", {std::string(originStart) + id_ + "/"}}}
               .dump(4) +
           "\n";
}

std::string BrowserIntegration::extensionFileText() const {
    return Json{{"external_crx", (locations_.extension / "mnemora.crx").string()},
                {"external_version", version_}}
               .dump(4) +
           "\n";
}

} // namespace mnemora::browsers
