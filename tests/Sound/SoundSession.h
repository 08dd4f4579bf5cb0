#pragma once
// What the tests do in a private sound session: play tones, listen for them, rearrange devices.

#include "Platform/SpeechRecognizer.h"
#include "fakes/Eventually.h"

#include <mutex>
#include <string>
#include <sys/types.h>
#include <vector>

namespace mnemora::test {

/// Runs a shell command; its output without the last line feed. A failure fails the test.
std::string shell(const std::string& command);

/// How many streams of this program the sound server has.
int ourStreams();

constexpr Eventually eventually{std::chrono::seconds(40), std::chrono::milliseconds(20)};

/// Plays a tone on a sink until it goes.
class Tone {
  public:
    Tone(const std::string& sink, double hertz);
    ~Tone();
    Tone(const Tone&) = delete;
    Tone& operator=(const Tone&) = delete;

  private:
    pid_t player_ = -1;
};

/// Listens for tones in the sound that it is given, on any thread.
class Listener {
  public:
    void hear(const PcmBuffer& buffer);
    /// Whether the last 0.2 s hold the tone, clearly.
    [[nodiscard]] bool hears(double hertz);
    /// Forgets what it heard; what comes now is new.
    void forget();
    [[nodiscard]] size_t buffers();
    /// The last buffer.
    [[nodiscard]] PcmBuffer last();

  private:
    std::mutex mutex_;
    std::vector<float> recent_; // guarded by mutex_: first channel
    PcmBuffer last_;            // guarded by mutex_
    size_t buffers_ = 0;        // guarded by mutex_
};

} // namespace mnemora::test
