#include "ToolServer/LineReader.h"

#include "Support/FileDescriptor.h"

#include <array>
#include <cerrno>
#include <unistd.h>

namespace mnemora {
namespace {

/// What a buffer may keep for the next line; more is given back.
constexpr std::size_t keptCapacity = std::size_t{1} << 20;

} // namespace

bool LineReader::readMore() {
    if (buffer_.size() > maxLength) {
        buffer_ = {};
        scanned_ = 0;
        skipping_ = true;
    }
    std::array<char, 65536> chunk;
    for (;;) {
        const ssize_t size = read(fd_, chunk.data(), chunk.size());
        if (size > 0) {
            buffer_.append(chunk.data(), static_cast<std::size_t>(size));
            return true;
        }
        if (size == 0 || (errno != EINTR && errno != EAGAIN))
            return false;
        if (errno == EAGAIN)
            awaitReadable(fd_);
    }
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
    std::string line = buffer_.substr(0, end);
    buffer_.erase(0, terminated ? end + 1 : end);
    scanned_ = 0;
    if (buffer_.capacity() > keptCapacity && buffer_.size() < keptCapacity)
        buffer_.shrink_to_fit();
    if (skipping_)
        line.clear();
    skipping_ = false;
    if (terminated && line.ends_with('\r'))
        line.pop_back();
    return line;
}

} // namespace mnemora
