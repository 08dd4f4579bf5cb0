#pragma once
// Opening the database file: its folder, its modes, its schema. Internal to the store.

#include <filesystem>
#include <string>

struct sqlite3;

namespace mnemora {

/// The database file in the user's data folder.
[[nodiscard]] std::filesystem::path databasePath();

/// Makes the folder, opens or creates the file and applies the schema. The folder gets mode 0700,
/// the file and its companions 0600, whatever the umask. Never fails visibly: the result is then
/// null or a connection on which no statement prepares. Close with sqlite3_close.
[[nodiscard]] sqlite3* openDatabase(const std::filesystem::path& path);

/// SQLite's current message for the connection, also for a null one.
[[nodiscard]] std::string databaseError(sqlite3* db);

} // namespace mnemora
