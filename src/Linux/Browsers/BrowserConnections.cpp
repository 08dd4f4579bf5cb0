#include "Linux/Browsers/BrowserConnections.h"

#include <algorithm>
#include <array>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace mnemora::browsers {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// One for every profile of every browser that is open; more are no real ones.
constexpr std::size_t mostConnections = 32;
/// A host program says hello with its first breath.
constexpr milliseconds helloTime{2000};
/// After a peer that was turned away, and while descriptors are short.
constexpr milliseconds admissionPause{100};

constexpr std::size_t wakeSlot = 0;
constexpr std::size_t listenSlot = 1;
constexpr std::size_t firstConnectionSlot = 2;

/// The focus first, then the latest use; a profile that has said nothing comes last.
bool moreRecent(const BrowserConnection* left, const BrowserConnection* right) {
    const auto rank = [](const BrowserConnection* each) {
        const auto& state = each->state();
        return state ? std::pair(state->focused, state->lastUsed) : std::pair(false, -1.0);
    };
    return rank(left) < rank(right);
}

const BrowserConnection* mostRecent(const std::vector<BrowserConnection*>& connections) {
    const auto found = std::max_element(connections.begin(), connections.end(), moreRecent);
    return found == connections.end() ? nullptr : *found;
}

} // namespace

std::unique_ptr<BrowserConnections> BrowserConnections::create(const std::filesystem::path& socket,
                                                               std::filesystem::path hostProgram) {
    auto listening = PageSocket::listen(socket);
    FileDescriptor wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!listening || !wake)
        return nullptr;
    return std::unique_ptr<BrowserConnections>(
        new BrowserConnections(std::move(*listening), std::move(hostProgram), std::move(wake)));
}

BrowserConnections::BrowserConnections(PageSocket socket, std::filesystem::path hostProgram,
                                       FileDescriptor wake)
    : socket_(std::move(socket)), hostProgram_(std::move(hostProgram)), wake_(std::move(wake)),
      thread_([this] { run(); }) {}

BrowserConnections::~BrowserConnections() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    wake();
    thread_.join();
}

bool BrowserConnections::has(const std::string& bundleIdentifier) const {
    const std::lock_guard lock(mutex_);
    return !connectionsOf(bundleIdentifier).empty();
}

std::optional<PageAnswer> BrowserConnections::askFocused(const std::string& bundleIdentifier,
                                                         PageQuestion question, Duration patience) {
    std::unique_lock lock(mutex_);
    return ask(connectionsOf(bundleIdentifier), question, true, patience, lock);
}

std::optional<PageAnswer> BrowserConnections::askLastUsed(const std::string& bundleIdentifier,
                                                          Duration patience) {
    std::unique_lock lock(mutex_);
    auto connections = connectionsOf(bundleIdentifier);
    const auto* last = mostRecent(connections);
    std::erase_if(connections, [last](const auto* each) { return each != last; });
    return ask(connections, PageQuestion::address, false, patience, lock);
}

std::optional<TabState> BrowserConnections::lastState(const std::string& bundleIdentifier,
                                                      Duration patience) const {
    const std::lock_guard lock(mutex_);
    const auto* last = mostRecent(connectionsOf(bundleIdentifier));
    if (last == nullptr)
        return std::nullopt;
    const auto waiting = last->waitingSince();
    if (waiting && Clock::now() - *waiting > patience)
        return std::nullopt;
    return last->state();
}

std::vector<BrowserConnection*> BrowserConnections::connectionsOf(const std::string& bundle) const {
    std::vector<BrowserConnection*> found;
    for (const auto& each : connections_)
        if (each->bundleIdentifier() == bundle)
            found.push_back(each.get());
    return found;
}

std::optional<PageAnswer> BrowserConnections::ask(const std::vector<BrowserConnection*>& whom,
                                                  PageQuestion question, bool focused,
                                                  Duration patience,
                                                  std::unique_lock<std::mutex>& lock) {
    const auto now = Clock::now();
    const auto entry =
        questions_.insert(questions_.end(), Question{++lastRequest_, 0, std::nullopt});
    for (auto* each : whom)
        if (each->ask(entry->request, question, focused, now))
            ++entry->unanswered;
    wake();
    answered_.wait_until(lock, now + patience,
                         [&] { return entry->answer || entry->unanswered == 0; });
    auto answer = std::move(entry->answer);
    if (!answer && entry->unanswered == 0)
        answer = refusal(entry->request);
    questions_.erase(entry);
    return answer;
}

