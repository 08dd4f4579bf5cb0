#pragma once
// A shared library opened at first need. A runtime that is not there makes one service
// unavailable instead of keeping the whole program from starting.

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace mnemora {

/// An open shared library. It stays mapped for the life of the process: code of it may still run
/// on threads that a runtime started, so it is never unloaded.
class Module {
  public:
    /// Opens the library at `path` with all its symbols bound. Absent when it, or a library that
    /// it needs, is missing or damaged; `reason`, where given, then receives the loader's words.
    [[nodiscard]] static std::optional<Module> open(const std::filesystem::path& path,
                                                    std::string* reason = nullptr);

    /// The address of an exported C function, cast to its type; null when there is none.
    template <class Function>
    [[nodiscard]] Function* function(const char* name) const {
        return reinterpret_cast<Function*>(symbol(name));
    }

  private:
    explicit Module(void* handle) : handle_(handle) {}
    [[nodiscard]] void* symbol(const char* name) const;

    void* handle_;
};

} // namespace mnemora
