#include "ToolServer/LineReader.h"

#include <array>
#include <cerrno>
#include <unistd.h>

namespace mnemora {

bool LineReader::readMore() {
    buffer_.erase(0, start_);
    scanned_ -= start_;
    start_ = 0;
    std::array<char, 65536> chunk{};
    ssize_t size = 0;
    do {
        size = read(fd_, chunk.data(), chunk.size());
    } while (size < 0 && errno == EINTR);
    if (size <= 0)
        return false;
    buffer_.append(chunk.data(), static_cast<std::size_t>(size));
    return true;
}

std::optional<std::string> LineReader::next() {
    std::size_t end = buffer_.find('\n', scanned_);
    while (end == std::string::npos) {
        scanned_ = buffer_.size();
        if (!readMore())
            break;
        end = buffer_.find('\n', scanned_);
    }
    const bool terminated = end != std::string::npos;
    if (!terminated && buffer_.empty())
        return std::nullopt;
    std::string line = buffer_.substr(start_, terminated ? end - start_ : std::string::npos);
    start_ = scanned_ = terminated ? end + 1 : buffer_.size();
    if (terminated && line.ends_with('\r'))
        line.pop_back();
    return line;
}

} // namespace mnemora
