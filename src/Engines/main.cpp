// An engine of Mnemora in a process of its own, started by the program with a connected socket as
// descriptor 3: mnemora-engines ENGINE MODEL-FOLDER

#include "Engines/Confinement.h"
#include "Engines/Recognition/RecognitionEngine.h"
#include "Engines/Speech/SpeechEngine.h"

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
    int status = EXIT_FAILURE;
    if (engine == "recognition")
        status = mnemora::engines::runRecognition(socketDescriptor, words[2]);
    else if (engine == "speech")
        status = mnemora::engines::runSpeech(socketDescriptor, words[2]);
    // The inference runtime's own clean-up opens files and joins threads, which the lock forbids
    // and the process's end makes needless.
    _exit(status);
}
