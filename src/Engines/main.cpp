// An engine of Mnemora in a process of its own, started by the program with a connected socket as
// descriptor 3: mnemora-engines ENGINE MODEL-FOLDER

#include "Engines/Confinement.h"
#include "Engines/EngineModule.h"
#include "Engines/Refusal.h"
#include "Support/Module.h"

#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int socketDescriptor = 3;

bool hasSocket() {
    struct stat info {};
    return fstat(socketDescriptor, &info) == 0 && S_ISSOCK(info.st_mode);
}

/// Null for an engine that doesn't exist.
const char* moduleOf(std::string_view engine) {
    // Found through this program's run path.
    if (engine == "recognition")
        return "libmnemora-recognition-engine.so";
    return engine == "speech" ? "libmnemora-speech-engine.so" : nullptr;
}

int run(const char* moduleName, const char* model) {
    std::string reason;
    const auto module = mnemora::Module::open(moduleName, &reason);
    auto* runEngine =
        module ? module->function<decltype(mnemoraRunEngine)>("mnemoraRunEngine") : nullptr;
    if (runEngine == nullptr)
        return mnemora::engines::refuse(socketDescriptor, reason);
    return runEngine(socketDescriptor, model);
}

} // namespace

int main(int count, char** words) {
    if (count != 3 || !hasSocket()) {
        std::fputs("mnemora-engines is started by mnemora itself.\n", stderr);
        return EXIT_FAILURE;
    }
    using mnemora::engines::Share;
    const std::string_view engine = words[1];
    // A picture has until the next one; words are wanted while people still speak.
    mnemora::engines::enterBackground(engine == "speech" ? Share::little : Share::leftOver);
    const char* module = moduleOf(engine);
    const int status = module != nullptr ? run(module, words[2]) : EXIT_FAILURE;
    // The inference runtime's own clean-up opens files and joins threads, which the lock forbids
    // and the process's end makes needless.
    _exit(status);
}
