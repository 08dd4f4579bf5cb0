#include "Linux/Embedding/RuntimePages.h"

#include <link.h>
#include <string_view>
#include <sys/mman.h>
#include <unistd.h>

namespace mnemora::embedding {
namespace {

// Only what the file says is never written: of such pages, the file holds the content.
bool isCleanForever(const ElfW(Phdr) & segment) {
    return segment.p_type == PT_LOAD && (segment.p_flags & PF_W) == 0;
}

void dropSegment(ElfW(Addr) base, const ElfW(Phdr) & segment) {
    const auto page = static_cast<ElfW(Addr)>(sysconf(_SC_PAGESIZE));
    const auto begin = (base + segment.p_vaddr) / page * page;
    const auto end = base + segment.p_vaddr + segment.p_filesz;
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
}

int dropLibrary(dl_phdr_info* library, std::size_t, void*) {
    const std::string_view path = library->dlpi_name == nullptr ? "" : library->dlpi_name;
    if (!path.substr(path.rfind('/') + 1).starts_with("libopenvino"))
        return 0;
    for (int index = 0; index < library->dlpi_phnum; ++index)
        if (isCleanForever(library->dlpi_phdr[index]))
            dropSegment(library->dlpi_addr, library->dlpi_phdr[index]);
    return 0;
}

} // namespace

void dropRuntimePages() {
    dl_iterate_phdr(dropLibrary, nullptr);
}

} // namespace mnemora::embedding
