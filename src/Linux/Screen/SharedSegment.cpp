#include "Linux/Screen/SharedSegment.h"

#include <sys/ipc.h>
#include <sys/shm.h>
#include <utility>

namespace mnemora::x11 {

std::optional<SharedSegment> SharedSegment::create(std::size_t size) {
    const int id = shmget(IPC_PRIVATE, size, IPC_CREAT | 0600);
    if (id < 0)
        return std::nullopt;
    void* memory = shmat(id, nullptr, 0);
    shmctl(id, IPC_RMID, nullptr);
    if (memory == reinterpret_cast<void*>(-1))
        return std::nullopt;
    return SharedSegment(id, {static_cast<const std::uint8_t*>(memory), size});
}

SharedSegment::SharedSegment(SharedSegment&& other) noexcept
    : id_(other.id_), bytes_(std::exchange(other.bytes_, {})) {}

SharedSegment::~SharedSegment() {
    if (!bytes_.empty())
        shmdt(bytes_.data());
}

} // namespace mnemora::x11
