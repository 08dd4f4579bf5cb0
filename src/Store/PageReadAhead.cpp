#include "Store/PageReadAhead.h"

#include <cstddef>
#include <sqlite3.h>

namespace mnemora {
namespace {

/// The processor's unit of transfer from memory.
constexpr int cacheLine = 64;
/// xFetch came with this version of the methods (https://www.sqlite.org/c3ref/io_methods.html).
constexpr int versionWithFetch = 3;

thread_local bool readsAhead = false;

/// The file's own methods and a copy of them in which xFetch is ours. All databases of a process
/// are opened through the same default methods, so one pair serves them all.
const sqlite3_io_methods* original = nullptr;
sqlite3_io_methods withReadAhead;

int fetch(sqlite3_file* file, sqlite3_int64 offset, int amount, void** page) {
    const int result = original->xFetch(file, offset, amount, page);
    if (readsAhead && result == SQLITE_OK && *page != nullptr)
        for (int i = 0; i < amount; i += cacheLine)
            __builtin_prefetch(static_cast<const std::byte*>(*page) + i);
    return result;
}

} // namespace

void mapForScanning(sqlite3* db) {
    if (db == nullptr)
        return;
    sqlite3_exec(db, "PRAGMA mmap_size=68719476736;", nullptr, nullptr, nullptr);
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(db, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
        file == nullptr || file->pMethods == nullptr || file->pMethods->iVersion < versionWithFetch)
        return;
    if (original == nullptr) {
        original = file->pMethods;
        withReadAhead = *original;
        withReadAhead.xFetch = fetch;
    }
    if (file->pMethods == original)
        file->pMethods = &withReadAhead;
}

ReadAheadScope::ReadAheadScope() {
    readsAhead = true;
}

ReadAheadScope::~ReadAheadScope() {
    readsAhead = false;
}

} // namespace mnemora
