// The child process of speech recognition: loads the model, locks the process in and recognises
// sound until the parent closes the socket.

#include "Engines/Confinement.h"
#include "Engines/EngineModule.h"
#include "Engines/Refusal.h"
#include "Engines/Speech/SpeechSession.h"

#include <cstdlib>

namespace mnemora::engines {
namespace {

int runSpeech(int socket, const std::filesystem::path& model) {
    const auto models = speech::loadSherpaModels(model);
    if (!models)
        return refuse(socket, models.description());
    if (const auto reason = lockIn(socket))
        return refuse(socket, "the engine can't be locked in: " + *reason);
    speech::SpeechSession session(**models, [socket](FrameKind kind, const std::string& payload) {
        return sendFrame(socket, kind, payload, -1, std::nullopt);
    });
    if (!sendFrame(socket, FrameKind::ready, {}, -1, std::nullopt))
        return EXIT_FAILURE;
    while (const auto frame = receiveFrame(socket, std::nullopt))
        if (!session.take(*frame))
            return EXIT_FAILURE;
    return EXIT_SUCCESS;
}

} // namespace
} // namespace mnemora::engines

int mnemoraRunEngine(int socket, const char* model) {
    return mnemora::engines::runSpeech(socket, model);
}
