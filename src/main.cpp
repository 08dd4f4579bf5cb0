// The program's entry: one store, its embeddings brought up to date, then one of two modes.

#include "Linux/Embedding/LazySentenceModel.h"
#include "Log.h"
#include "Platform/CoreServices.h"
#include "Platform/SystemClock.h"
#include "Store/MnemoraStore.h"
#include "Support/CoreFiles.h"
#include "Support/Installation.h"
#include "Support/Module.h"
#include "ToolServer/MCPServer.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <memory>
#include <string_view>
#include <sys/prctl.h>
#include <unistd.h>

namespace {

using namespace mnemora;

/// The process's one store; handed explicitly to whatever needs it.
std::unique_ptr<MnemoraStore> store;

/// A descriptor that the starter closed would be given to the first file that we open, and what
/// is written to the standard streams would land in it.
void fillStandardStreams() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd)
        if (fcntl(fd, F_GETFD) < 0)
            (void)open("/dev/null", O_RDWR); // takes the lowest free number
}

void openStore() {
    installCoreServices(
        {.clock = std::make_shared<SystemClock>(),
         .sentenceModel = [](const std::string& language) { return makeSentenceModel(language); }});
    store = std::make_unique<MnemoraStore>();
    store->backfillEmbeddings();
}

void serveTools() {
    const FileDescriptor replies = MCPServer::keepStandardOutputForReplies();
    prctl(PR_SET_DUMPABLE, 0);
    // Hosts start servers in a project's folder, where the inference runtime would look for
    // plugins.
    (void)!chdir("/");
    openStore();
    MCPServer(*store, replies.get()).run();
    store.reset();
}

/// The program's many threads allocate little, so they share two heaps instead of leaving freed
/// memory behind in one each; what is large, such as a picture, always goes back to the system
/// (mallopt(3): a threshold that is set no longer grows).
void keepMemorySmall() {
    constexpr int heaps = 2;
    constexpr int large = 1 << 20;
    mallopt(M_ARENA_MAX, heaps);
    mallopt(M_MMAP_THRESHOLD, large);
    mallopt(M_TRIM_THRESHOLD, large);
}

/// False when the installation lacks the desktop module.
bool runApplication(int argc, char** argv) {
    keepMemorySmall();
    openStore();
    std::string reason = "it has no entry";
    const auto desktop = Module::open(installation::libraries() / "libmnemora-desktop.so", &reason);
    auto* run =
        desktop ? desktop->function<int(MnemoraStore&, int, char**)>("runDesktop") : nullptr;
    if (run != nullptr)
        run(*store, argc, argv);
    else
        logError("desktop module unavailable: " + reason);
    store.reset();
    return run != nullptr;
}

} // namespace

int main(int argc, char** argv) {
    fillStandardStreams();
    coreFiles::forbid();
    // A reader that goes away, of replies or of the log, shows as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    const bool asServer = std::any_of(argv, argv + argc, [](const char* argument) {
        return std::string_view(argument) == "--mcp";
    });
    if (!asServer)
        return runApplication(argc, argv) ? EXIT_SUCCESS : EXIT_FAILURE;
    serveTools();
    return EXIT_SUCCESS;
}
