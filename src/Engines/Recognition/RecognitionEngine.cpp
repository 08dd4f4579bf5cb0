// The child process of text recognition: loads the model, locks the process in and answers pictures
// until the parent closes the socket.

#include "Engines/Channel.h"
#include "Engines/Confinement.h"
#include "Engines/EngineModule.h"
#include "Engines/ModelFile.h"
#include "Engines/Recognition/OpenVinoNetworks.h"
#include "Engines/Recognition/PictureReader.h"
#include "Engines/RecognitionFrames.h"
#include "Engines/Refusal.h"

#include <cstdlib>
#include <fcntl.h>
#include <malloc.h>
#include <memory>
#include <sys/mman.h>
#include <unistd.h>

namespace mnemora::engines {
namespace {

using recognition::TextNetworks;

Outcome<std::shared_ptr<TextNetworks>> loadNetworks(const std::filesystem::path& model) {
    const auto detector = readModelFile(model, "PP-OCRv6_det_small.onnx");
    if (!detector)
        return Failure{detector.description()};
    const auto reader = readModelFile(model, "PP-OCRv6_rec_small.onnx");
    if (!reader)
        return Failure{reader.description()};
    return recognition::loadOpenVinoNetworks(*detector, *reader);
}

/// A picture mapped from its memory file.
class MappedPicture {
  public:
    /// Absent when the file can still change or is too small for the shape.
    static std::optional<MappedPicture> map(const FileDescriptor& file, const PictureShape& shape) {
        constexpr int needed = F_SEAL_SHRINK | F_SEAL_WRITE;
        // The lock lets no stat through: in the C library every one of them may name a file.
        const off_t size = lseek(file.get(), 0, SEEK_END);
        if (size < 0 || static_cast<std::size_t>(size) < shape.size())
            return std::nullopt;
        const int seals = fcntl(file.get(), F_GET_SEALS);
        if (seals < 0 || (seals & needed) != needed)
            return std::nullopt;
        void* pixels = mmap(nullptr, shape.size(), PROT_READ, MAP_PRIVATE, file.get(), 0);
        if (pixels == MAP_FAILED)
            return std::nullopt;
        return MappedPicture(pixels, shape);
    }

    [[nodiscard]] recognition::PictureView view() const {
        return {static_cast<const std::uint8_t*>(pixels_.get()), shape_.width, shape_.height,
                shape_.stride};
    }

  private:
    struct Unmap {
        std::size_t size;
        void operator()(void* pixels) const { munmap(pixels, size); }
    };

    MappedPicture(void* pixels, const PictureShape& shape)
        : pixels_(pixels, Unmap{shape.size()}), shape_(shape) {}

    std::unique_ptr<void, Unmap> pixels_;
    PictureShape shape_;
};

/// False when the conversation is over, for whatever reason.
bool answerNext(int socket, recognition::PictureReader& reader) {
    const auto frame = receiveFrame(socket, std::nullopt);
    if (!frame || frame->kind != FrameKind::picture)
        return false;
    const auto shape = decodeShape(frame->payload);
    const auto picture = shape ? MappedPicture::map(frame->attachment, *shape) : std::nullopt;
    if (!picture)
        return false;
    const auto lines = reader.read(picture->view());
    return lines && sendFrame(socket, FrameKind::lines, encodeLines(*lines), -1, std::nullopt);
}

/// Each shape that the networks meet brings buffers of its own size. Mapped one by one they return
/// when they are freed; between small blocks of the heap they left a hundred megabytes behind.
void mapLargeBlocks() {
    mallopt(M_MMAP_THRESHOLD, 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 8 * 1024 * 1024);
}

/// The runtime's kernels (oneDNN) would keep the last 1,024 pieces of compiled code a second time,
/// beyond what the networks let go
/// (https://uxlfoundation.github.io/oneDNN/dev_guide_primitive_cache.html). Only before the
/// networks are loaded, while there is one thread.
void keepCompiledCodeOnce() {
    setenv("ONEDNN_PRIMITIVE_CACHE_CAPACITY", "0", 1);
}

int runRecognition(int socket, const std::filesystem::path& model) {
    mapLargeBlocks();
    keepCompiledCodeOnce();
    const auto networks = loadNetworks(model);
    if (!networks)
        return refuse(socket, networks.description());
    if (const auto reason = lockIn(socket))
        return refuse(socket, "the engine can't be locked in: " + *reason);
    recognition::PictureReader reader(**networks);
    if (!sendFrame(socket, FrameKind::ready, {}, -1, std::nullopt))
        return EXIT_FAILURE;
    while (answerNext(socket, reader)) {
    }
    return EXIT_SUCCESS;
}

} // namespace
} // namespace mnemora::engines

int mnemoraRunEngine(int socket, const char* model) {
    return mnemora::engines::runRecognition(socket, model);
}
