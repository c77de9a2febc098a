// SPDX-License-Identifier: Apache-2.0
// The address of a bus on ipc: takes connections, and with them the rings of senders and watchers.
#ifndef VORN_IPC_RECEIVER_H
#define VORN_IPC_RECEIVER_H

#include <cstdint>
#include <list>
#include <memory>
#include <utility>

#include "vorn/core/transport.h"
#include "vorn/ipc/folder.h"
#include "vorn/ipc/intake.h"
#include "vorn/ipc/service.h"
#include "vorn/ipc/unix_socket.h"

namespace vorn {

// All of it runs in the service's thread.
class Receiver final : public Service::Handler {
  public:
    // What one address takes in all, of all its peers together.
    static constexpr std::size_t kMostConnections = 4096;
    static constexpr std::size_t kMostSilent = 64;  // connections that have said nothing yet
    static constexpr std::uint64_t kMostRingBytes = std::uint64_t{8} << 30;
    static constexpr std::uint32_t kMostRing = 256U << 20;  // of one peer

    Receiver(const Endpoint& own, const Folder& folder, Service& service);
    ~Receiver() override;

    Result open();  // throws bad_alloc
    // Takes no more. Batches of senders that are there stay theirs; those of senders that have ended stay in
    // the intake. The address is free when this object ends.
    void stop();

    Intake& intake() { return intake_; }
    void ready() override;

  private:
    struct Connection final : Service::Handler {
        Connection(Receiver& its_receiver, Descriptor its_socket, const Peer& its_peer)
            : receiver(its_receiver), socket(std::move(its_socket)), peer(its_peer) {}
        void ready() override { receiver.receive(*this); }

        Receiver& receiver;
        Descriptor socket;
        Peer peer;
        bool has_spoken = false;
        std::shared_ptr<RingSet::Source> source;  // of a sender
        std::unique_ptr<Intake::Watcher> watcher;
        std::list<Connection>::iterator position;
    };

    bool accept_one();
    void receive(Connection& connection);
    bool take(Connection& connection, Packet& packet);  // false: the connection ends
    // Maps a peer's ring. False: the connection ends.
    bool map(const Connection& connection, SharedMemory& memory, const Descriptor& file,
             std::uint32_t bytes) const;
    bool owns(pid_t process, std::uint32_t address) const;
    bool hello(Connection& connection, Packet& packet);
    bool watch(Connection& connection, Packet& packet);
    bool answer_counters(const Connection& connection) const;
    bool has_space_for(std::uint32_t ring_bytes) const;
    bool refuse(const Connection& connection, const char* why) const;
    void end(Connection& connection);
    void end_those_cut_off();

    const Endpoint own_;
    const Folder& folder_;
    Service& service_;
    Intake intake_;
    Descriptor lock_;
    Descriptor listener_;
    bool is_listening_ = false;
    std::list<Connection> connections_;  // the oldest first
    std::size_t silent_ = 0;
    Service::Task cut_off_;
    Service::Task listen_again_;
};

}  // namespace vorn

#endif
