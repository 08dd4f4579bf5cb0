#include "Linux/Browsers/BrowserConnection.h"

#include "Linux/Browsers/BrowserTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/socket.h>

namespace mnemora::browsers {
namespace {

/// A browser that hangs for that long, or whose extension lost its questions, starts afresh.
constexpr std::size_t mostOpenQuestions = 64;

} // namespace

std::optional<BrowserConnection::Time> BrowserConnection::waitingSince() const {
    // Questions are numbered in the order in which they are put.
    return open_.empty() ? std::nullopt : std::optional(open_.begin()->second);
}

bool BrowserConnection::isStuck() const {
    return open_.size() >= mostOpenQuestions;
}

bool BrowserConnection::ask(std::uint64_t request, PageQuestion question, bool focused, Time now) {
    if (isStuck())
        return false;
    open_.emplace(request, now);
    output_ += framed(requestMessage(request, question, focused));
    return true;
}

bool BrowserConnection::send() {
    while (!output_.empty()) {
        const ssize_t sent =
            ::send(socket_.get(), output_.data(), output_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0)
            return errno == EAGAIN || errno == EINTR;
        output_.erase(0, static_cast<std::size_t>(sent));
    }
    return true;
}

std::optional<std::vector<PageMessage>> BrowserConnection::read() {
    std::vector<PageMessage> messages;
    std::array<char, 64 << 10> bytes;
    const ssize_t count = recv(socket_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return messages;
    if (count <= 0)
        return std::nullopt;
    input_.append({bytes.data(), static_cast<std::size_t>(count)});
    while (const auto frame = input_.next()) {
        auto message = parsePageMessage(*frame);
        if (!message)
            return std::nullopt;
        messages.push_back(std::move(*message));
    }
    return input_.bad() ? std::nullopt : std::optional(std::move(messages));
}

bool BrowserConnection::take(std::vector<PageMessage> messages, std::vector<PageAnswer>& answers) {
    return std::all_of(messages.begin(), messages.end(),
                       [&](PageMessage& each) { return take(std::move(each), answers); });
}

void BrowserConnection::abandon(std::vector<PageAnswer>& answers) {
    for (const auto& [request, since] : open_)
        answers.push_back(refusal(request));
    open_.clear();
}

bool BrowserConnection::take(PageMessage message, std::vector<PageAnswer>& answers) {
    if (const auto* hello = std::get_if<Hello>(&message)) {
        if (bundle_)
            return false;
        bundle_ = bundleIdentifierOf(hello->browser);
        output_ += framed(stateRequestMessage());
        return bundle_.has_value();
    }
    if (!bundle_)
        return false;
    if (auto* state = std::get_if<TabState>(&message)) {
        state_ = std::move(*state);
        return true;
    }
    auto& answer = std::get<PageAnswer>(message);
    // Only what was asked: an answer to a question that was put to another browser is dropped.
    if (open_.erase(answer.request) == 0)
        return true;
    auto& state = state_ ? *state_ : state_.emplace();
    state.focused = answer.focused; // fresher than what was pushed
    if (answer.address)
        state.address = answer.address;
    answers.push_back(std::move(answer));
    return true;
}

} // namespace mnemora::browsers
