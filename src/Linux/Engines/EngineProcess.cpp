#include "Linux/Engines/EngineProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <utility>

namespace mnemora::engines {
namespace {

constexpr int childSocket = 3;

/// What the child starts with, instead of what it would inherit.
class SpawnSettings {
  public:
    explicit SpawnSettings(int socket) {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        for (int descriptor = 0; descriptor < childSocket; ++descriptor)
            posix_spawn_file_actions_addopen(&actions_, descriptor, "/dev/null", O_RDWR, 0);
        posix_spawn_file_actions_adddup2(&actions_, socket, childSocket);
        posix_spawn_file_actions_addclosefrom_np(&actions_, childSocket + 1);
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;
    ~SpawnSettings() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }

    [[nodiscard]] const posix_spawn_file_actions_t* actions() const { return &actions_; }
    [[nodiscard]] const posix_spawnattr_t* attributes() const { return &attributes_; }

  private:
    posix_spawn_file_actions_t actions_{};
    posix_spawnattr_t attributes_{};
};

/// The pair's ends, both above the descriptors that the child's start overwrites.
bool connectedPair(FileDescriptor& ours, FileDescriptor& childs) {
    std::array<int, 2> ends{};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        return false;
    ours.reset(ends[0]);
    childs.reset(ends[1]);
    if (childs.get() <= childSocket)
        childs.reset(fcntl(childs.get(), F_DUPFD_CLOEXEC, childSocket + 1));
    return static_cast<bool>(childs);
}

} // namespace

std::optional<EngineProcess> EngineProcess::start(const std::filesystem::path& program,
                                                  std::vector<std::string> arguments) {
    FileDescriptor ours;
    FileDescriptor childs;
    if (!connectedPair(ours, childs))
        return std::nullopt;
    const SpawnSettings settings(childs.get());
    std::string name = program.filename().string();
    std::vector<char*> words{name.data()};
    for (auto& argument : arguments)
        words.push_back(argument.data());
    words.push_back(nullptr);
    std::array<char*, 1> environment{nullptr};
    pid_t pid = -1;
    if (posix_spawn(&pid, program.c_str(), settings.actions(), settings.attributes(), words.data(),
                    environment.data()) != 0)
        return std::nullopt;
    return EngineProcess(std::move(ours), pid);
}

EngineProcess::EngineProcess(EngineProcess&& other) noexcept
    : socket_(std::move(other.socket_)), pid_(std::exchange(other.pid_, -1)) {}

EngineProcess::~EngineProcess() {
    if (pid_ < 0)
        return;
    kill(pid_, SIGKILL);
    while (waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
    }
}

std::optional<std::chrono::nanoseconds> processorTime(pid_t pid) {
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(pid, &clock) != 0 || clock_gettime(clock, &time) != 0)
        return std::nullopt;
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

} // namespace mnemora::engines
