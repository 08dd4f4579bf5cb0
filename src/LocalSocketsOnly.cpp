// Shuts the network to what libraries would open unasked, by socket() and getaddrinfo(): those of
// X, sound and the message bus follow an address into the network when an environment variable, a
// property of the display or a configuration file names one, and X's tries this computer's own port
// 6000 where a display has no socket. What calls the kernel by itself isn't held.
//
// A function that the executable defines comes before the C library's in every library's look-up,
// of those opened later too (ld.so(8)). Programs that are started from here have the C library's.

#include <cerrno>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#define MNEMORA_REPLACES extern "C" [[gnu::visibility("default")]]

/// As socket(2) of a kernel that knows sockets of this computer only.
MNEMORA_REPLACES int socket(int domain, int type, int protocol) noexcept {
    // The kernel's own notices come by netlink: of devices, for one.
    if (domain != AF_UNIX && domain != AF_NETLINK) {
        errno = EAFNOSUPPORT;
        return -1;
    }
    return static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

/// No name has an address: asking for one would go through the network already.
MNEMORA_REPLACES int getaddrinfo(const char* /*name*/, const char* /*service*/,
                                 const addrinfo* /*hints*/, addrinfo** /*found*/) {
    return EAI_FAIL;
}
