#pragma once
// SQLite's file system with a test in between: every call that a connection makes of it passes
// through a hook, which carries it out, spoils it or only notes it
// (https://www.sqlite.org/c3ref/vfs.html).

#include <cstdint>
#include <functional>
#include <sqlite3.h>
#include <string>

namespace mnemora::test {

/// One call on a file. Which of the fields mean anything depends on the kind.
struct FileCall {
    enum class Kind {
        open,
        remove,
        access,
        read,
        write,
        truncate,
        sync,
        size,
        lock,
        sharedMap,
        sharedLock,
        fetch
    };
    Kind kind = Kind::open;
    /// The file's full path; empty for temporary files without a name.
    std::string path;
    /// What is to be written, or where the bytes read go.
    void* bytes = nullptr;
    /// Bytes to read or write, or the length to truncate to.
    std::int64_t amount = 0;
    std::int64_t offset = 0;
    /// Of a removal: whether it has to be on the disk when it returns.
    bool isDurable = false;
};

/// Stands before the system's own while it lives: connections opened meanwhile go through the
/// hook, and have to be closed before it goes. One at a time. Waiting (for a lock) takes no time.
class HookedFileSystem {
  public:
    /// Answers with an SQLite result code; `real` carries the call out.
    using Hook = std::function<int(const FileCall& call, const std::function<int()>& real)>;

    explicit HookedFileSystem(Hook hook);
    ~HookedFileSystem();
    HookedFileSystem(const HookedFileSystem&) = delete;
    HookedFileSystem& operator=(const HookedFileSystem&) = delete;

  private:
    sqlite3_vfs methods_;
    Hook hook_;
};

} // namespace mnemora::test
