// What a locked-in process can still do. Each attempt is made in a child of its own.

#include "Engines/Confinement.h"

#include "Support/FileDescriptor.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sched.h>
#include <string>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace mnemora::engines {
namespace {

/// Runs `attempts` in a child that is locked in with a pipe as its only descriptor; it returns
/// what succeeded, named, and the child's last word.
template <class Attempts>
std::string lockedIn(Attempts attempts) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        return "no pipe";
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        const auto refused = lockIn(writing.get());
        const std::string words = refused ? "not locked: " + *refused : attempts();
        (void)!write(writing.get(), (words + "end").c_str(), words.size() + 3);
        _exit(0);
    }
    writing.reset();
    std::string answer;
    std::array<char, 512> part{};
    for (ssize_t count = 0; (count = read(reading.get(), part.data(), part.size())) > 0;)
        answer.append(part.data(), static_cast<std::size_t>(count));
    waitpid(child, nullptr, 0);
    return answer;
}

class UserFile {
  public:
    UserFile() {
        std::array<char, 64> name{};
        std::strcpy(name.data(), "/tmp/mnemora-confinement-XXXXXX");
        FileDescriptor(mkstemp(name.data())).reset();
        path = name.data();
        std::ofstream(path) << "secret";
    }
    ~UserFile() { std::filesystem::remove(path); }
    std::string path;
};

/// The calls, by number, that get as far as looking at their arguments, which mean nothing.
std::string notRefused() {
    constexpr std::array<long, 30> calls{SYS_openat2,
                                         SYS_open_by_handle_at,
                                         SYS_execveat,
                                         SYS_memfd_create,
                                         SYS_connect,
                                         SYS_bind,
                                         SYS_listen,
                                         SYS_accept4,
                                         SYS_sendto,
                                         SYS_socketpair,
                                         SYS_io_uring_setup,
                                         SYS_ptrace,
                                         SYS_process_vm_readv,
                                         SYS_pidfd_open,
                                         SYS_pidfd_getfd,
                                         SYS_tgkill,
                                         SYS_prlimit64,
                                         SYS_bpf,
                                         SYS_perf_event_open,
                                         SYS_userfaultfd,
                                         SYS_keyctl,
                                         SYS_mount,
                                         SYS_unshare,
                                         SYS_setns,
                                         SYS_shmget,
                                         SYS_inotify_init1,
                                         SYS_dup2,
                                         SYS_ioctl,
                                         SYS_getdents64,
                                         SYS_newfstatat};
    std::string numbers;
    for (const long call : calls)
        if (syscall(call, -1L, -1L, -1L, -1L, -1L, -1L) >= 0 || errno != EPERM)
            numbers += std::to_string(call) + " ";
    return numbers;
}

TEST(Confinement, AllowsNoFileNoSocketNoProgramAndNoSignal) {
    const UserFile file;
    const int inherited = open(file.path.c_str(), O_RDONLY);
    const int farAbove = fcntl(inherited, F_DUPFD, 200);
    const pid_t parent = getpid();
    const auto succeeded = lockedIn([&] {
        std::string done;
        const auto attempt = [&](const char* name, bool success) {
            done += success ? std::string(name) + " " : "";
        };
        struct stat info {};
        char letter = 0;
        attempt("open", open(file.path.c_str(), O_RDONLY) >= 0);
        attempt("create", open((file.path + "2").c_str(), O_CREAT | O_WRONLY, 0600) >= 0);
        attempt("stat", stat(file.path.c_str(), &info) == 0);
        attempt("unlink", unlink(file.path.c_str()) == 0);
        attempt("inherited", read(inherited, &letter, 1) == 1);
        attempt("inherited far above", read(farAbove, &letter, 1) == 1);
        attempt("unix", socket(AF_UNIX, SOCK_STREAM, 0) >= 0);
        attempt("inet", socket(AF_INET, SOCK_STREAM, 0) >= 0);
        attempt("netlink", socket(AF_NETLINK, SOCK_RAW, 0) >= 0);
        attempt("fork", fork() >= 0);
        attempt("exec", execl("/bin/true", "true", nullptr) == 0);
        attempt("kill", kill(parent, 0) == 0);
        attempt("pipe", pipe(std::array<int, 2>().data()) == 0);
        return done + notRefused();
    });
    close(farAbove);
    close(inherited);
    EXPECT_EQ(succeeded, "end");
    EXPECT_TRUE(std::filesystem::exists(file.path));
}

TEST(Confinement, HoldsForThreadsThatWereThereBefore) {
    const UserFile file;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t child = fork();
    if (child == 0) {
        std::atomic<bool> locked = false;
        char verdict = '?';
        std::thread older([&] {
            locked.wait(false);
            verdict = open(file.path.c_str(), O_RDONLY) < 0 ? 'n' : 'y';
        });
        const bool failed = lockIn(writing.get()).has_value();
        locked = true;
        locked.notify_all();
        older.join();
        // A new thread must still be possible: engines start some later.
        std::thread newer([&] { verdict = verdict == 'n' && !failed ? 'N' : verdict; });
        newer.join();
        (void)!write(writing.get(), &verdict, 1);
        _exit(0);
    }
    writing.reset();
    char verdict = 0;
    EXPECT_EQ(read(reading.get(), &verdict, 1), 1);
    EXPECT_EQ(verdict, 'N');
    waitpid(child, nullptr, 0);
}

TEST(Confinement, BoundsTheMemoryOfAnEngine) {
    const pid_t child = fork();
    if (child == 0) {
        enterBackground(Share::leftOver);
        const auto takes = [](std::size_t size) {
            return mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                        0) != MAP_FAILED;
        };
        constexpr std::size_t gibibyte = std::size_t(1) << 30;
        _exit(takes(2 * gibibyte) && !takes(gibibyte) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(Confinement, LeavesMemoryAndTime) {
    EXPECT_EQ(lockedIn([] {
                  std::vector<char> large(64 * 1024 * 1024, 'x');
                  std::this_thread::sleep_for(std::chrono::milliseconds(1));
                  return std::string(large.back() == 'x' ? "works " : "");
              }),
              "works end");
}

} // namespace
} // namespace mnemora::engines
