// SPDX-License-Identifier: Apache-2.0
// Watching: copies of what others take, between a transport that gets them and whoever polls.
#ifndef VORN_WATCH_H
#define VORN_WATCH_H

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "vorn/core/envelope.h"
#include "vorn/core/support.h"

namespace vorn {

// Batches that were taken together, one after the other.
class Copies {
  public:
    Copies() = default;
    virtual ~Copies() = default;
    Copies(const Copies&) = delete;
    Copies& operator=(const Copies&) = delete;

    Bytes bytes;
    std::uint32_t batches = 0;
    std::uint64_t time = 0;  // nanoseconds since 1970
};

std::uint64_t nanoseconds_now();

// The counters of vorn_bus_watch_counters.
struct WatchCounters {
    std::atomic<std::uint64_t> batches = 0;
    std::atomic<std::uint64_t> messages = 0;
    std::atomic<std::uint64_t> lost_batches = 0;
    std::atomic<std::uint64_t> damaged = 0;
    std::atomic<std::uint64_t> interruptions = 0;
};

// Any number of threads put copies in, and never wait: what does not fit is counted and dropped.
class CopyQueue {
  public:
    CopyQueue(std::uint64_t most_bytes, WatchCounters& counters)
        : most_bytes_(most_bytes), counters_(counters) {}

    bool has_capacity_for(std::size_t bytes);
    void put(std::unique_ptr<Copies> copies);

    // Null when the time is over.
    std::unique_ptr<Copies> take(Deadline deadline);

  private:
    static std::uint64_t cost(std::size_t bytes) { return bytes + 256; }

    std::mutex lock_;
    std::condition_variable changed_;
    std::deque<std::unique_ptr<Copies>> copies_;
    std::uint64_t bytes_ = 0;
    const std::uint64_t most_bytes_;
    WatchCounters& counters_;
};

// What a transport is given by the watch that owns it.
struct WatchEndpoint {
    std::vector<std::uint32_t> addresses;  // none: all
    std::uint32_t queue_bytes;
    CopyQueue& queue;
    WatchCounters& counters;
    Log& log;
};

// Fills the queue from open() until it is destroyed.
class Watcher {
  public:
    Watcher() = default;
    virtual ~Watcher() = default;
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;

    virtual Result open() = 0;
    virtual std::uint64_t receivers() = 0;
};

// An open watch: what is the same on every transport.
class BusWatch {
  public:
    static Result open(const vorn_bus_watch_options& options, std::unique_ptr<BusWatch>& watch);

    Result poll(std::int32_t timeout_ms, std::uint32_t max_batches, vorn_bus_watch_handler handler,
                void* context, std::uint32_t& handled);
    void read_counters(vorn_bus_watch_counters& counters) const;

  private:
    explicit BusWatch(const vorn_bus_watch_options& options);

    Log log_;
    WatchCounters counters_;
    CopyQueue queue_;
    std::unique_ptr<Copies> begun_;     // whose batches are not all handled
    std::unique_ptr<Watcher> watcher_;  // ends before what it fills
};

}  // namespace vorn

#endif
