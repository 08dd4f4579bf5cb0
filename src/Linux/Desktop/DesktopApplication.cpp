#include "Linux/Desktop/DesktopApplication.h"

#include "Support/CoreFiles.h"
#include "Support/FileDescriptor.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace mnemora::desktop {
namespace {

// Between fork and exec of a process with threads only async-signal-safe calls are allowed
// (signal-safety(7)): no allocation, no lock.
[[noreturn]] void becomeProgram(const char* program, char* const* arguments, int report) {
    setsid();
    // Once more, so that init takes the program over and nobody is left to wait for it.
    const pid_t child = fork();
    if (child != 0)
        _exit(child < 0 ? 1 : 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL); // what is ignored stays ignored across exec
    coreFiles::allowAgain();
    const auto first = static_cast<unsigned>(STDERR_FILENO + 1);
    if (report > STDERR_FILENO + 1)
        syscall(SYS_close_range, first, static_cast<unsigned>(report - 1), 0U);
    syscall(SYS_close_range, static_cast<unsigned>(report + 1), UINT_MAX, 0U);
    execve(program, arguments, environ);
    const char failed = 1;
    [[maybe_unused]] const ssize_t written = write(report, &failed, 1);
    _exit(127);
}

void awaitEnd(pid_t child) {
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

/// The other end closes when the program has started and says a byte when it can't.
bool hasStarted(int report) {
    char failed = 0;
    ssize_t count = 0;
    do
        count = read(report, &failed, 1);
    while (count < 0 && errno == EINTR);
    return count == 0;
}

} // namespace

DesktopApplication::DesktopApplication(std::function<void()> quit) : quit_(std::move(quit)) {}

std::string DesktopApplication::bundlePath() {
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/self/exe", error).string();
    if (error)
        return {};
    // The kernel's mark for a file that a newer version has replaced (proc(5)).
    constexpr std::string_view replaced = " (deleted)";
    if (path.ends_with(replaced) && !std::filesystem::exists(path, error))
        path.resize(path.size() - replaced.size());
    return path;
}

bool DesktopApplication::startDetached(const std::string& program,
                                       const std::vector<std::string>& arguments) {
    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (auto& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        return false;
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const pid_t child = fork();
    if (child == 0)
        becomeProgram(program.c_str(), pointers.data(), writing.get());
    if (child < 0)
        return false;
    writing.reset();
    awaitEnd(child);
    return hasStarted(reading.get());
}

void DesktopApplication::terminate() {
    quit_();
}

} // namespace mnemora::desktop
