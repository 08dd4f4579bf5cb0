#include "Store/LostPages.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace mnemora {
namespace {

/// Where the database really lies that was opened last, as the list of mappings has it: with links
/// followed. Its log's index, which SQLite maps as well, has the same beginning, and a deleted file
/// keeps it. Read by the signal handler.
std::array<char, PATH_MAX> nameOfOurs{};
std::atomic<std::size_t> nameLength = 0;

// Written by a signal handler on the thread that reads it. This model of thread-local storage
// needs no call, and so no allocation, to be reached.
[[gnu::tls_model("initial-exec")]] thread_local std::atomic<bool> lost = false;

struct sigaction former {};

struct Mapping {
    std::uintptr_t begin = 0;
    std::uintptr_t end = 0;
    bool isOurs = false;
};

/// One line of the list of mappings: "7f00-7f10 r--s 00000000 08:01 42   /path" (proc(5), maps).
Mapping parsed(std::string_view line) {
    Mapping mapping;
    const char* last = line.data() + line.size();
    const auto begin = std::from_chars(line.data(), last, mapping.begin, 16);
    if (begin.ptr == last || *begin.ptr != '-')
        return {};
    std::from_chars(begin.ptr + 1, last, mapping.end, 16);
    const std::string_view name(nameOfOurs.data(), nameLength);
    mapping.isOurs = !name.empty() && line.find(name) != std::string_view::npos;
    return mapping;
}

/// The mapping that holds the address. Only calls that a signal handler may make
/// (signal-safety(7)).
Mapping mappingOf(std::uintptr_t address) {
    const int list = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
    if (list < 0)
        return {};
    std::array<char, 8192> buffer{}; // a line is at most a path and a hundred more
    std::size_t held = 0;
    Mapping found;
    for (ssize_t size = 0; found.end == 0 && held < buffer.size() &&
                           (size = read(list, buffer.data() + held, buffer.size() - held)) > 0;) {
        held += static_cast<std::size_t>(size);
        std::size_t at = 0;
        while (const void* end = std::memchr(buffer.data() + at, '\n', held - at)) {
            const auto length =
                static_cast<std::size_t>(static_cast<const char*>(end) - buffer.data()) - at;
            const Mapping mapping = parsed({buffer.data() + at, length});
            if (mapping.begin <= address && address < mapping.end)
                found = mapping;
            at += length + 1;
        }
        std::memmove(buffer.data(), buffer.data() + at, held - at);
        held -= at;
    }
    close(list);
    return found;
}

/// Everything behind a lost page is lost too, so one fault covers them all.
bool coverLostPages(void* where) {
    const auto pageSize = static_cast<std::uintptr_t>(sysconf(_SC_PAGESIZE));
    const auto address = reinterpret_cast<std::uintptr_t>(where);
    const Mapping mapping = mappingOf(address);
    if (!mapping.isOurs)
        return false;
    const std::uintptr_t page = address / pageSize * pageSize;
    return mmap(reinterpret_cast<void*>(page), mapping.end - page, PROT_READ | PROT_WRITE,
                MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED;
}

void onBusError(int number, siginfo_t* info, void* context) {
    const int errorBefore = errno;
    if (info->si_code == BUS_ADRERR && coverLostPages(info->si_addr)) {
        lost = true;
        errno = errorBefore;
        return;
    }
    errno = errorBefore;
    if ((former.sa_flags & SA_SIGINFO) != 0)
        former.sa_sigaction(number, info, context);
    else if (former.sa_handler != SIG_DFL && former.sa_handler != SIG_IGN)
        former.sa_handler(number);
    else {
        std::signal(number, SIG_DFL); // the same access raises it again, and ends the process
        if (info->si_code <= 0)
            (void)raise(number); // another process sent it
    }
}

/// Opened anew, a database has the name that it had; only another one changes it.
void remember(const std::filesystem::path& database) {
    static std::mutex lock;
    const std::lock_guard guard(lock);
    std::error_code error;
    const std::string real = std::filesystem::canonical(database, error).string();
    if (error || real.size() > nameOfOurs.size() ||
        real == std::string_view(nameOfOurs.data(), nameLength))
        return;
    nameLength = 0;
    std::ranges::copy(real, nameOfOurs.begin());
    nameLength = real.size();
}

} // namespace

void surviveLostPages(const std::filesystem::path& database) {
    remember(database);
    static std::once_flag once;
    std::call_once(once, [] {
        struct sigaction ours {};
        ours.sa_sigaction = onBusError;
        ours.sa_flags = SA_SIGINFO | SA_ONSTACK;
        sigemptyset(&ours.sa_mask);
        sigaction(SIGBUS, &ours, &former);
    });
}

bool hasLostPages() {
    return lost;
}

void forgetLostPages() {
    lost = false;
}

} // namespace mnemora
