// Prints what the program would hear in sound files, each utterance with its times as it comes.
//     transcribe-wav [--fast] FILE.wav...

#include "Tools/FileTranscriber.h"

#include <QCoreApplication>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

using mnemora::FileTranscriber;

bool transcribeFile(FileTranscriber& transcriber, const char* path, FileTranscriber::Pace pace) {
    const auto sound = mnemora::readSoundFile(path);
    if (!sound) {
        std::fprintf(stderr, "%s: no sound file\n", path);
        return false;
    }
    std::printf("%s\n", path);
    std::fflush(stdout);
    const bool isDone = transcriber.transcribe(*sound, pace, [](const auto& segment) {
        std::printf("%8.2f %8.2f  %s\n", segment.start, segment.end, segment.text.c_str());
        std::fflush(stdout);
    });
    if (!isDone)
        std::fprintf(stderr, "%s: speech recognition is unavailable\n", path);
    return isDone;
}

} // namespace

int main(int count, char** words) {
    const QCoreApplication application(count, words);
    auto pace = FileTranscriber::Pace::realTime;
    int first = 1;
    if (count > 1 && std::string_view(words[1]) == "--fast") {
        pace = FileTranscriber::Pace::fast;
        first = 2;
    }
    if (first >= count) {
        std::fputs("usage: transcribe-wav [--fast] FILE.wav...\n", stderr);
        return EXIT_FAILURE;
    }
    FileTranscriber transcriber;
    int status = EXIT_SUCCESS;
    for (int i = first; i < count; ++i)
        if (!transcribeFile(transcriber, words[i], pace))
            status = EXIT_FAILURE;
    return status;
}
