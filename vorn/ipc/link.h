// SPDX-License-Identifier: Apache-2.0
// The sending end between two addresses of ipc: senders write into the ring, the service's thread connects it
// with whoever is at the address.
#ifndef VORN_LINK_H
#define VORN_LINK_H

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>

#include "vorn/core/transport.h"
#include "vorn/ipc/folder.h"
#include "vorn/ipc/outbox.h"
#include "vorn/ipc/service.h"
#include "vorn/ipc/shared_memory.h"
#include "vorn/ipc/unix_socket.h"

namespace vorn {

class Link final : public Service::Handler {
  public:
    Link(const Endpoint& own, std::uint32_t destination, const Folder& folder, Service& service);

    std::uint32_t destination() const { return destination_; }

    // Any thread.
    Result send(const Outgoing& batch, SendTimeout& timeout);
    bool wait_until_empty(Deadline deadline);
    std::uint32_t batches();
    std::uint32_t batches_without_receiver();

    // The service's thread.
    void ready() override;
    void appeared() { connect(); }  // the destination's socket
    void close();

  private:
    // What is replaced as a whole when the receiver is another one.
    struct Ring {
        SharedMemory memory;
        Descriptor doorbell;
    };

    bool wait_for_peer(std::unique_lock<std::mutex>& locked, SendTimeout& timeout);
    void wait_for_space(std::unique_lock<std::mutex>& locked, std::uint64_t number, Deadline deadline);
    bool note_handled();
    void connect();
    void welcome(const Packet& packet);
    void end(Clock::duration until_next);

    const Endpoint own_;
    const std::uint32_t destination_;
    const Folder& folder_;
    Service& service_;

    // Of the service's thread.
    Descriptor socket_;
    Service::Task connect_;
    bool awaits_welcome_ = false;
    bool is_closed_ = false;

    std::mutex lock_;
    std::condition_variable changed_;
    Outbox outbox_;
    std::shared_ptr<Ring> ring_;
    std::uint32_t senders_waiting_ = 0;  // for a receiver
    std::uint32_t peer_batch_bytes_ = 0;
    bool is_up_ = false;
};

}  // namespace vorn

#endif
