#include "desktop/XServer.h"

#include "Support/FileDescriptor.h"

#include <array>
#include <unistd.h>

namespace mnemora::desktop {

XServer::XServer(std::vector<std::string> command) {
    std::array<int, 2> ends{};
    if (pipe(ends.data()) != 0)
        return;
    const FileDescriptor reading(ends[0]);
    FileDescriptor writing(ends[1]);
    const std::string end = std::to_string(writing.get());
    command.insert(command.end(), {"-displayfd", end, "-nolisten", "tcp", "-noreset"});
    program_ = std::make_unique<Program>(command);
    writing.reset();
    // The number may come in pieces; a line feed ends it.
    std::string display;
    for (char digit = 0; read(reading.get(), &digit, 1) == 1 && digit != '\n';)
        display += digit;
    isThere_ = !display.empty();
    display_.set(":" + display);
}

} // namespace mnemora::desktop
