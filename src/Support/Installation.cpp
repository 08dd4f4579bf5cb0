#include "Support/Installation.h"

#include <dlfcn.h>

namespace mnemora::installation {

std::filesystem::path prefix() {
    static const std::filesystem::path folder = [] {
        Dl_info info{};
        std::error_code failed;
        if (dladdr(reinterpret_cast<void*>(&prefix), &info) == 0 || info.dli_fname == nullptr)
            return std::filesystem::path("/usr");
        const auto library = std::filesystem::canonical(info.dli_fname, failed);
        // <prefix>/lib/mnemora/libmnemora-core.so
        return failed ? std::filesystem::path("/usr")
                      : library.parent_path().parent_path().parent_path();
    }();
    return folder;
}

std::filesystem::path libraries() {
    return prefix() / "lib/mnemora";
}

std::filesystem::path helpers() {
    return prefix() / "libexec/mnemora";
}

std::filesystem::path data() {
    return prefix() / "share/mnemora";
}

} // namespace mnemora::installation
