#pragma once
// Takes the loudspeakers' sound out of the microphone's, by the canceller that calls use: with it
// the user's words are understood while others speak. What it leaves is dealt with by EchoWords.h.

#include <cstdint>
#include <deque>
#include <memory>
#include <span>
#include <vector>

namespace mnemora::engines::speech {

/// One microphone and what is played near it, both at 16 kHz. Pairs the two sides by counting
/// samples, since buffers come in bursts; the way through the air is found by itself.
class EchoCanceller {
  public:
    EchoCanceller();
    ~EchoCanceller();
    EchoCanceller(const EchoCanceller&) = delete;
    EchoCanceller& operator=(const EchoCanceller&) = delete;

    /// The next samples that the loudspeakers play.
    void played(std::span<const float> sound);
    /// Takes the microphone's next samples, and returns those that are done, as many in the long
    /// run: up to 0.2 s are kept until what was played at that time has come. While nothing is
    /// played, and in the first seconds, in which the room is learnt, sound passes untouched.
    [[nodiscard]] std::vector<float> cleaned(std::span<const float> sound);
    /// What was kept, once no more sound will come.
    [[nodiscard]] std::vector<float> finish();

  private:
    struct Library;
    struct Average {
        double value = 0;
        void add(double next, double weight) { value += weight * (next - value); }
    };

    void learn(std::span<const float> heard, std::span<const float> left);
    void clean(std::span<float> frame, bool hasPlayed);

    std::unique_ptr<Library> library_; // null where it can't be made
    std::deque<float> played_;
    std::deque<float> heard_;
    bool knowsRoom_ = false;
    std::int64_t aloudFor_ = 0; // samples that were played aloud
    Average heardAloud_;        // power over the last seconds that were played aloud
    Average leftAloud_;
    Average heardNow_; // over the last tenth of a second
    Average leftNow_;
    std::int64_t silentFor_ = 0; // samples of silence that were last taken from played_
};

} // namespace mnemora::engines::speech
