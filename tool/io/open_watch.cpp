// SPDX-License-Identifier: Apache-2.0
#include "tool/io/open_watch.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "tool/io/carried_exception.h"
#include "tool/io/interrupt.h"
#include "tool/io/open_bus.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

void add_watch_options(CLI::App& verb, WatchOptions& options) {
    verb.add_option("--bus", options.bus, "URL of the bus; else VORN_BUS_URL");
    verb.add_option("--address", options.addresses, "Whose arrivals to watch; all if not given")
        ->allow_extra_args(false)
        ->transform(bus_address());
    verb.add_option("--count", options.count, "End after this number of messages")
        ->transform(whole_number(1));
    verb.add_option("--duration", options.duration_s, "End after this number of seconds")
        ->transform(seconds());
    verb.add_option("--timeout", options.timeout_s, "End after this number of seconds without a message")
        ->transform(seconds());
}

OpenWatch::OpenWatch(const WatchOptions& options) : options_(options) {
    vorn_bus_watch_options given = vorn_bus_watch_options_init();
    require_shared_bus(options.bus);
    given.url = url_or_null(options.bus);
    const std::string url = vorn_bus_display_url(given.url);
    given.addresses = options.addresses.data();
    given.address_count = static_cast<std::uint32_t>(options.addresses.size());
    given.queue_bytes = 32U << 20;
    given.log = [](const char* text, void* /*context*/) { report_line(text); };
    const std::int32_t result = vorn_bus_watch_open(&given, &watch_);
    if (result != VORN_BUS_OK) throw bus_error(fmt::format("watching {}", url), result);
    catch_interrupts();
}

void OpenWatch::run(const std::function<void(const vorn_bus_watched&)>& use,
                    const std::function<std::uint64_t()>& wanted, const std::function<void()>& idle) {
    std::uint64_t receivers = 0;
    auto last = Clock::now();
    const auto is_over = [&](Clock::time_point now) {
        if (is_interrupted()) return true;
        if (options_.count != 0 && wanted() >= options_.count) return true;
        if (options_.duration_s > 0 && seconds() >= options_.duration_s) return true;
        return options_.timeout_s > 0 && now - last > std::chrono::duration<double>(options_.timeout_s);
    };
    struct Handler {
        const std::function<void(const vorn_bus_watched&)>& use;
        CarriedException exception;
    } handler = {use, {}};
    const auto handle = [](const vorn_bus_watched* message, void* context) {
        auto& own = *static_cast<Handler*>(context);
        own.exception.call([&] { own.use(*message); });
    };
    auto now = Clock::now();
    while (!is_over(now)) {
        std::uint32_t handled = 0;
        // One at a time where they are counted, so that it ends with the batch that is the last.
        const std::int32_t result =
            vorn_bus_watch_poll(watch_, 100, options_.count != 0 ? 1 : 1000, handle, &handler, &handled);
        handler.exception.rethrow();
        if (result != VORN_BUS_OK) throw bus_error("watching the bus", result);
        now = Clock::now();
        if (handled != 0) last = now;
        if (const std::uint64_t present = counters().receivers; present != receivers) {
            receivers = present;
            if (!options_.is_silent) report("watching {}", counted(receivers, "receiver"));
        }
        idle();
    }
}

vorn_bus_watch_counters OpenWatch::counters() const {
    vorn_bus_watch_counters counters = vorn_bus_watch_counters_init();
    vorn_bus_watch_read_counters(watch_, &counters);
    return counters;
}

double OpenWatch::seconds() const { return std::chrono::duration<double>(Clock::now() - begun_).count(); }

}  // namespace tool
