#include "desktop/Program.h"

#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace mnemora::desktop {

Program::Program(const std::vector<std::string>& command) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int output : {STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, output, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    if (posix_spawnp(&process_, arguments[0], &actions, &attributes, arguments.data(), environ))
        process_ = 0;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
}

Program::~Program() {
    if (process_ <= 0)
        return;
    signal(SIGCONT);
    signal(SIGKILL);
    wait();
}

void Program::signal(int number) const {
    if (process_ > 0)
        kill(-process_, number);
}

void Program::wait() {
    if (process_ > 0)
        waitpid(process_, nullptr, 0);
    process_ = 0;
}

} // namespace mnemora::desktop
