// A process that stores events as fast as it can, for tests that run several or kill them:
// store-writer NAME COUNT [PAUSE]. It writes the number of each stored event to standard output,
// and waits PAUSE microseconds after it.

#include "Platform/CoreServices.h"
#include "Platform/SystemClock.h"
#include "Store/MnemoraStore.h"
#include "fakes/FakeEmbedder.h"

#include <cstdlib>
#include <string>
#include <unistd.h>

int main(int argc, char** argv) {
    using namespace mnemora;
    if (argc != 3 && argc != 4)
        return 2;
    installCoreServices(
        {.clock = std::make_shared<SystemClock>(),
         .sentenceModel = [](const std::string&) { return std::shared_ptr<SentenceModel>(); }});
    MnemoraStore store(std::make_unique<test::FakeEmbedder>());
    const int count = std::atoi(argv[2]);
    const auto pause = static_cast<useconds_t>(argc == 4 ? std::atoi(argv[3]) : 0);
    for (int i = 0; i < count; ++i) {
        MnemoraEvent event;
        event.ts = coreServices().clock->now();
        event.source = "screen";
        event.kind = "window";
        event.title = std::string(argv[1]) + " " + std::to_string(i);
        event.body =
            std::string(500, static_cast<char>('a' + i % 26)) + " words of " + *event.title;
        if (!store.insert(event, 90))
            return 1;
        const std::string line = std::to_string(i) + "\n";
        if (write(STDOUT_FILENO, line.data(), line.size()) < 0)
            return 1;
        usleep(pause);
    }
    return 0;
}
