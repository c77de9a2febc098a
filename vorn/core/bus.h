// SPDX-License-Identifier: Apache-2.0
// An open bus: what is the same on every transport.
#ifndef VORN_BUS_IMPL_H
#define VORN_BUS_IMPL_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include "vorn/core/inbox.h"
#include "vorn/core/registry.h"
#include "vorn/core/transport.h"
#include "vorn/core/validity.h"

namespace vorn {

// Zeroed storage for one record. A record's size is known only from its unpack's result, after the fact:
// it holds any, and a page after it ends the process rather than let a larger one overwrite the memory of
// others.
class RecordStorage {
  public:
    RecordStorage();
    ~RecordStorage();
    RecordStorage(const RecordStorage&) = delete;
    RecordStorage& operator=(const RecordStorage&) = delete;

    void* start() const { return start_; }
    void clear(std::uint32_t bytes) const;

  private:
    std::size_t bytes_;  // without the page after it
    void* start_;
};

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
    void handle(std::uint32_t message_id, vorn_bus_handler handler, void* context);
    void handle_all(vorn_bus_handler handler, void* context);
    void read_counters(vorn_bus_counters& counters) const;
    const std::string& endpoint() const { return endpoint_; }

  private:
    struct Handler {
        vorn_bus_handler call = nullptr;
        void* context = nullptr;
    };
    struct Route {
        Registered functions;
        Handler handler;
    };

    Bus(const vorn_bus_options& options, const std::string& prefix);

    Result refuse(Result result);
    void handle_arrivals(Deadline deadline, std::uint32_t most, std::uint32_t& handled);
    bool begin_polling(Deadline deadline);
    void end_polling();
    void handle_delivery(Delivery& delivery, std::uint32_t max_batches, std::uint32_t& handled);
    void handle_batch(const Batch& batch, std::uint32_t flags, std::uint32_t& handled_messages);
    void handle_message(const BatchHeader& header, const Message& message, std::uint32_t flags);
    void renew_routes();

    vorn_bus_options options_;
    Log log_;
    Counters counters_;
    Inbox inbox_;
    std::unique_ptr<Transport> transport_;
    Arrivals* arrivals_ = &inbox_;  // or the transport's
    std::string endpoint_;
    std::uint64_t lost_at_flush_ = 0;
    std::mutex flush_lock_;

    // Handlers as the host has set them.
    std::mutex handlers_lock_;
    std::unordered_map<std::uint32_t, Handler> handlers_;
    Handler handler_for_all_;
    std::atomic<std::uint64_t> handlers_version_ = 1;

    // One thread polls at a time.
    std::mutex polling_lock_;
    std::condition_variable polling_ended_;
    std::thread::id polling_;    // none: nobody polls
    std::thread::id receiving_;  // the receiving thread, until it is stopped

    // Of the thread that polls: a copy of what is registered and set, so that a message costs no lock.
    std::unordered_map<std::uint32_t, Route> routes_;
    Validity validity_;
    bool handler_failed_ = false;  // in this poll
    std::uint64_t routes_registry_ = 0;
    std::uint64_t routes_handlers_ = 0;
    RecordStorage storage_;

    std::mutex receiver_lock_;
    std::thread receiver_;
    std::atomic<bool> receiver_stops_ = false;
};

}  // namespace vorn

#endif
