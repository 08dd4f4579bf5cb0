#include "Engines/Speech/SpeechEngine.h"

#include "Engines/Confinement.h"
#include "Engines/Speech/SpeechSession.h"

#include <cstdlib>

namespace mnemora::engines {
namespace {

int refuse(int socket, const std::string& reason) {
    (void)sendFrame(socket, FrameKind::unavailable, reason, -1, std::nullopt);
    return EXIT_FAILURE;
}

} // namespace

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

} // namespace mnemora::engines
