#include "simulator/requests/descriptor_passing.h"

#include <cstring>
#include <sys/socket.h>
#include <sys/uio.h>

namespace simulator {

namespace {

// A message of one byte with room for a descriptor beside it, see cmsg(3).
struct descriptor_message {
    descriptor_message() {
        message.msg_iov = &data;
        message.msg_iovlen = 1;
        message.msg_control = control;
        message.msg_controllen = sizeof control;
    }
    descriptor_message(const descriptor_message &) = delete;
    descriptor_message &operator=(const descriptor_message &) = delete;

    char byte = 0;
    iovec data{&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
};

} // namespace

// By sendmmsg(2): the sender may be under a filter that stops sendmsg(2), and whoever answers is
// still waiting for the descriptor.
bool send_descriptor(int socket, int descriptor) {
    descriptor_message carrier;
    cmsghdr *header = CMSG_FIRSTHDR(&carrier.message);
    header->cmsg_level = SOL_SOCKET;
    header->cmsg_type = SCM_RIGHTS;
    header->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(header), &descriptor, sizeof descriptor);
    mmsghdr one{carrier.message, 0};
    return sendmmsg(socket, &one, 1, MSG_NOSIGNAL) == 1;
}

unique_fd receive_descriptor(int socket) {
    descriptor_message carrier;
    if (recvmsg(socket, &carrier.message, MSG_CMSG_CLOEXEC) != 1)
        return unique_fd();
    const cmsghdr *header = CMSG_FIRSTHDR(&carrier.message);
    if (header == nullptr || header->cmsg_type != SCM_RIGHTS)
        return unique_fd();
    int descriptor = -1;
    memcpy(&descriptor, CMSG_DATA(header), sizeof descriptor);
    return unique_fd(descriptor);
}

} // namespace simulator
