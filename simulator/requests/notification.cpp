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

response_keeper *keeper = nullptr;

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
             {},
             notification.data.instruction_pointer};
    std::copy_n(notification.data.args, asked.arguments.size(), asked.arguments.begin());
    return true;
}

void keep_responses(response_keeper *wanted) {
    keeper = wanted;
}

bool send_response(const request &asked, const response &given) {
    word_buffer &words = buffers().response;
    std::fill(words.begin(), words.end(), 0);
    seccomp_notif_resp sent{};
    sent.id = asked.id;
    sent.val = given.value;
    sent.error = -given.error;
    sent.flags = given.flags;
    memcpy(words.data(), &sent, sizeof sent);
    return ioctl(asked.listener, SECCOMP_IOCTL_NOTIF_SEND, words.data()) == 0; // ENOENT: killed
}

void respond(const request &asked, int64_t value, int error, uint32_t flags) {
    const response given{value, error, flags};
    if (keeper != nullptr)
        keeper->keep(asked, given);
    else
        (void)send_response(asked, given);
}

bool install(const request &asked, int descriptor, int number, bool close_on_exec) {
    seccomp_notif_addfd added{};
    added.id = asked.id;
    added.srcfd = static_cast<uint32_t>(descriptor);
    if (keeper == nullptr)
        added.flags = SECCOMP_ADDFD_FLAG_SEND;
    if (number >= 0) {
        added.newfd = static_cast<uint32_t>(number);
        added.flags |= SECCOMP_ADDFD_FLAG_SETFD;
    }
    added.newfd_flags = close_on_exec ? O_CLOEXEC : 0;
    int given = -1;
    do // EINTR: the tick of the scheduler
        given = ioctl(asked.listener, SECCOMP_IOCTL_NOTIF_ADDFD, &added);
    while (given < 0 && errno == EINTR);
    if (given >= 0 && keeper != nullptr)
        keeper->keep(asked, {given, 0, 0});
    return given >= 0;
}

void prefer_own_processor(int listener) {
    (void)ioctl(listener, SECCOMP_IOCTL_NOTIF_SET_FLAGS, SECCOMP_USER_NOTIF_FD_SYNC_WAKE_UP);
}

bool is_waiting(const request &asked) {
    uint64_t id = asked.id;
    return ioctl(asked.listener, SECCOMP_IOCTL_NOTIF_ID_VALID, &id) == 0;
}

bool is_still_waiting(const request &asked) {
    return keeper != nullptr || is_waiting(asked);
}

} // namespace simulator
