#pragma once
// A screen cast over PipeWire (https://docs.pipewire.org/page_streams.html). The stream is paused
// between pictures, so the compositor draws nothing for it and neither side uses the processor.

#include "Linux/Screen/FrameLayout.h"
#include "Linux/Screen/FrameStream.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct pw_buffer;
struct pw_context;
struct pw_core;
struct pw_stream;
struct pw_thread_loop;
struct spa_buffer;
struct spa_pod;

namespace mnemora::pipewire {

class PipeWireFrames final : public FrameStream {
  public:
    /// As FrameStreamOpener.
    [[nodiscard]] static std::shared_ptr<FrameStream> open(FileDescriptor remote,
                                                           std::uint32_t node, std::string& reason);
    ~PipeWireFrames() override;
    PipeWireFrames(const PipeWireFrames&) = delete;
    PipeWireFrames& operator=(const PipeWireFrames&) = delete;

    Outcome<Image> picture(std::chrono::milliseconds patience) override;
    bool isAlive() const override { return !ended_; }

  private:
    struct Handles;
    struct Events; // what the library calls, on its thread with its lock held

    PipeWireFrames();
    [[nodiscard]] bool connect(FileDescriptor remote, std::uint32_t node, std::string& reason);
    [[nodiscard]] bool startStream(std::uint32_t node);
    [[nodiscard]] bool waitForPicture(std::chrono::milliseconds patience);
    void chooseFormat(const spa_pod* format);
    void takeFrames();
    void take(const spa_buffer& buffer);
    void end();

    std::unique_ptr<Handles> handles_;
    // The rest is guarded by the thread loop's lock.
    FrameLayout layout_;
    bool isWanted_ = false;
    bool isStreaming_ = false;
    std::optional<Image> picture_; // the newest
    bool isNew_ = false;           // picture_ came since it was last asked for
    std::atomic<bool> ended_ = false;
};

} // namespace mnemora::pipewire
