#include "Linux/Embedding/SealedFile.h"

#include "Support/FileDescriptor.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#include <xxhash.h>

namespace mnemora::embedding {
namespace {

/// At the end, so that the content begins at a page and keeps its own alignment.
struct Seal {
    std::uint64_t key;
    std::uint64_t digest; // XXH3-64 of the content
    std::uint64_t magic;
};

constexpr std::uint64_t sealMagic = 0x4C4145534D454E4D; // "MNEMSEAL" in memory

Seal sealOf(std::string_view content, std::uint64_t key) {
    return {.key = key, .digest = XXH3_64bits(content.data(), content.size()), .magic = sealMagic};
}

bool writeSealed(int fd, std::uint64_t key, std::string_view content) {
    const Seal seal = sealOf(content, key);
    const std::string_view end(reinterpret_cast<const char*>(&seal), sizeof seal);
    // The umask may have taken from the 0600 that mkostemp asks for.
    return fchmod(fd, 0600) == 0 && writeAll(fd, content) && writeAll(fd, end) &&
           fdatasync(fd) == 0;
}

} // namespace

void SealedFile::Unmap::operator()(void* address) const {
    munmap(address, size);
}

std::optional<SealedFile> SealedFile::open(const std::filesystem::path& path, std::uint64_t key) {
    // Nobody may ever write into a pipe of that name.
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat info {};
    if (!file || fstat(file.get(), &info) != 0 || !S_ISREG(info.st_mode) ||
        info.st_uid != geteuid() || static_cast<std::size_t>(info.st_size) <= sizeof(Seal))
        return std::nullopt;
    const auto size = static_cast<std::size_t>(info.st_size);
    void* address = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.get(), 0);
    if (address == MAP_FAILED)
        return std::nullopt;
    SealedFile sealed{Mapping(address, Unmap{size})};
    Seal seal{};
    std::memcpy(&seal, static_cast<const char*>(address) + size - sizeof seal, sizeof seal);
    // The cheap comparison first: an outdated file needn't be read whole.
    if (seal.magic != sealMagic || seal.key != key)
        return std::nullopt;
    const auto content = sealed.content();
    if (XXH3_64bits(content.data(), content.size()) != seal.digest)
        return std::nullopt;
    return sealed;
}

bool SealedFile::write(const std::filesystem::path& path, std::uint64_t key,
                       std::string_view content) {
    std::string name = path.string() + ".XXXXXX";
    const FileDescriptor file(mkostemp(name.data(), O_CLOEXEC));
    if (!file)
        return false;
    if (writeSealed(file.get(), key, content) && std::rename(name.c_str(), path.c_str()) == 0)
        return true;
    unlink(name.c_str());
    return false;
}

std::span<const std::byte> SealedFile::content() const {
    return {static_cast<const std::byte*>(mapping_.get()),
            mapping_.get_deleter().size - sizeof(Seal)};
}

void SealedFile::dropPages() const {
    madvise(mapping_.get(), mapping_.get_deleter().size, MADV_DONTNEED);
}

} // namespace mnemora::embedding
