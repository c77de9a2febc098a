// SPDX-License-Identifier: Apache-2.0
// What has arrived over ipc: whoever polls reads it from the senders' rings.
#ifndef VORN_INTAKE_H
#define VORN_INTAKE_H

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/ipc/ring_set.h"
#include "vorn/ipc/unix_socket.h"

namespace vorn {

class Intake final : public Arrivals {
  public:
    // Somebody who gets copies: the writing end of a watcher's ring.
    struct Watcher {
        SharedMemory memory;
        RingWriter writer;
        const Descriptor* socket;  // open until it is removed
    };

    // `has_cut_off` is called by the polling thread: some source is removed, and its connection is to end.
    Intake(const Endpoint& own, const Descriptor& readable, std::function<void()> has_cut_off);

    // The service's thread.
    bool add(const std::shared_ptr<RingSet::Source>& source) { return rings_.add(source); }
    void add_watcher(Watcher& watcher);  // throws bad_alloc
    void remove_watcher(const Watcher& watcher);
    RingSet& rings() { return rings_; }
    std::uint64_t ring_bytes() const { return rings_.bytes(); }

    // While nobody polls: batches of senders that are there still go back to them.
    void give_back();

    Delivery* front(Deadline deadline) override;
    void pop_front() override { delivery_.source = nullptr; }
    std::uint64_t batches() const override;
    std::uint64_t batches_for_poll() const override { return delivery_.batches + rings_.records_of_active(); }
    void batches_left(std::uint32_t /*batches*/) override {}
    void interrupt(bool on) override { rings_.interrupt(on); }
    void wake() override { rings_.wake(); }
    void close() override { pop_front(); }
    int descriptor() override { return rings_.descriptor(); }
    void rest() override { rings_.rest(delivery_.source != nullptr); }

  private:
    // Batches that were copied out of one ring.
    struct RingDelivery final : Delivery {
        void batch_begins() override { source->reader.begin(number + 1); }
        void batch_handled() override;
        void finished() override;

        RingSet::Source* source = nullptr;
        std::uint64_t number = 0;  // of the last batch that is handled
        std::uint64_t last = 0;    // that was copied
        Intake* intake = nullptr;
    };

    bool copy_out(RingSet::Source& source);
    void copy_to_watchers(Bytes batches);
    void cut_off(RingSet::Source& source, const char* why);

    const Endpoint own_;
    const std::function<void()> has_cut_off_;
    RingSet rings_;
    RingDelivery delivery_;
    std::vector<std::uint8_t> storage_;

    std::atomic<std::uint32_t> watcher_count_ = 0;
    std::mutex watchers_lock_;
    std::vector<Watcher*> watchers_;
};

}  // namespace vorn

#endif
