#include "supervisor/mac_address.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include "runtime/unique_fd.h"

namespace {

// Reads the hardware address of the interface named in `request`. Returns false if it fails or the
// interface is a loopback interface.
bool ask_hardware_address(int socket_fd, ifreq &request) {
    if (ioctl(socket_fd, SIOCGIFFLAGS, &request) != 0 || (request.ifr_flags & IFF_LOOPBACK) != 0)
        return false;
    return ioctl(socket_fd, SIOCGIFHWADDR, &request) == 0;
}

} // namespace

int get_mac_address(std::span<uint8_t, MAC_BYTES> address) {
    const unique_fd socket_fd(socket(AF_INET, SOCK_DGRAM, 0));
    if (!socket_fd)
        return -1;

    std::array<char, 1024> room = {};
    ifconf list = {};
    list.ifc_len = static_cast<int>(room.size());
    list.ifc_buf = room.data();
    if (ioctl(socket_fd.get(), SIOCGIFCONF, &list) != 0)
        return -1;

    const size_t entries = static_cast<size_t>(list.ifc_len) / sizeof(ifreq);
    for (size_t i = 0; i < entries; ++i) {
        ifreq request;
        memcpy(&request, room.data() + i * sizeof(ifreq), sizeof request);
        if (ask_hardware_address(socket_fd.get(), request)) {
            memcpy(address.data(), request.ifr_hwaddr.sa_data, MAC_BYTES);
            return 0;
        }
    }
    return -1;
}

void name_board() {
    std::array<uint8_t, MAC_BYTES> address = {};
    (void)get_mac_address(address);
    for (size_t i = 0; i < address.size(); ++i)
        (void)snprintf(mac_hex + 2 * i, 3, "%2.2x", address[i]);
}
