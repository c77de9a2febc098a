// SPDX-License-Identifier: Apache-2.0
// The handlers of a bus, and the way of a message to its own: verify, unpack, call, free.
#ifndef VORN_DISPATCHER_H
#define VORN_DISPATCHER_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "vorn/core/envelope.h"
#include "vorn/core/registry.h"
#include "vorn/core/support.h"
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

class Dispatcher {
  public:
    Dispatcher(std::uint32_t address, std::uint32_t check, Counters& counters, Log& log)
        : address_(address), check_(check), counters_(counters), log_(log) {}

    // Any thread.
    void handle(std::uint32_t message_id, vorn_bus_handler handler, void* context);
    void handle_all(vorn_bus_handler handler, void* context);

    // The thread that polls. Throws bad_alloc before a message is handled, never after; `handled_messages`
    // are those of the batch that were by an earlier poll.
    void begin_poll() { handler_failed_ = false; }
    void handle_batch(const Batch& batch, std::uint32_t flags, std::uint32_t& handled_messages);
    bool handler_failed() const { return handler_failed_; }  // in this poll

  private:
    struct Handler {
        vorn_bus_handler call = nullptr;
        void* context = nullptr;
    };
    struct Route {
        Registered functions;
        Handler handler;
    };

    void handle_message(const BatchHeader& header, const Message& message, std::uint32_t flags);
    void renew_routes();

    const std::uint32_t address_;
    const std::uint32_t check_;
    Counters& counters_;
    Log& log_;

    // Handlers as the host has set them.
    std::mutex handlers_lock_;
    std::unordered_map<std::uint32_t, Handler> handlers_;
    Handler handler_for_all_;
    std::atomic<std::uint64_t> handlers_version_ = 1;

    // Of the thread that polls: a copy of what is registered and set, so that a message costs no lock.
    std::unordered_map<std::uint32_t, Route> routes_;
    Validity validity_;
    bool handler_failed_ = false;
    std::uint64_t routes_registry_ = 0;
    std::uint64_t routes_handlers_ = 0;
    RecordStorage storage_;
};

}  // namespace vorn

#endif
