#include "Sound/SoundSession.h"

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <memory>
#include <numbers>
#include <spawn.h>
#include <sys/wait.h>

namespace mnemora::test {
namespace {

constexpr double rate = 48000;
constexpr size_t windowFrames = 9600; // 0.2 s

/// A minute of a tone at half of full scale, as a file of 16-bit samples.
std::filesystem::path toneFile(double hertz) {
    const auto path = std::filesystem::path(std::getenv("AUDIO_SESSION")) /
                      ("tone-" + std::to_string(static_cast<int>(hertz)));
    if (exists(path))
        return path;
    std::ofstream file(path, std::ios::binary);
    for (int i = 0; i < static_cast<int>(rate) * 60; ++i) {
        const auto sample =
            static_cast<int16_t>(16000 * std::sin(2 * std::numbers::pi * hertz * i / rate));
        file.write(reinterpret_cast<const char*>(&sample), sizeof sample);
    }
    return path;
}

/// Amplitude of one frequency (Goertzel's algorithm).
double amplitude(const std::vector<float>& samples, double hertz) {
    const double step = 2 * std::cos(2 * std::numbers::pi * hertz / rate);
    double a = 0;
    double b = 0;
    for (const float sample : samples) {
        const double next = sample + step * a - b;
        b = a;
        a = next;
    }
    return 2 * std::sqrt(a * a + b * b - step * a * b) / static_cast<double>(samples.size());
}

} // namespace

std::string shell(const std::string& command) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    char part[4096];
    while (pipe && std::fgets(part, sizeof part, pipe.get()) != nullptr)
        output += part;
    EXPECT_TRUE(pipe) << command;
    if (output.ends_with('\n'))
        output.pop_back();
    return output;
}

int ourStreams() {
    const auto mark = "'application.id = \"app.mnemora.Mnemora\"'";
    return std::stoi(shell(std::string("pactl list source-outputs | grep -c ") + mark));
}

Tone::Tone(const std::string& sink, double hertz) {
    std::vector<std::string> words = {"pacat",
                                      "--playback",
                                      "--raw",
                                      "--format=s16le",
                                      "--rate=48000",
                                      "--channels=1",
                                      "--latency-msec=50",
                                      "--device=" + sink,
                                      toneFile(hertz)};
    std::vector<char*> arguments;
    for (auto& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    EXPECT_EQ(posix_spawnp(&player_, "pacat", nullptr, nullptr, arguments.data(), environ), 0);
}

Tone::~Tone() {
    if (player_ <= 0)
        return;
    kill(player_, SIGTERM);
    waitpid(player_, nullptr, 0);
}

void Listener::hear(const PcmBuffer& buffer) {
    const std::lock_guard lock(mutex_);
    ++buffers_;
    last_ = buffer;
    for (size_t i = 0; i < buffer.samples.size(); i += static_cast<size_t>(buffer.channels))
        recent_.push_back(buffer.samples[i]);
    if (recent_.size() > windowFrames)
        recent_.erase(recent_.begin(), recent_.end() - windowFrames);
}

bool Listener::hears(double hertz) {
    const std::lock_guard lock(mutex_);
    return recent_.size() == windowFrames && amplitude(recent_, hertz) > 0.1;
}

void Listener::forget() {
    const std::lock_guard lock(mutex_);
    recent_.clear();
    buffers_ = 0;
}

size_t Listener::buffers() {
    const std::lock_guard lock(mutex_);
    return buffers_;
}

PcmBuffer Listener::last() {
    const std::lock_guard lock(mutex_);
    return last_;
}

} // namespace mnemora::test
