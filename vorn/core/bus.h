// SPDX-License-Identifier: Apache-2.0
// An open bus: what is the same on every transport.
#ifndef VORN_BUS_IMPL_H
#define VORN_BUS_IMPL_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "vorn/core/dispatcher.h"
#include "vorn/core/inbox.h"
#include "vorn/core/transport.h"

namespace vorn {

// How long sends of this thread wait, in milliseconds; below 0: as long as their bus says.
extern thread_local std::int32_t send_timeout_of_thread;

class Bus {
  public:
    // Throws nothing but bad_alloc and system_error.
    static Result open(const vorn_bus_options& given, std::unique_ptr<Bus>& bus);
    ~Bus();
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    Result send(std::uint32_t destination, const VORN_SendDescriptor* descriptors, std::uint32_t count,
                std::uint64_t target);
    Result flush(std::int32_t timeout_ms);
    Result poll(std::int32_t timeout_ms, std::uint32_t max_batches, std::uint32_t& handled);
    Result drain(std::int32_t timeout_ms);
    Result start();
    Result stop();
    int descriptor() { return arrivals_->descriptor(); }
    void wake() { arrivals_->wake(); }
    Dispatcher& dispatcher() { return dispatcher_; }
    void read_counters(vorn_bus_counters& counters) const;
    const std::string& endpoint() const { return endpoint_; }

  private:
    Bus(const vorn_bus_options& options, const std::string& prefix);

    Result refuse(Result result);
    void handle_arrivals(Deadline deadline, std::uint32_t most, std::uint32_t& handled);
    bool begin_polling(Deadline deadline);
    void end_polling();
    void handle_delivery(Delivery& delivery, std::uint32_t max_batches, std::uint32_t& handled);

    vorn_bus_options options_;
    Log log_;
    Counters counters_;
    Dispatcher dispatcher_;
    Inbox inbox_;
    std::unique_ptr<Transport> transport_;
    Arrivals* arrivals_ = &inbox_;  // or the transport's
    std::string endpoint_;
    std::uint64_t lost_at_flush_ = 0;
    std::mutex flush_lock_;

    // One thread polls at a time.
    std::mutex polling_lock_;
    std::condition_variable polling_ended_;
    std::thread::id polling_;    // none: nobody polls
    std::thread::id receiving_;  // the receiving thread, until it is stopped

    std::mutex receiver_lock_;
    std::thread receiver_;
    std::atomic<bool> receiver_stops_ = false;
};

}  // namespace vorn

#endif
