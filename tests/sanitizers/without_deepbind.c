// Preloaded into programs under AddressSanitizer: its runtime ends the process when a library is
// opened with RTLD_DEEPBIND, as TBB opens the optional part that knows the processor's topology.
// https://github.com/google/sanitizers/issues/611
#define _GNU_SOURCE
#include <dlfcn.h>

void* dlopen(const char* file, int mode) {
    void* (*next)(const char*, int) = (void* (*)(const char*, int))dlsym(RTLD_NEXT, "dlopen");
    return next(file, mode & ~RTLD_DEEPBIND);
}
