#pragma once
// Reading a database file in place: mapped into memory, its pages asked of memory as a whole. A
// scan that meets each page's few touched lines one by one waits for main memory several times a
// page; asked for together, the lines arrive while the first is being read. Internal to the store.

struct sqlite3;

namespace mnemora {

/// Maps the file of this connection, as far as SQLite's build allows, and lets the scopes below
/// work on it. Costs nothing once done. Pages that are read count as the process's memory while
/// they are mapped, so only what scans the file maps it. By the connection's one user.
void mapForScanning(sqlite3* db);

/// While it lives, pages that this thread fetches from a mapped file are asked for as a whole.
class ReadAheadScope {
  public:
    ReadAheadScope();
    ~ReadAheadScope();
    ReadAheadScope(const ReadAheadScope&) = delete;
    ReadAheadScope& operator=(const ReadAheadScope&) = delete;
};

} // namespace mnemora
