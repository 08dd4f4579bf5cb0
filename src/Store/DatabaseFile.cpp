#include "Store/DatabaseFile.h"

#include "Store/LostPages.h"
#include "Store/Statement.h"
#include "Support/FileDescriptor.h"
#include "Support/UserFolders.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

namespace mnemora {
namespace {

/// The capture process and several servers write the same file; a writer holds the lock for
/// milliseconds, so waiting this long means that something else is wrong.
constexpr int busyTimeoutMs = 5000;

constexpr auto schema = R"sql(CREATE TABLE IF NOT EXISTS events (
    id INTEGER PRIMARY KEY AUTOINCREMENT,
    ts REAL NOT NULL, source TEXT NOT NULL, app TEXT, bundle TEXT,
    kind TEXT, person TEXT, title TEXT, url TEXT, body TEXT, hash TEXT
);
CREATE INDEX IF NOT EXISTS idx_events_ts ON events(ts);
CREATE INDEX IF NOT EXISTS idx_events_hash ON events(hash);

CREATE VIRTUAL TABLE IF NOT EXISTS events_fts USING fts5(
    title, body, person, content='events', content_rowid='id'
);
CREATE TRIGGER IF NOT EXISTS events_ai AFTER INSERT ON events BEGIN
    INSERT INTO events_fts(rowid, title, body, person)
    VALUES (new.id, new.title, new.body, new.person);
END;

CREATE TABLE IF NOT EXISTS embeddings (
    event_id INTEGER PRIMARY KEY, dim INTEGER NOT NULL, vec BLOB NOT NULL
);)sql";

/// SQLite gives the write-ahead log and its index the database file's own mode, so setting that
/// before the first page is written settles all three. False when the file is somebody else's or
/// no ordinary file (SQLite would wait for ever on a pipe).
bool makePrivateFile(const std::filesystem::path& path) {
    const FileDescriptor file(
        open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0600));
    struct stat info {};
    if (!file || fstat(file.get(), &info) != 0)
        return true; // SQLite has its own words for it
    if (info.st_uid != geteuid() || !S_ISREG(info.st_mode))
        return false;
    // The umask may have taken bits away, an older copy may have some too many.
    if ((info.st_mode & 07777) != 0600)
        (void)fchmod(file.get(), 0600);
    return true;
}

/// A log that a killed process left behind may date from before its database became private.
void makeCompanionsPrivate(const std::filesystem::path& path) {
    for (const char* suffix : {"-wal", "-shm"}) {
        const FileDescriptor file(
            open((path.string() + suffix).c_str(), O_RDWR | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
        if (file)
            (void)fchmod(file.get(), 0600);
    }
}

/// Whether rows could be stored that the full-text index would never learn of.
bool isHalfMade(sqlite3* db) {
    const Statement made(db,
                         "SELECT 1 FROM sqlite_master WHERE name = 'events'\n"
                         "AND NOT EXISTS (SELECT 1 FROM sqlite_master WHERE name = 'events_ai');");
    return made && made.stepToRow();
}

bool belongsToSomebodyElse(const std::filesystem::path& folder) {
    struct stat info {};
    return stat(folder.c_str(), &info) == 0 && info.st_uid != geteuid();
}

} // namespace

std::filesystem::path databasePath() {
    return userFolders::data() / "Mnemora" / "mnemora.sqlite";
}

sqlite3* openDatabase(const std::filesystem::path& path) {
    // What is readable but can't be changed, on a read-only medium say, is still a memory.
    (void)userFolders::makePrivate(path.parent_path());
    if (belongsToSomebodyElse(path.parent_path()) || !makePrivateFile(path))
        return nullptr;
    makeCompanionsPrivate(path);
    surviveLostPages(path);
    sqlite3* db = nullptr;
    sqlite3_open(path.c_str(), &db);
    if (db == nullptr)
        return nullptr;
    sqlite3_busy_timeout(db, busyTimeoutMs);
    // What was built upon lost pages must not get into the file.
    const auto refuse = [](void*) { return hasLostPages() ? 1 : 0; };
    sqlite3_commit_hook(db, refuse, nullptr);
    sqlite3_exec(db, "PRAGMA journal_mode=WAL;", nullptr, nullptr, nullptr);
    if (sqlite3_exec(db, schema, nullptr, nullptr, nullptr) != SQLITE_OK && isHalfMade(db)) {
        sqlite3_close(db);
        return nullptr;
    }
    return db;
}

std::string databaseError(sqlite3* db) {
    // Without a connection SQLite would speak of memory.
    return db != nullptr ? sqlite3_errmsg(db) : "unable to open database file";
}

} // namespace mnemora
