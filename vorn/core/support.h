// SPDX-License-Identifier: Apache-2.0
// What the parts of the bus share: results, time, the log, counters.
#ifndef VORN_SUPPORT_H
#define VORN_SUPPORT_H

#include <signal.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <type_traits>
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

// `url`, or the default for null.
const char* url_or_default(const char* url);

// $XDG_RUNTIME_DIR/vorn, or .vorn in the user's home: the folder of ipc:// and of nats' journals.
std::string default_folder();

// Why the system refused, by errno.
std::string system_error_text();

// While it lives, signals do not interrupt this thread and those that it starts: the host's threads take
// them. Those of faults stay: blocked, they would end the process without the host's handler.
class BlockedSignals {
  public:
    BlockedSignals() {
        sigset_t blocked;
        sigfillset(&blocked);
        for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
            sigdelset(&blocked, fault);
        pthread_sigmask(SIG_BLOCK, &blocked, &before_);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    BlockedSignals(const BlockedSignals&) = delete;
    BlockedSignals& operator=(const BlockedSignals&) = delete;

  private:
    sigset_t before_;
};

// How long a thread of the bus waits after a fault, mostly a failed allocation, before it tries again.
inline constexpr auto kAfterFault = std::chrono::milliseconds(10);

template <class Run>
std::thread start_thread(Run&& run) {
    const BlockedSignals blocked;
    return std::thread(std::forward<Run>(run));
}

// A random number that is not 0: names of incarnations and sessions.
std::uint64_t random_name();

// Lines to the host, of texts and numbers. Errors are what failed here; warnings are mostly about what came
// from outside, and at most ten a second: peers could fill any log. The number of those left out is logged.
class Log {
  public:
    Log(vorn_bus_log write, void* context, std::string prefix);

    // Where memory is lacking, a line without its contents is written; throws of the host's function end
    // here.
    template <class... Parts>
    void error(const Parts&... parts) const noexcept {
        line("error: ", parts...);
    }
    template <class... Parts>
    void info(const Parts&... parts) const noexcept {
        line("info: ", parts...);
    }
    template <class... Parts>
    void warning(const Parts&... parts) noexcept {
        std::uint64_t left_out = 0;
        if (!may_warn(left_out)) return;
        if (left_out != 0) line("warning: ", left_out, " more such lines were left out");
        line("warning: ", parts...);
    }

  private:
    static constexpr int kWarningsASecond = 10;

    template <class... Parts>
    void line(const Parts&... parts) const noexcept {
        try {
            std::string text = prefix_;
            (append(text, parts), ...);
            write_text(text);
        } catch (...) {
            write_line("vorn: error: a log line was left out: out of memory");
        }
    }

    template <class Part>
    static void append(std::string& text, const Part& part) {
        if constexpr (std::is_arithmetic_v<Part>) {
            text += std::to_string(part);
        } else {
            text += part;
        }
    }
    void write_text(std::string& text) const;
    void write_line(const char* text) const noexcept;
    bool may_warn(std::uint64_t& left_out) noexcept;

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
    std::atomic<std::uint64_t> damaged_messages = 0;
};

inline void count(std::atomic<std::uint64_t>& counter, std::uint64_t by = 1) {
    counter.fetch_add(by, std::memory_order_relaxed);
}

// Where only one thread at a time counts.
inline void count_alone(std::atomic<std::uint64_t>& counter, std::uint64_t by = 1) {
    counter.store(counter.load(std::memory_order_relaxed) + by, std::memory_order_relaxed);
}

// The counters as they travel: what follows the struct's size, numbers only.
inline constexpr std::size_t kCounterNumbers = sizeof(vorn_bus_counters) / sizeof(std::uint64_t) - 1;
using CounterNumbers = std::array<std::uint64_t, kCounterNumbers>;
static_assert(sizeof(vorn_bus_counters) == sizeof(std::uint64_t) + sizeof(CounterNumbers));

inline CounterNumbers to_numbers(const vorn_bus_counters& counters) {
    const auto all = std::bit_cast<std::array<std::uint64_t, 1 + kCounterNumbers>>(counters);
    CounterNumbers numbers;
    std::copy(all.begin() + 1, all.end(), numbers.begin());
    return numbers;
}
inline vorn_bus_counters from_numbers(const CounterNumbers& numbers) {
    std::array<std::uint64_t, 1 + kCounterNumbers> all = {};
    std::copy(numbers.begin(), numbers.end(), all.begin() + 1);
    auto counters = std::bit_cast<vorn_bus_counters>(all);
    counters.size = sizeof counters;
    return counters;
}

}  // namespace vorn

#endif
