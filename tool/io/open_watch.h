// SPDX-License-Identifier: Apache-2.0
// A watch of the bus that a verb opens, and when the verb ends.
#ifndef TOOL_OPEN_WATCH_H
#define TOOL_OPEN_WATCH_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tool/commands.h"
#include "vorn/vorn_bus.h"

namespace tool {

struct WatchOptions {
    std::string bus;
    std::vector<std::uint32_t> addresses;  // none: all
    std::uint64_t count = 0;               // messages after which it ends; 0: no end
    double duration_s = 0;                 // 0: no end
    double timeout_s = 0;                  // of silence, after which it ends; 0: never
    bool is_silent = false;                // no words on receivers that come and go
};
void add_watch_options(CLI::App& verb, WatchOptions& options);

class OpenWatch {
  public:
    // Throws CommandError.
    explicit OpenWatch(const WatchOptions& options);
    ~OpenWatch() { vorn_bus_watch_close(watch_); }
    OpenWatch(const OpenWatch&) = delete;
    OpenWatch& operator=(const OpenWatch&) = delete;

    // Calls `use` for each message, and `idle` after each bundle and at least ten times a second, until a
    // signal, or until `wanted` returns --count or more, or the time is over. Throws what `use` throws.
    void run(const std::function<void(const vorn_bus_watched&)>& use,
             const std::function<std::uint64_t()>& wanted, const std::function<void()>& idle);

    vorn_bus_watch_counters counters() const;
    double seconds() const;  // since it was opened

  private:
    const WatchOptions& options_;
    vorn_bus_watch* watch_ = nullptr;
    std::chrono::steady_clock::time_point begun_ = std::chrono::steady_clock::now();
};

}  // namespace tool

#endif
