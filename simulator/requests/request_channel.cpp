#include "simulator/requests/request_channel.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <linux/seccomp.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/uio.h>

namespace simulator {

namespace {

// The kernel's structures may be longer than the header's; it says how long they are.
struct notification_buffers {
    std::vector<uint64_t> notification;
    std::vector<uint64_t> response;
};

notification_buffers &buffers() {
    static notification_buffers sized = [] {
        seccomp_notif_sizes sizes{};
        (void)syscall(SYS_seccomp, SECCOMP_GET_NOTIF_SIZES, 0, &sizes);
        const auto words = [](size_t bytes) { return (bytes + 7) / 8; };
        return notification_buffers{
            std::vector<uint64_t>(
                words(std::max<size_t>(sizes.seccomp_notif, sizeof(seccomp_notif)))),
            std::vector<uint64_t>(
                words(std::max<size_t>(sizes.seccomp_notif_resp, sizeof(seccomp_notif_resp))))};
    }();
    return sized;
}

void respond(const request &asked, int64_t value, int error, uint32_t flags) {
    std::vector<uint64_t> &words = buffers().response;
    std::fill(words.begin(), words.end(), 0);
    seccomp_notif_resp response{};
    response.id = asked.id;
    response.val = value;
    response.error = -error;
    response.flags = flags;
    memcpy(words.data(), &response, sizeof response);
    (void)ioctl(asked.listener, SECCOMP_IOCTL_NOTIF_SEND, words.data()); // ENOENT: caller killed
}

bool still_waiting(const request &asked) {
    uint64_t id = asked.id;
    return ioctl(asked.listener, SECCOMP_IOCTL_NOTIF_ID_VALID, &id) == 0;
}

// Takes the next notification. False when there is none after all (its caller was killed).
bool receive(int listener, request &asked, uint64_t &descriptor) {
    std::vector<uint64_t> &words = buffers().notification;
    std::fill(words.begin(), words.end(), 0);
    if (ioctl(listener, SECCOMP_IOCTL_NOTIF_RECV, words.data()) != 0)
        return false;
    seccomp_notif notification{};
    memcpy(&notification, words.data(), sizeof notification);
    asked = {listener, notification.id, static_cast<pid_t>(notification.pid),
             static_cast<uint32_t>(notification.data.args[1]), notification.data.args[2]};
    descriptor = notification.data.args[0];
    return true;
}

device *find_device(const std::vector<std::unique_ptr<device>> &devices, const request &asked,
                    uint64_t descriptor) {
    std::array<char, 64> path{};
    snprintf(path.data(), path.size(), "/proc/%d/fd/%d", asked.caller,
             static_cast<int>(descriptor));
    struct stat node {};
    if (stat(path.data(), &node) != 0 || !still_waiting(asked))
        return nullptr;
    for (const std::unique_ptr<device> &candidate : devices)
        if (candidate->owns(node))
            return candidate.get();
    return nullptr;
}

} // namespace

bool read_argument(const request &asked, void *to, size_t bytes) {
    const iovec here{to, bytes};
    const iovec there{reinterpret_cast<void *>(static_cast<uintptr_t>(asked.argument)), bytes};
    return process_vm_readv(asked.caller, &here, 1, &there, 1, 0) == static_cast<ssize_t>(bytes) &&
           still_waiting(asked); // else the number may already be another process's
}

bool write_argument(const request &asked, const void *from, size_t bytes) {
    const iovec here{const_cast<void *>(from), bytes};
    const iovec there{reinterpret_cast<void *>(static_cast<uintptr_t>(asked.argument)), bytes};
    return still_waiting(asked) &&
           process_vm_writev(asked.caller, &here, 1, &there, 1, 0) == static_cast<ssize_t>(bytes);
}

void answer(const request &asked, int64_t value) {
    respond(asked, value, 0, 0);
}

void refuse(const request &asked, int error) {
    respond(asked, 0, error, 0);
}

void pass_on(const request &asked) {
    respond(asked, 0, 0, SECCOMP_USER_NOTIF_FLAG_CONTINUE);
}

void request_channel::add_polls(std::vector<pollfd> &polls) const {
    if (listener.is_open())
        polls.push_back({listener.get(), POLLIN, 0});
}

void request_channel::ready(const pollfd &event) {
    request asked{};
    uint64_t descriptor = 0;
    if ((event.revents & POLLIN) != 0 && receive(listener.get(), asked, descriptor)) {
        device *owner = find_device(*devices, asked, descriptor);
        if (owner != nullptr)
            owner->take_request(asked);
        else
            pass_on(asked);
        return;
    }
    if ((event.revents & (POLLHUP | POLLERR)) != 0)
        listener.reset();
}

} // namespace simulator
