#pragma once
// Pages of a mapped database file, asked of memory as a whole. A scan that meets each page's few
// touched lines one by one waits for main memory several times a page; asked for together, the
// lines arrive while the first is being read. Internal to the store.

struct sqlite3;

namespace mnemora {

/// Lets scopes below work on this connection's file; does nothing where the file isn't mapped.
/// Right after opening, before any other thread uses the connection.
void allowReadAhead(sqlite3* db);

/// While it lives, pages that this thread fetches from a mapped file are asked for as a whole.
class ReadAheadScope {
  public:
    ReadAheadScope();
    ~ReadAheadScope();
    ReadAheadScope(const ReadAheadScope&) = delete;
    ReadAheadScope& operator=(const ReadAheadScope&) = delete;
};

} // namespace mnemora
