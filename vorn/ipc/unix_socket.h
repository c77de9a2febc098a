// SPDX-License-Identifier: Apache-2.0
// Packets between two processes of a machine, with descriptors beside them.
#ifndef VORN_UNIX_SOCKET_H
#define VORN_UNIX_SOCKET_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <vector>

#include "vorn/core/envelope.h"
#include "vorn/ipc/descriptor.h"

namespace vorn {

// What a packet of this bus has at most: its bytes, a ring, and its doorbell.
struct Packet {
    std::array<std::uint8_t, 256> storage = {};
    std::uint32_t size = 0;
    Descriptor memory;
    Descriptor doorbell;
    Bytes bytes() const { return Bytes(storage).first(size); }
};

// False: it was not sent, by errno. Never waits.
bool send_packet(const Descriptor& socket, Bytes bytes, const Descriptor& memory, const Descriptor& doorbell);
inline bool send_packet(const Descriptor& socket, Bytes bytes) { return send_packet(socket, bytes, {}, {}); }

enum class Received : std::uint8_t { packet, nothing, end, broken };

// Never waits. End: the other end is closed. Broken: it is no packet of this bus.
Received receive_packet(const Descriptor& socket, Packet& packet);

// The process and user at the other end, as the kernel knows them.
struct Peer {
    pid_t process = 0;
    uid_t user = 0;
};
Peer peer_of(const Descriptor& socket);

// By a doorbell a process wakes another, which waits for it edge by edge and never reads it.
Descriptor make_doorbell();
void ring(const Descriptor& doorbell);

}  // namespace vorn

#endif
