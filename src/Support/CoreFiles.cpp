#include "Support/CoreFiles.h"

#include "Support/FileDescriptor.h"

#include <algorithm>
#include <fcntl.h>
#include <optional>
#include <sys/resource.h>
#include <unistd.h>

namespace mnemora::coreFiles {
namespace {

std::optional<rlimit> former;

} // namespace

void forbid() {
    rlimit limit{};
    if (getrlimit(RLIMIT_CORE, &limit) != 0)
        return;
    // At 0 the kernel still feeds a dump to a handler program, at 1 it never does. It looks at the
    // soft limit only; the hard one stays for the programs that are started from here.
    const rlimit none{.rlim_cur = 1, .rlim_max = std::max<rlim_t>(limit.rlim_max, 1)};
    if (setrlimit(RLIMIT_CORE, &none) == 0) {
        former = limit;
        return;
    }
    // Only an administrator raises a hard limit of 0, so here a handler gets a dump, of nothing.
    // Being untraceable would prevent it too, but hide from others which program this is.
    const FileDescriptor kindsOfMemory(open("/proc/self/coredump_filter", O_WRONLY | O_CLOEXEC));
    (void)!write(kindsOfMemory.get(), "0", 1);
}

void allowAgain() {
    if (former)
        setrlimit(RLIMIT_CORE, &*former);
}

} // namespace mnemora::coreFiles