void BrowserConnections::conclude(const std::vector<PageAnswer>& answers) {
    for (const auto& answer : answers)
        for (auto& question : questions_)
            if (question.request == answer.request && question.unanswered > 0) {
                --question.unanswered;
                if (!answer.refused && !question.answer)
                    question.answer = answer;
            }
    if (!answers.empty())
        answered_.notify_all();
}

void BrowserConnections::wake() const {
    const std::uint64_t one = 1;
    // Only fails when the counter is full, and then the thread is awake anyway.
    [[maybe_unused]] const auto written = write(wake_.get(), &one, sizeof one);
}

void BrowserConnections::run() {
    pthread_setname_np(pthread_self(), "browsers");
    for (;;) {
        std::vector<pollfd> polled;
        bool expecting = false;
        {
            const std::lock_guard lock(mutex_);
            if (ending_)
                return;
            polled = toPoll();
            expecting = std::any_of(connections_.begin(), connections_.end(),
                                    [](const auto& each) { return !each->bundleIdentifier(); });
        }
        const bool pausing = polled[listenSlot].events == 0;
        const auto patience = pausing ? admissionPause : helloTime;
        if (poll(polled.data(), polled.size(),
                 pausing || expecting ? static_cast<int>(patience.count()) : -1) >= 0)
            serve(polled);
    }
}

std::vector<pollfd> BrowserConnections::toPoll() const {
    std::vector<pollfd> polled(firstConnectionSlot);
    polled[wakeSlot] = {.fd = wake_.get(), .events = POLLIN, .revents = 0};
    const bool admitting = connections_.size() < mostConnections && Clock::now() >= admitAgain_;
    polled[listenSlot] = {
        .fd = socket_.get(), .events = static_cast<short>(admitting ? POLLIN : 0), .revents = 0};
    for (const auto& each : connections_)
        polled.push_back(
            {.fd = each->socket(),
             .events = static_cast<short>(each->hasOutput() ? POLLIN | POLLOUT : POLLIN),
             .revents = 0});
    return polled;
}

void BrowserConnections::serve(const std::vector<pollfd>& polled) {
    if (polled[wakeSlot].revents != 0) {
        std::uint64_t count = 0;
        [[maybe_unused]] const auto taken = read(wake_.get(), &count, sizeof count);
    }
    auto heard = readConnections(std::span(polled).subspan(firstConnectionSlot));
    const std::lock_guard lock(mutex_);
    serveConnections(std::move(heard));
    if (polled[listenSlot].revents != 0)
        admit();
}

// Without the lock: only this thread adds and removes connections, and they are in the order of
// `polled` still.
BrowserConnections::Heard BrowserConnections::readConnections(std::span<const pollfd> polled) {
    Heard heard;
    auto each = connections_.begin();
    for (const auto& socket : polled) {
        heard.push_back(socket.revents == 0 ? std::vector<PageMessage>() : (*each)->read());
        ++each;
    }
    return heard;
}

void BrowserConnections::serveConnections(Heard heard) {
    std::vector<PageAnswer> answers;
    auto each = connections_.begin();
    for (auto& messages : heard) {
        auto& connection = **each;
        bool alive = messages && connection.take(std::move(*messages), answers);
        alive = alive && connection.send() && !connection.isStuck();
        alive = alive &&
                (connection.bundleIdentifier() || Clock::now() - connection.since() < helloTime);
        if (!alive)
            connection.abandon(answers);
        each = alive ? std::next(each) : connections_.erase(each);
    }
    conclude(answers);
}

void BrowserConnections::admit() {
    if (auto peer = socket_.accept(hostProgram_))
        connections_.push_back(std::make_unique<BrowserConnection>(std::move(peer), Clock::now()));
    else
        admitAgain_ = Clock::now() + admissionPause;
}

} // namespace mnemora::browsers
