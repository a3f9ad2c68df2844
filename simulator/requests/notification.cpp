#include "simulator/requests/notification.h"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

// Linux 6.6; older headers lack it.
#ifndef SECCOMP_IOCTL_NOTIF_SET_FLAGS
#define SECCOMP_USER_NOTIF_FD_SYNC_WAKE_UP (1UL << 0)
#define SECCOMP_IOCTL_NOTIF_SET_FLAGS SECCOMP_IOW(4, __u64)
#endif

namespace simulator {

namespace {

using word_buffer = std::vector<uint64_t>; // aligned as the kernel's structures are

// The kernel's structures may be longer than the header's; the kernel reports their lengths.
struct notification_buffers {
    word_buffer notification;
    word_buffer response;
};

word_buffer buffer_for(size_t kernel_bytes, size_t header_bytes) {
    const size_t bytes = std::max(kernel_bytes, header_bytes);
    return word_buffer((bytes + sizeof(uint64_t) - 1) / sizeof(uint64_t));
}

notification_buffers sized_buffers() {
    seccomp_notif_sizes sizes{};
    (void)syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes);
    return {buffer_for(sizes.seccomp_notif, sizeof(seccomp_notif)),
            buffer_for(sizes.seccomp_notif_resp, sizeof(seccomp_notif_resp))};
}

notification_buffers &buffers() {
    static notification_buffers sized = sized_buffers();
    return sized;
}

} // namespace

bool receive(int listener, request &asked) {
    word_buffer &words = buffers().notification;
    std::fill(words.begin(), words.end(), 0);
    if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, words.data()) != 0)
        return false;
    seccomp_notif notification{};
    memcpy(&notification, words.data(), sizeof notification);
    asked = {listener,
             notification.id,
             static_cast<pid_t>(notification.pid),
             notification.data.arch,
             notification.data.nr,
             {}};
    std::copy_n(notification.data.args, asked.arguments.size(), asked.arguments.begin());
    return true;
}

void respond(const request &asked, int64_t value, int error, uint32_t flags) {
    word_buffer &words = buffers().response;
    std::fill(words.begin(), words.end(), 0);
    seccomp_notif_resp response{};
    response.id = asked.id;
    response.val = value;
    response.error = -error;
    response.flags = flags;
    memcpy(words.data(), &response, sizeof response);
    (void)ioctl(asked.listener, SECCOMP_IOCTL_NOTIF_SEND, words.data()); // ENOENT: caller killed
}

bool install(const request &asked, int descriptor, int number, bool close_on_exec) {
    seccomp_notif_addfd added{};
    added.id = asked.id;
    added.srcfd = static_cast<uint32_t>(descriptor);
    added.flags = SECCOMP_ADDFD_FLAG_SEND;
    if (number >= 0) {
        added.newfd = static_cast<uint32_t>(number);
        added.flags |= SECCOMP_ADDFD_FLAG_SETFD;
    }
    added.newfd_flags = close_on_exec ? O_CLOEXEC : 0;
    return ioctl(asked.listener, SECCOMP_IOCTL_NOTIF_ADDFD, &added) >= 0;
}

void prefer_own_processor(int listener) {
    (void)ioctl(listener, SECCOMP_IOCTL_NOTIF_SET_FLAGS, SECCOMP_USER_NOTIF_FD_SYNC_WAKE_UP);
}

bool is_waiting(const request &asked) {
    uint64_t id = asked.id;
    return ioctl(asked.listener, SECCOMP_IOCTL_NOTIF_ID_VALID, &id) == 0;
}

} // namespace simulator
