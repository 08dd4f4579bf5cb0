#pragma once
// A real X server whose answers a test rewrites on their way.

#include "Support/FileDescriptor.h"

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace mnemora::desktop {

/// Stands between the server of DISPLAY and whoever connects while it lives.
class LyingXServer {
  public:
    /// What an answer belongs to: "introduction", the opcode of a request of the core protocol
    /// ("73"), or extension and number ("RANDR 42").
    using Question = std::string;
    /// Changes an answer as it pleases; of one that it shortens the rest never comes.
    using Lie = std::function<void(const Question& question, std::string& answer)>;

    LyingXServer();
    ~LyingXServer();
    LyingXServer(const LyingXServer&) = delete;
    LyingXServer& operator=(const LyingXServer&) = delete;

    /// What it tells from now on; null for the truth.
    void tell(Lie lie);

  private:
    struct Talk;
    void serve();
    void relay(int client);
    void takeQuestions(Talk& talk);
    void takeAnswers(Talk& talk);

    const std::string real_;
    const std::string display_; // ours
    FileDescriptor listener_;
    std::atomic<bool> isOver_ = false;
    std::mutex mutex_;
    Lie lie_; // guarded by mutex_
    std::thread thread_;
};

/// Writes a number of the protocol into an answer.
template <class Number>
void put(std::string& answer, std::size_t at, Number number) {
    if (answer.size() >= at + sizeof number)
        std::memcpy(answer.data() + at, &number, sizeof number);
}

} // namespace mnemora::desktop
