#include "Linux/Browsers/MessageFrames.h"

#include <cstdint>
#include <cstring>
#include <utility>

namespace mnemora::browsers {

std::string framed(std::string_view message) {
    const auto length = static_cast<std::uint32_t>(message.size());
    std::string frame(sizeof length, '\0');
    std::memcpy(frame.data(), &length, sizeof length);
    return frame.append(message);
}

void FrameReader::append(std::string_view bytes) {
    if (bad_)
        return;
    buffer_.erase(0, std::exchange(taken_, 0));
    buffer_.append(bytes);
}

std::optional<std::string> FrameReader::next() {
    std::uint32_t length = 0;
    if (bad_ || buffer_.size() - taken_ < sizeof length)
        return std::nullopt;
    std::memcpy(&length, buffer_.data() + taken_, sizeof length);
    if (length == 0 || length > longest_) {
        bad_ = true;
        buffer_.clear();
        return std::nullopt;
    }
    if (buffer_.size() - taken_ < sizeof length + length)
        return std::nullopt;
    std::string message = buffer_.substr(taken_ + sizeof length, length);
    taken_ += sizeof length + length;
    return message;
}

} // namespace mnemora::browsers
