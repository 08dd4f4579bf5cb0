#pragma once
// A microphone and a loudspeaker that a test plays on.

#include "Platform/Audio.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace mnemora::test {

struct FakeAudioInput : AudioInput {
    bool granted = true;
    std::optional<Failure> failure;
    std::vector<std::string> calls;
    int frames = 0;
    std::function<void(const PcmBuffer&)> tap;

    void requestAccess(std::function<void(bool)> answer) override {
        calls.emplace_back("ask");
        answer(granted);
    }
    void installTap(int size, std::function<void(const PcmBuffer&)> receiver) override {
        calls.emplace_back("tap");
        frames = size;
        tap = std::move(receiver);
    }
    void removeTap() override {
        calls.emplace_back("untap");
        tap = nullptr;
    }
    std::optional<Failure> start() override {
        calls.emplace_back("start");
        return failure;
    }
    void stop() override { calls.emplace_back("stop"); }
};

struct FakeSystemAudio : SystemAudio {
    Outcome<bool> output = true;
    std::optional<std::string> failure;
    std::vector<Format> formats;
    std::function<void(const PcmBuffer&)> sink;
    std::shared_ptr<int> running = std::make_shared<int>(0); // captures that still run

    Outcome<bool> hasOutput() override { return output; }
    Outcome<std::shared_ptr<SystemAudioCapture>>
    start(const Format& format, std::function<void(const PcmBuffer&)> receiver) override {
        struct Capture : SystemAudioCapture {
            explicit Capture(std::shared_ptr<int> count) : running(std::move(count)) { ++*running; }
            Capture(const Capture&) = delete;
            Capture& operator=(const Capture&) = delete;
            ~Capture() override { --*running; }
            std::shared_ptr<int> running;
        };
        formats.push_back(format);
        if (failure)
            return Failure{*failure};
        sink = std::move(receiver);
        return std::shared_ptr<SystemAudioCapture>(std::make_shared<Capture>(running));
    }
};

} // namespace mnemora::test
