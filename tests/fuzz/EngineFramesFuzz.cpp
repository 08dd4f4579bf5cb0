// Fuzz target: what an engine's process may say to the program, and the program to it: the frames
// on the socket, and what each kind of them carries.

#include "Engines/Channel.h"
#include "Engines/RecognitionFrames.h"
#include "Engines/SpeechFrames.h"
#include "fuzz/FuzzInput.h"

#include <array>
#include <cmath>
#include <sys/socket.h>

namespace {

using namespace mnemora;
using namespace mnemora::engines;
using fuzz::require;

void checkSound(std::string_view payload) {
    std::vector<float> samples;
    const auto piece = decodeSound(payload, samples);
    if (!piece)
        return;
    for (const float sample : piece->samples)
        require(sample >= -1 && sample <= 1);
    std::vector<float> again;
    require(decodeSound(encodeSound(*piece), again) && again == samples);
}

void checkPayload(std::string_view payload) {
    checkSound(payload);
    if (const auto shape = decodeShape(payload))
        require(encodeShape(*shape) == payload &&
                shape->size() >= static_cast<std::size_t>(shape->width) * 4);
    if (const auto lines = decodeLines(payload))
        require(encodeLines(*lines) == payload);
    if (const auto stream = decodeStream(payload))
        require(encodeStream(*stream) == payload);
    if (const auto utterance = decodeUtterance(payload))
        require(decodeUtterance(encodeUtterance(*utterance)) == utterance);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    checkPayload(bytes);
    std::array<int, 2> ends{};
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) == 0);
    const FileDescriptor receiver(ends[0]);
    FileDescriptor sender(ends[1]);
    (void)send(sender.get(), bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    sender.reset();
    while (const auto frame = receiveFrame(receiver.get(), std::nullopt)) {
        require(frame->payload.size() <= bytes.size());
        checkPayload(frame->payload);
    }
    return 0;
}
