#include "fakes/ChildProcess.h"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

extern char** environ;

namespace mnemora::test {

ChildProcess::ChildProcess(std::vector<std::string> command, Errors errors) {
    std::signal(SIGPIPE, SIG_IGN); // a child that is gone shows as a failed write
    std::array<int, 2> in{};
    std::array<int, 2> out{};
    if (pipe2(in.data(), O_CLOEXEC) != 0 || pipe2(out.data(), O_CLOEXEC) != 0)
        return;
    const FileDescriptor theirInput(in[0]);
    const FileDescriptor theirOutput(out[1]);
    input_.reset(in[1]);
    output_.reset(out[0]);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, theirInput.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, theirOutput.get(), STDOUT_FILENO);
    if (errors == Errors::dropped)
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    std::vector<char*> words;
    for (auto& word : command)
        words.push_back(word.data());
    words.push_back(nullptr);
    // It would inherit that broken pipes are ignored here.
    sigset_t pipes;
    sigemptyset(&pipes);
    sigaddset(&pipes, SIGPIPE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigdefault(&attributes, &pipes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    if (posix_spawn(&pid_, words[0], &actions, &attributes, words.data(), environ) != 0)
        pid_ = 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
}

ChildProcess::~ChildProcess() {
    if (pid_ == 0)
        return;
    kill();
    waitpid(pid_, nullptr, 0);
}

bool ChildProcess::send(const std::string& bytes) {
    return writeAll(input_.get(), bytes);
}

void ChildProcess::kill() const {
    if (pid_ > 0)
        ::kill(pid_, SIGKILL);
}

std::string ChildProcess::readLine(int patienceMs) {
    pollfd waiting{.fd = output_.get(), .events = POLLIN, .revents = 0};
    std::array<char, 4096> chunk{};
    for (;;) {
        if (const auto end = unread_.find('\n'); end != std::string::npos) {
            const std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        if (poll(&waiting, 1, patienceMs) <= 0)
            return {};
        const ssize_t size = read(output_.get(), chunk.data(), chunk.size());
        if (size <= 0)
            return {};
        unread_.append(chunk.data(), static_cast<std::size_t>(size));
    }
}

std::string ChildProcess::finish() {
    std::array<char, 4096> chunk{};
    for (ssize_t size = 0; (size = read(output_.get(), chunk.data(), chunk.size())) > 0;)
        unread_.append(chunk.data(), static_cast<std::size_t>(size));
    if (pid_ > 0)
        waitpid(std::exchange(pid_, 0), &status_, 0);
    return std::exchange(unread_, {});
}

} // namespace mnemora::test
