// SPDX-License-Identifier: Apache-2.0
// What the parts of the bus share: results, time, the log, counters.
#ifndef VORN_SUPPORT_H
#define VORN_SUPPORT_H

#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "vorn/vorn_bus.h"

namespace vorn {

using Result = std::int32_t;
using Clock = std::chrono::steady_clock;
using Deadline = Clock::time_point;

// Milliseconds as the interface has them. Negative is for ever when waiting for others, but no time at all
// for senders, which must come back.
inline Deadline in_milliseconds(std::int32_t milliseconds) {
    constexpr auto kForEver = std::chrono::hours(24 * 365);
    return Clock::now() +
           (milliseconds < 0 ? std::chrono::milliseconds(kForEver) : std::chrono::milliseconds(milliseconds));
}
inline Deadline within_milliseconds(std::int32_t milliseconds) {
    return Clock::now() + std::chrono::milliseconds(milliseconds < 0 ? 0 : milliseconds);
}

// How long a send may wait. The clock is read when it begins to: most sends never do, and cost little more
// than that reading.
class SendTimeout {
  public:
    explicit SendTimeout(std::int32_t milliseconds) : milliseconds_(milliseconds) {}
    Deadline end() {
        if (!end_) end_ = within_milliseconds(milliseconds_);
        return *end_;
    }

  private:
    std::int32_t milliseconds_;
    std::optional<Deadline> end_;
};

// The URL that stands for null.
const char* chosen_url(const char* url);

// $XDG_RUNTIME_DIR/vorn, or .vorn in the user's home: the folder of ipc:// and of what nats:// remembers.
std::string usual_folder();

// While it lives, this thread and those that it starts are interrupted by no signal: they are the host's, for
// its own threads.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

  private:
    sigset_t before_;
};

template <class Run>
std::thread start_thread(Run&& run) {
    const BlockedSignals blocked;
    return std::thread(std::forward<Run>(run));
}

// A random number that is not 0: names of incarnations and sessions.
std::uint64_t random_name();

// Lines to the host. What comes from outside could fill any log: of such lines only some appear in a second,
// and the number of those left out.
class Log {
  public:
    Log(vorn_bus_log write, void* context, std::string prefix);

    void line(const std::string& text) const;
    void line_about_outside(const std::string& text);

  private:
    static constexpr int kLinesASecond = 10;

    vorn_bus_log write_;
    void* context_;
    std::string prefix_;
    std::mutex lock_;
    Clock::time_point second_;
    int in_second_ = 0;
    std::uint64_t left_out_ = 0;
};

// The numbers of vorn_bus_counters that are counted; the depths of queues are asked of the queues.
struct Counters {
    std::atomic<std::uint64_t> sent_batches = 0;
    std::atomic<std::uint64_t> sent_messages = 0;
    std::atomic<std::uint64_t> refused_batches = 0;
    std::atomic<std::uint64_t> lost_batches = 0;
    std::atomic<std::uint64_t> received_batches = 0;
    std::atomic<std::uint64_t> received_messages = 0;
    std::atomic<std::uint64_t> unknown_messages = 0;
    std::atomic<std::uint64_t> ignored_messages = 0;
    std::atomic<std::uint64_t> damaged = 0;
    std::atomic<std::uint64_t> redelivered_batches = 0;
    std::atomic<std::uint64_t> missed_batches = 0;
};

inline void count(std::atomic<std::uint64_t>& counter, std::uint64_t by = 1) {
    counter.fetch_add(by, std::memory_order_relaxed);
}

// Where only one thread at a time counts.
inline void count_alone(std::atomic<std::uint64_t>& counter, std::uint64_t by = 1) {
    counter.store(counter.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

// The interface's counters are numbers and nothing else, so that they can travel.
inline constexpr std::size_t kCounterNumbers = sizeof(vorn_bus_counters) / sizeof(std::uint64_t);
static_assert(sizeof(vorn_bus_counters) == kCounterNumbers * sizeof(std::uint64_t));

}  // namespace vorn

#endif
