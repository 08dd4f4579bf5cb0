#pragma once
// The user's own folders, by the XDG Base Directory Specification 0.8
// (https://specifications.freedesktop.org/basedir-spec/): a variable that is empty or holds a
// relative path counts as unset. Every call reads the environment afresh.

#include <filesystem>

namespace mnemora::userFolders {

/// ${XDG_DATA_HOME:-$HOME/.local/share}
[[nodiscard]] std::filesystem::path data();
/// ${XDG_CONFIG_HOME:-$HOME/.config}/mnemora
[[nodiscard]] std::filesystem::path settings();
/// ${XDG_CACHE_HOME:-$HOME/.cache}/mnemora
[[nodiscard]] std::filesystem::path cache();
/// $XDG_RUNTIME_DIR/mnemora; empty when the session has no runtime folder.
[[nodiscard]] std::filesystem::path runtime();

/// Makes the folder and those above it, 0700 each whatever the umask; a folder of the user's own
/// that was there already gets 0700 too. False when it can't be made, is no folder, or belongs to
/// somebody else.
[[nodiscard]] bool makePrivate(const std::filesystem::path& folder);

} // namespace mnemora::userFolders
