// The program's entry: one store, its embeddings brought up to date, then one of two modes.

#include "Linux/Embedding/LazySentenceModel.h"
#include "Log.h"
#include "Platform/CoreServices.h"
#include "Platform/SystemClock.h"
#include "Store/MnemoraStore.h"
#include "Support/Installation.h"
#include "Support/Module.h"
#include "ToolServer/MCPServer.h"

#include <algorithm>
#include <csignal>
#include <memory>
#include <string_view>
#include <sys/prctl.h>
#include <sys/resource.h>

namespace {

using namespace mnemora;

/// The process's one store; handed explicitly to whatever needs it.
std::unique_ptr<MnemoraStore> store;

/// The memory of a process that holds everything its user reads must not land in a core file.
void forbidCoreDumps() {
    const rlimit none{.rlim_cur = 0, .rlim_max = 0};
    setrlimit(RLIMIT_CORE, &none);
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
    // A client that goes away shows as a failed write.
    std::signal(SIGPIPE, SIG_IGN);
    prctl(PR_SET_DUMPABLE, 0);
    openStore();
    MCPServer(*store, replies.get()).run();
    store.reset();
}

void runApplication(int argc, char** argv) {
    openStore();
    std::string reason;
    const auto desktop = Module::open(installation::libraries() / "libmnemora-desktop.so", &reason);
    auto* run =
        desktop ? desktop->function<int(MnemoraStore&, int, char**)>("runDesktop") : nullptr;
    if (run != nullptr)
        run(*store, argc, argv);
    else
        logError("desktop module unavailable: " + reason);
    store.reset();
}

} // namespace

int main(int argc, char** argv) {
    forbidCoreDumps();
    const bool asServer = std::any_of(argv, argv + argc, [](const char* argument) {
        return std::string_view(argument) == "--mcp";
    });
    if (asServer)
        serveTools();
    else
        runApplication(argc, argv);
    return 0;
}
