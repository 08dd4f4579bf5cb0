#pragma once
// A screen cast over PipeWire (https://docs.pipewire.org/page_streams.html). The stream rests
// between pictures, so that the compositor draws nothing for it and neither side uses the
// processor. Only with a source that doesn't send the whole screen after a rest it goes on, four
// frames a second at most and none while nothing changes.

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
struct spa_pod;

namespace mnemora::pipewire {

class PipeWireFrames final : public FrameStream {
  public:
    /// As FrameStreamOpener.
    [[nodiscard]] static std::shared_ptr<FrameStream> open(CastSource source, std::string& reason);
    ~PipeWireFrames() override;
    PipeWireFrames(const PipeWireFrames&) = delete;
    PipeWireFrames& operator=(const PipeWireFrames&) = delete;

    Outcome<Image> picture(std::chrono::milliseconds patience,
                           std::chrono::steady_clock::time_point changedAt) override;
    bool isAlive() const override { return !ended_; }

  private:
    struct Handles;
    struct Events; // what the library calls, on its thread with its lock held

    PipeWireFrames();
    [[nodiscard]] bool connect(CastSource source, std::string& reason);
    void watch();
    [[nodiscard]] bool startStream();
    void begin();
    void rest();
    [[nodiscard]] bool waitForFrame(std::chrono::milliseconds patience);
    void chooseFormat(const spa_pod* format);
    void takeFrames();
    void hold(pw_buffer* buffer);
    [[nodiscard]] std::optional<Image> heldImage() const;
    void end();

    std::unique_ptr<Handles> handles_;
    // The rest is guarded by the thread loop's lock.
    std::uint32_t node_ = 0;
    FrameLayout layout_;
    bool isWanted_ = false; // frames are of interest now
    bool isStreaming_ = false;
    bool hasRested_ = false;
    bool follows_ = false;      // the stream never rests: its source sends changes only
    pw_buffer* held_ = nullptr; // the newest frame, not yet given back
    bool isNew_ = false;        // held_ came since it was last asked for
    std::chrono::steady_clock::time_point heldAt_; // when it came
    std::atomic<bool> ended_ = false;
};

} // namespace mnemora::pipewire
