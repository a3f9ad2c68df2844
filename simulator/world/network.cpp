#include "simulator/world/network.h"

#include "simulator/base/message.h"
#include "simulator/base/unique_fd.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <linux/rtnetlink.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <net/if_arp.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace simulator {

namespace {

constexpr const char *NAME = "eth0";
constexpr const char *ADDRESS = "192.0.2.1"; // an address for documentation: routed nowhere

ifreq interface(const char *name) {
    ifreq asked{};
    strncpy(asked.ifr_name, name, IFNAMSIZ - 1);
    return asked;
}

// One rtnetlink(7) request about a link. Attributes that follow the header are appended to it.
struct link_request {
    nlmsghdr header{};
    ifinfomsg link{};
    uint8_t attributes[64] = {};
    size_t used = 0; // of the attributes

    void add(int type, const char *text, size_t bytes) {
        const nlattr attribute{static_cast<unsigned short>(NLA_HDRLEN + bytes),
                               static_cast<unsigned short>(type)};
        memcpy(attributes + used, &attribute, sizeof attribute);
        memcpy(attributes + used + NLA_HDRLEN, text, bytes);
        used += static_cast<size_t>(NLA_ALIGN(NLA_HDRLEN + bytes));
    }
    bool carry_out(int type, int flags);
};

// True if the kernel has done what was asked.
bool link_request::carry_out(int type, int flags) {
    header.nlmsg_len = static_cast<uint32_t>(NLMSG_LENGTH(sizeof(ifinfomsg)) + used);
    header.nlmsg_type = static_cast<uint16_t>(type);
    header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    struct {
        nlmsghdr header;
        nlmsgerr error;
        uint8_t rest[512];
    } reply{};
    const unique_fd netlink(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    return netlink.is_open() && send(netlink.get(), this, header.nlmsg_len, 0) > 0 &&
           recv(netlink.get(), &reply, sizeof reply, 0) > 0 &&
           reply.header.nlmsg_type == NLMSG_ERROR && reply.error.error == 0;
}

// A dummy interface: a link with its name and, nested, its kind.
bool add_dummy() {
    link_request asked;
    asked.add(IFLA_IFNAME, NAME, strlen(NAME) + 1);
    const size_t kind_at = asked.used;
    asked.used += NLA_HDRLEN;
    asked.add(IFLA_INFO_KIND, "dummy", strlen("dummy"));
    const nlattr nest{static_cast<unsigned short>(asked.used - kind_at),
                      IFLA_LINKINFO | NLA_F_NESTED};
    memcpy(asked.attributes + kind_at, &nest, sizeof nest);
    return asked.carry_out(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
}

// The interface is persistent: it stays when the descriptor is closed. A descriptor attaches to one
// interface only, so each attempt opens a new one.
bool add_tap(int tunnel) {
    const std::string path = "/proc/self/fd/" + std::to_string(tunnel);
    const unique_fd tap(open(path.c_str(), O_RDWR | O_CLOEXEC));
    ifreq asked = interface(NAME);
    asked.ifr_flags = IFF_TAP | IFF_NO_PI;
    return tap.is_open() && ioctl(tap.get(), TUNSETIFF, &asked) == 0 &&
           ioctl(tap.get(), TUNSETPERSIST, 1) == 0;
}

bool bring_up(int socket, const char *name) {
    ifreq asked = interface(name);
    if (ioctl(socket, SIOCGIFFLAGS, &asked) != 0)
        return false;
    asked.ifr_flags = static_cast<short>(asked.ifr_flags | IFF_UP);
    return ioctl(socket, SIOCSIFFLAGS, &asked) == 0;
}

// Programs that list the interfaces (SIOCGIFCONF) see only those with an Internet address.
bool give_addresses(int socket, const mac_address &mac) {
    ifreq asked = interface(NAME);
    asked.ifr_hwaddr.sa_family = ARPHRD_ETHER;
    memcpy(asked.ifr_hwaddr.sa_data, mac.data(), mac.size());
    if (ioctl(socket, SIOCSIFHWADDR, &asked) != 0)
        return false;
    sockaddr_in address{};
    address.sin_family = AF_INET;
    inet_pton(AF_INET, ADDRESS, &address.sin_addr);
    asked = interface(NAME);
    memcpy(&asked.ifr_addr, &address, sizeof address);
    return ioctl(socket, SIOCSIFADDR, &asked) == 0;
}

} // namespace

void bring_up_loopback() {
    const unique_fd any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    (void)bring_up(any.get(), "lo");
}

void add_interface(const mac_address &mac, int tunnel) {
    const unique_fd any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const bool added = add_dummy() || ioctl(any.get(), SIOCBRADDBR, NAME) == 0 || add_tap(tunnel);
    if (!added || !give_addresses(any.get(), mac) || !bring_up(any.get(), NAME))
        report("no network interface on this board: %s", strerror(errno));
}

void remove_interface() {
    link_request asked;
    asked.add(IFLA_IFNAME, NAME, strlen(NAME) + 1);
    if (!asked.carry_out(RTM_DELLINK, 0))
        report("cannot remove the network interface");
}

} // namespace simulator
