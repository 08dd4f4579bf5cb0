#include "Engines/Confinement.h"

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <linux/landlock.h>
#include <linux/prctl.h>
#include <memory>
#include <sched.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <type_traits>
#include <unistd.h>

namespace mnemora::engines {
namespace {

struct ReleaseFilter {
    void operator()(void* filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<std::remove_pointer_t<scmp_filter_ctx>, ReleaseFilter>;

// Everything that calculating, allocating, threads and talking over an open socket need.
constexpr std::array allowedCalls{
    SCMP_SYS(read),          SCMP_SYS(write),
    SCMP_SYS(recvmsg),       SCMP_SYS(sendmsg),
    SCMP_SYS(poll),          SCMP_SYS(ppoll),
    SCMP_SYS(close),         SCMP_SYS(lseek),
    SCMP_SYS(mmap),          SCMP_SYS(munmap),
    SCMP_SYS(mprotect),      SCMP_SYS(mremap),
    SCMP_SYS(madvise),       SCMP_SYS(brk),
    SCMP_SYS(futex),         SCMP_SYS(set_robust_list),
    SCMP_SYS(rseq),          SCMP_SYS(membarrier),
    SCMP_SYS(clock_gettime), SCMP_SYS(clock_nanosleep),
    SCMP_SYS(nanosleep),     SCMP_SYS(gettimeofday),
    SCMP_SYS(sched_yield),   SCMP_SYS(sched_getaffinity),
    SCMP_SYS(getcpu),        SCMP_SYS(getpid),
    SCMP_SYS(gettid),        SCMP_SYS(getrandom),
    SCMP_SYS(sysinfo),       SCMP_SYS(restart_syscall),
    SCMP_SYS(rt_sigaction),  SCMP_SYS(rt_sigprocmask),
    SCMP_SYS(rt_sigreturn),  SCMP_SYS(sigaltstack),
    SCMP_SYS(exit),          SCMP_SYS(exit_group),
};

int allowThreads(scmp_filter_ctx filter) {
    // A new thread, never a new process. clone3 hides its flags in memory where a filter can't
    // look; the C library falls back to clone where it doesn't exist.
    const auto flags = SCMP_A0(SCMP_CMP_MASKED_EQ, CLONE_THREAD, CLONE_THREAD);
    const int allowed = seccomp_rule_add(filter, SCMP_ACT_ALLOW, SCMP_SYS(clone), 1, flags);
    return allowed != 0 ? allowed
                        : seccomp_rule_add(filter, SCMP_ACT_ERRNO(ENOSYS), SCMP_SYS(clone3), 0);
}

/// 0, or a negative error number.
int filterCalls() {
    // Refused calls fail instead of ending the process: libraries try files that they can do
    // without.
    const Filter filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)));
    if (!filter)
        return -ENOMEM;
    // All threads, those of the inference runtime included.
    int result = seccomp_attr_set(filter.get(), SCMP_FLTATR_CTL_TSYNC, 1);
    for (const int call : allowedCalls)
        if (result == 0)
            result = seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0);
    if (result == 0)
        result = seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(fcntl), 1,
                                  SCMP_A1(SCMP_CMP_EQ, F_GET_SEALS));
    if (result == 0)
        result = seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, SCMP_SYS(prctl), 1,
                                  SCMP_A0(SCMP_CMP_EQ, PR_SET_NAME));
    if (result == 0)
        result = allowThreads(filter.get());
    return result == 0 ? seccomp_load(filter.get()) : result;
}

/// Denies the file system; silently does nothing on a kernel without Landlock.
void denyFiles() {
    // The thirteen rights of Landlock's first version.
    landlock_ruleset_attr rules{};
    rules.handled_access_fs = (LANDLOCK_ACCESS_FS_MAKE_SYM << 1U) - 1;
    const long ruleset = syscall(SYS_landlock_create_ruleset, &rules, sizeof(rules), 0U);
    if (ruleset < 0)
        return;
    syscall(SYS_landlock_restrict_self, ruleset, 0U);
    close(static_cast<int>(ruleset));
}

} // namespace

void enterBackground(Share share) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    prctl(PR_SET_DUMPABLE, 0);
    const rlimit none{1, 1}; // at 0 a handler program would still be fed (core(5))
    setrlimit(RLIMIT_CORE, &none);
    // More than twice what the engines reserve with a screen of 8K; they fill less than half of
    // that. A picture or a sound that drives one further ends that engine instead of the desktop.
    constexpr rlim_t mostMemory = rlim_t(2560) << 20;
    const rlimit memory{mostMemory, mostMemory};
    setrlimit(RLIMIT_DATA, &memory);
    constexpr int littleBehind = 5;
    const sched_param parameters{};
    if (share == Share::little)
        setpriority(PRIO_PROCESS, 0, littleBehind);
    else if (sched_setscheduler(0, SCHED_IDLE, &parameters) != 0)
        setpriority(PRIO_PROCESS, 0, 19);
}

std::optional<std::string> lockIn(int keep) {
    if (keep > STDERR_FILENO + 1)
        close_range(STDERR_FILENO + 1, static_cast<unsigned>(keep) - 1, 0);
    close_range(static_cast<unsigned>(keep) + 1, UINT_MAX, 0);
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
        return std::string("no_new_privs: ") + std::strerror(errno);
    denyFiles();
    if (const int error = filterCalls(); error != 0)
        return std::string("system-call filter: ") + std::strerror(-error);
    return std::nullopt;
}

} // namespace mnemora::engines
