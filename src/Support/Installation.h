#pragma once
// Where the parts of this installation lie, found from where the core library itself was loaded,
// so that a build tree, an installation and a package moved elsewhere all work alike.

#include <filesystem>

namespace mnemora::installation {

/// The folder above bin, lib and share.
[[nodiscard]] std::filesystem::path prefix();
/// Our shared libraries (lib/mnemora).
[[nodiscard]] std::filesystem::path libraries();
/// Programs that only we start (libexec/mnemora).
[[nodiscard]] std::filesystem::path helpers();
/// Data files: models, artwork (share/mnemora).
[[nodiscard]] std::filesystem::path data();

} // namespace mnemora::installation
