#include "Support/Module.h"

#include <dlfcn.h>

namespace mnemora {

std::optional<Module> Module::open(const std::filesystem::path& path, std::string* reason) {
    if (void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE))
        return Module(handle);
    const char* words = dlerror();
    if (reason != nullptr && words != nullptr)
        *reason = words;
    return std::nullopt;
}

void* Module::symbol(const char* name) const {
    return dlsym(handle_, name);
}

} // namespace mnemora
