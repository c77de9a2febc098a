// SPDX-License-Identifier: Apache-2.0
#include "tool/io/open_bus.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tool/show/shown.h"

namespace tool {
namespace {

void write_log(const char* text, void* /*context*/) { report_line(text); }

}  // namespace

CommandError bus_error(const std::string& doing, std::int32_t result) {
    if (result == VORN_BUS_BAD_URL) {
        return {kBadUsage, fmt::format("{}: {}; URLs are ipc:// or ipc:///FOLDER on this machine, "
                                       "nats://HOST:PORT between machines, and loop: within a process",
                                       doing, vorn_bus_result_text(result))};
    }
    return {kTrouble, fmt::format("{}: {}", doing, vorn_bus_result_text(result))};
}

void require_shared_bus(const std::string& url) {
    const std::string shown = vorn_bus_display_url(url_or_null(url));
    if (!shown.starts_with("loop:")) return;
    throw CommandError(
        kBadUsage,
        fmt::format("{} is within one process, and this one sees no other's; name the bus: --bus "
                    "ipc:// on this machine, --bus nats://HOST:4222 between machines, or either in "
                    "VORN_BUS_URL",
                    shown));
}

const char* url_or_null(const std::string& url) { return url.empty() ? nullptr : url.c_str(); }

OpenBus::OpenBus(const std::string& url, std::uint32_t address, double send_timeout_s, Role role) {
    for (const vorn_catalogue* const catalogue : catalogues()) {
        const std::int32_t registered = vorn_inspect_register_all(catalogue);
        if (registered != 0) throw bus_error("registering the modules", registered);
        const std::int32_t verified = vorn_bus_verify_with(catalogue->verify);
        if (verified != VORN_BUS_OK) throw bus_error("registering what verifies messages", verified);
    }
    vorn_bus_options options = vorn_bus_options_init();
    options.url = url_or_null(url);
    options.address = address;
    options.send_timeout_ms = milliseconds(send_timeout_s);
    options.log = write_log;
    options.send_only = role == Role::pure_sender ? 1 : 0;
    const std::int32_t result = vorn_bus_open(&options, &bus_);
    if (result != VORN_BUS_OK) {
        throw bus_error(fmt::format("opening {} at address {}", vorn_bus_display_url(options.url), address),
                        result);
    }
}

void OpenBus::on_message(std::function<void(const vorn_bus_message&)> handler) {
    handler_ = std::move(handler);
    vorn_bus_handle_all(
        bus_,
        [](const vorn_bus_message* message, void* context) {
            auto& self = *static_cast<OpenBus*>(context);
            self.exception_.call([&] { self.handler_(*message); });
        },
        this);
}

std::uint32_t OpenBus::poll(std::int32_t timeout_ms, std::uint32_t max_batches) {
    std::uint32_t handled = 0;
    const std::int32_t result = vorn_bus_poll(bus_, timeout_ms, max_batches, &handled);
    check(result);
    return handled;
}

void OpenBus::drain(std::int32_t timeout_ms) { check(vorn_bus_drain(bus_, timeout_ms)); }

void OpenBus::check(std::int32_t result) {
    exception_.rethrow();
    if (result != VORN_BUS_OK) throw bus_error("receiving", result);
}

vorn_bus_counters OpenBus::counters() const {
    vorn_bus_counters counters = vorn_bus_counters_init();
    vorn_bus_read_counters(bus_, &counters);
    return counters;
}

std::int32_t milliseconds(double seconds) {
    return static_cast<std::int32_t>(std::clamp(seconds * 1000, 1.0, 1e9));
}

}  // namespace tool
