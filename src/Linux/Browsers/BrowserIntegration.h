#pragma once
// Puts the extension and the host program's manifest where the user's browsers look for them, and
// takes them away again. What is written: two small files for each browser, below the user's
// configuration folder; a browser that is running takes them up at its next start.

#include "Linux/Browsers/BrowserTable.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::browsers {

enum class IntegrationState {
    notInstalled,
    installed,
    /// The host program is registered; the extension itself can only come from the browser's store
    /// or from an administrator (a file in Browser::systemExtensions).
    needsAdministrator
};

struct BrowserReport {
    std::string name;
    std::string bundleIdentifier;
    IntegrationState state = IntegrationState::notInstalled;

    bool operator==(const BrowserReport&) const = default;
};

/// Main thread; every operation reads and writes a few small files.
class BrowserIntegration {
  public:
    struct Locations {
        /// The user's configuration folder ($XDG_CONFIG_HOME).
        std::filesystem::path configuration;
        /// The host program.
        std::filesystem::path hostProgram;
        /// The folder that holds mnemora.crx and extension.json.
        std::filesystem::path extension;
        /// Put before the system's folders; "/" but in tests.
        std::filesystem::path root = "/";
    };

    /// Of an installation below `prefix`, for this user.
    [[nodiscard]] static Locations locations(const std::filesystem::path& prefix);
    /// Absent when the packed extension isn't there or can't be read.
    [[nodiscard]] static std::optional<BrowserIntegration> open(Locations locations);

    /// Every browser of the table that this user has, with what is there for it.
    [[nodiscard]] std::vector<BrowserReport> report() const;
    /// Writes both files for every browser that this user has, and removes those of an earlier
    /// installation. False when one could not be written (the others are) or there is no browser.
    [[nodiscard]] bool install() const;
    /// Removes everything that install() has written, now or in an earlier installation, for
    /// every browser of the table. False when a file could not be removed.
    [[nodiscard]] bool remove() const;
    /// The extension's id.
    [[nodiscard]] const std::string& id() const { return id_; }

  private:
    BrowserIntegration(Locations locations, std::string id, std::string version)
        : locations_(std::move(locations)), id_(std::move(id)), version_(std::move(version)) {}

    [[nodiscard]] bool present(const Browser& browser) const;
    [[nodiscard]] IntegrationState state(const Browser& browser) const;
    [[nodiscard]] bool installFor(const Browser& browser) const;
    [[nodiscard]] bool removeFrom(const Browser& browser) const;
    [[nodiscard]] std::filesystem::path hostManifest(const Browser& browser) const;
    [[nodiscard]] std::filesystem::path extensionFile(const Browser& browser,
                                                      const std::string& id) const;
    [[nodiscard]] std::string hostManifestText() const;
    [[nodiscard]] std::string extensionFileText() const;

    Locations locations_;
    std::string id_;
    std::string version_;
};

} // namespace mnemora::browsers
