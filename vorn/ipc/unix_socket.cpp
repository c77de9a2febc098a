// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/unix_socket.h"

#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

namespace vorn {
namespace {

// Space for one descriptor more than a packet has: with more the packet is broken, not cut.
constexpr std::size_t kMostDescriptors = 3;

struct Control {
    alignas(cmsghdr) std::array<std::byte, CMSG_SPACE(kMostDescriptors * sizeof(int))> bytes = {};
};

}  // namespace

bool send_packet(const Descriptor& socket, Bytes bytes, const Descriptor& memory,
                 const Descriptor& doorbell) {
    iovec part = {const_cast<std::uint8_t*>(bytes.data()), bytes.size()};
    Control control;
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (memory) {
        const std::array<int, 2> given = {memory.get(), doorbell.get()};
        const std::size_t given_bytes = doorbell ? sizeof given : sizeof given[0];
        message.msg_control = control.bytes.data();
        message.msg_controllen = CMSG_SPACE(given_bytes);
        cmsghdr* const head = CMSG_FIRSTHDR(&message);
        head->cmsg_level = SOL_SOCKET;
        head->cmsg_type = SCM_RIGHTS;
        head->cmsg_len = CMSG_LEN(given_bytes);
        std::memcpy(CMSG_DATA(head), given.data(), given_bytes);
    }
    return sendmsg(socket.get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

Received receive_packet(const Descriptor& socket, Packet& packet) {
    iovec part = {packet.storage.data(), packet.storage.size()};
    Control control;
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.bytes.data();
    message.msg_controllen = control.bytes.size();
    const ssize_t size = recvmsg(socket.get(), &message, MSG_DONTWAIT | MSG_CMSG_CLOEXEC);
    if (size < 0) {
        return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR ? Received::nothing : Received::end;
    }
    packet.size = static_cast<std::uint32_t>(size);
    packet.memory.reset();
    packet.doorbell.reset();
    std::size_t count = 0;
    for (cmsghdr* head = CMSG_FIRSTHDR(&message); head != nullptr; head = CMSG_NXTHDR(&message, head)) {
        if (head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_RIGHTS) continue;
        for (std::size_t at = CMSG_LEN(0); at + sizeof(int) <= head->cmsg_len; at += sizeof(int), ++count) {
            int number = -1;
            std::memcpy(&number, reinterpret_cast<const std::byte*>(head) + at, sizeof number);
            Descriptor one(number);
            if (count < 2) (count == 0 ? packet.memory : packet.doorbell) = std::move(one);
        }
    }
    const bool is_cut = (message.msg_flags & (MSG_TRUNC | MSG_CTRUNC)) != 0;
    if (is_cut || count > 2) return Received::broken;
    return size == 0 ? Received::end : Received::packet;
}

Peer peer_of(const Descriptor& socket) {
    ucred credentials = {};
    socklen_t size = sizeof credentials;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) {
        return {0, static_cast<uid_t>(-1)};
    }
    return {credentials.pid, credentials.uid};
}

Descriptor make_doorbell() { return Descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)); }

void ring(const Descriptor& doorbell) {
    eventfd_write(doorbell.get(),
                  1);  // it fails where the other process has filled the counter: then it is awake
}

}  // namespace vorn
