// SPDX-License-Identifier: Apache-2.0
// The sending end between two addresses: numbers batches, and keeps them until the receiver has handled them.
//
// Batches go to one incarnation of the receiver, named by a session. What the same incarnation missed is sent
// again; what an incarnation took and did not handle before it ended is lost, and counted.
#ifndef VORN_ZMQ_LINK_H
#define VORN_ZMQ_LINK_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "vorn/core/shared_buffer.h"
#include "vorn/core/transport.h"
#include "vorn/zmq/zmq_service.h"

namespace vorn {

class Link {
  public:
    Link(const Endpoint& own, std::uint32_t destination, std::uint64_t incarnation, std::string endpoint,
         zmq::context_t& context, Notifier& notifier);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;

    // Any thread.
    Result send(const Outgoing& batch, SendTimeout& timeout);
    bool wait_until_empty(Deadline deadline);
    std::uint32_t batches();

    // The service thread. Serve returns when it wants to be called again, if nothing arrives meanwhile.
    zmq::socket_ref socket() { return socket_; }
    Clock::time_point serve();

  private:
    // Batches that travel together; in front, bytes for the packet's head. The bytes are lent to the socket,
    // and kept to be sent again.
    struct Packet {
        SharedBuffer bytes;
        std::size_t size = 0;
        std::size_t capacity = 0;
        Clock::time_point begun;
        std::uint64_t first = 0;
        std::uint32_t count = 0;
        std::uint64_t last() const { return first + count - 1; }
        std::size_t batch_bytes() const { return size - Data::kBytes; }
    };

    void receive();
    void receive(Bytes packet);
    void welcome(const Welcome& packet);
    void acknowledge(std::uint64_t handled);
    void begin_session(const Welcome& packet);
    void drop_larger_than(std::uint32_t batch_bytes);
    void end_session(std::uint64_t received);
    void send_again_after(std::uint64_t received);
    void send_waiting();
    Packet make_packet(std::uint32_t batch_bytes);
    std::deque<Packet> take_waiting();
    void number(Packet& packet) const;
    bool transmit(const Packet& packet);
    bool transmit(Bytes bytes);
    void say_hello();
    void ping();
    void set_up(bool up);
    void give_back(std::uint64_t batches, std::uint64_t bytes, std::vector<SharedBuffer> spares = {});

    const Endpoint own_;
    const std::uint32_t destination_;
    const std::uint64_t incarnation_;
    const std::string endpoint_;
    Notifier& notifier_;

    // Of the service thread.
    zmq::socket_t socket_;
    std::uint64_t session_ = 0;
    std::uint64_t next_ = 1;
    std::uint64_t handled_ = 0;
    std::deque<Packet> unhandled_;  // sent, and not known to be handled
    bool serving_ = false;          // up_, without the lock
    std::uint64_t window_ = 0;      // batches that the receiver takes before it has handled any
    Clock::time_point next_hello_;
    Clock::time_point next_ping_;
    Clock::time_point heard_;
    Clock::time_point sent_again_;
    Clock::time_point hold_ends_;  // of the packet that is held

    // Of all.
    std::mutex lock_;
    std::condition_variable changed_;
    bool up_ = false;
    std::uint32_t waiting_senders_ = 0;
    std::uint32_t peer_batches_ = 0;
    std::uint32_t peer_batch_bytes_ = 0;
    std::uint32_t batches_ = 0;  // waiting and unhandled
    std::uint64_t bytes_ = 0;
    std::deque<Packet> waiting_;
    bool held_ = false;                 // the service thread wants no notifier for batches that join a packet
    std::vector<SharedBuffer> spares_;  // of kPacketBytes
};

}  // namespace vorn

#endif
