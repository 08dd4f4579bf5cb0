#include "Store/HookedFileSystem.h"

#include <utility>

namespace mnemora::test {
namespace {

using Kind = FileCall::Kind;

sqlite3_vfs* real = nullptr;                       // while a hooked one is installed
const HookedFileSystem::Hook* installed = nullptr; // likewise

/// What SQLite allocates for each file; the system's own part lies behind it.
struct HookedFile {
    sqlite3_file base;
    const char* path; // SQLite keeps it until the file is closed
};

sqlite3_file* realFile(sqlite3_file* file) {
    return reinterpret_cast<sqlite3_file*>(reinterpret_cast<HookedFile*>(file) + 1);
}

template <class Real>
int pass(FileCall call, Real&& carryOut) {
    return (*installed)(call, std::forward<Real>(carryOut));
}

template <class Real>
int pass(sqlite3_file* file, FileCall call, Real&& carryOut) {
    const char* path = reinterpret_cast<HookedFile*>(file)->path;
    call.path = path != nullptr ? path : "";
    return pass(std::move(call), [&] { return carryOut(realFile(file)); });
}

int closeFile(sqlite3_file* file) {
    return realFile(file)->pMethods->xClose(realFile(file));
}
int readFile(sqlite3_file* file, void* bytes, int amount, sqlite3_int64 offset) {
    return pass(
        file, {.kind = Kind::read, .path = {}, .bytes = bytes, .amount = amount, .offset = offset},
        [&](auto* f) { return f->pMethods->xRead(f, bytes, amount, offset); });
}
int writeFile(sqlite3_file* file, const void* bytes, int amount, sqlite3_int64 offset) {
    return pass(file,
                {.kind = Kind::write,
                 .path = {},
                 .bytes = const_cast<void*>(bytes),
                 .amount = amount,
                 .offset = offset},
                [&](auto* f) { return f->pMethods->xWrite(f, bytes, amount, offset); });
}
int truncateFile(sqlite3_file* file, sqlite3_int64 size) {
    return pass(file, {.kind = Kind::truncate, .path = {}, .amount = size},
                [&](auto* f) { return f->pMethods->xTruncate(f, size); });
}
int syncFile(sqlite3_file* file, int flags) {
    return pass(file, {.kind = Kind::sync, .path = {}},
                [&](auto* f) { return f->pMethods->xSync(f, flags); });
}
int sizeOfFile(sqlite3_file* file, sqlite3_int64* size) {
    return pass(file, {.kind = Kind::size, .path = {}},
                [&](auto* f) { return f->pMethods->xFileSize(f, size); });
}
int lockFile(sqlite3_file* file, int level) {
    return pass(file, {.kind = Kind::lock, .path = {}},
                [&](auto* f) { return f->pMethods->xLock(f, level); });
}
int unlockFile(sqlite3_file* file, int level) {
    return realFile(file)->pMethods->xUnlock(realFile(file), level);
}
int isReserved(sqlite3_file* file, int* answer) {
    return realFile(file)->pMethods->xCheckReservedLock(realFile(file), answer);
}
int control(sqlite3_file* file, int operation, void* argument) {
    return realFile(file)->pMethods->xFileControl(realFile(file), operation, argument);
}
int sectorSize(sqlite3_file* file) {
    return realFile(file)->pMethods->xSectorSize(realFile(file));
}
int characteristics(sqlite3_file* file) {
    return realFile(file)->pMethods->xDeviceCharacteristics(realFile(file));
}
int sharedMap(sqlite3_file* file, int region, int size, int extend, void volatile** memory) {
    return pass(file, {.kind = Kind::sharedMap, .path = {}},
                [&](auto* f) { return f->pMethods->xShmMap(f, region, size, extend, memory); });
}
int sharedLock(sqlite3_file* file, int offset, int count, int flags) {
    // A lock can be refused, its release can't.
    if ((flags & SQLITE_SHM_UNLOCK) != 0)
        return realFile(file)->pMethods->xShmLock(realFile(file), offset, count, flags);
    return pass(file, {.kind = Kind::sharedLock, .path = {}},
                [&](auto* f) { return f->pMethods->xShmLock(f, offset, count, flags); });
}
void sharedBarrier(sqlite3_file* file) {
    realFile(file)->pMethods->xShmBarrier(realFile(file));
}
int sharedUnmap(sqlite3_file* file, int deleteToo) {
    return realFile(file)->pMethods->xShmUnmap(realFile(file), deleteToo);
}
int fetch(sqlite3_file* file, sqlite3_int64 offset, int amount, void** page) {
    return pass(file, {.kind = Kind::fetch, .path = {}, .amount = amount, .offset = offset},
                [&](auto* f) { return f->pMethods->xFetch(f, offset, amount, page); });
}
int unfetch(sqlite3_file* file, sqlite3_int64 offset, void* page) {
    return realFile(file)->pMethods->xUnfetch(realFile(file), offset, page);
}

constexpr sqlite3_io_methods fileMethods = {
    3,          closeFile,     readFile,    writeFile, truncateFile, syncFile,        sizeOfFile,
    lockFile,   unlockFile,    isReserved,  control,   sectorSize,   characteristics, sharedMap,
    sharedLock, sharedBarrier, sharedUnmap, fetch,     unfetch};

int openFile(sqlite3_vfs* /*system*/, const char* path, sqlite3_file* file, int flags, int* given) {
    reinterpret_cast<HookedFile*>(file)->path = path;
    file->pMethods = nullptr; // so SQLite closes only what was opened
    const int result = pass({.kind = Kind::open, .path = path != nullptr ? path : ""},
                            [&] { return real->xOpen(real, path, realFile(file), flags, given); });
    if (result == SQLITE_OK)
        file->pMethods = &fileMethods;
    return result;
}
int removeFile(sqlite3_vfs* /*system*/, const char* path, int syncFolder) {
    return pass({.kind = Kind::remove, .path = path, .isDurable = syncFolder != 0},
                [&] { return real->xDelete(real, path, syncFolder); });
}
int accessFile(sqlite3_vfs* /*system*/, const char* path, int flags, int* answer) {
    return pass({.kind = Kind::access, .path = path},
                [&] { return real->xAccess(real, path, flags, answer); });
}

} // namespace

HookedFileSystem::HookedFileSystem(Hook hook)
    : methods_(*sqlite3_vfs_find(nullptr)), hook_(std::move(hook)) {
    real = sqlite3_vfs_find(nullptr);
    installed = &hook_;
    methods_.pNext = nullptr;
    methods_.zName = "hooked";
    methods_.szOsFile += static_cast<int>(sizeof(HookedFile));
    methods_.xOpen = openFile;
    methods_.xDelete = removeFile;
    methods_.xAccess = accessFile;
    methods_.xSleep = [](sqlite3_vfs*, int microseconds) { return microseconds; };
    sqlite3_vfs_register(&methods_, 1);
}

HookedFileSystem::~HookedFileSystem() {
    sqlite3_vfs_unregister(&methods_);
    sqlite3_vfs_register(real, 1);
    installed = nullptr;
}

} // namespace mnemora::test
