// SPDX-License-Identifier: Apache-2.0
// A bus that a verb opens, with all modules registered.
#ifndef TOOL_OPEN_BUS_H
#define TOOL_OPEN_BUS_H

#include <cstdint>
#include <functional>
#include <string>

#include "tool/commands.h"
#include "tool/io/carried_exception.h"
#include "tool/message/message_type.h"
#include "vorn/vorn_bus.h"

namespace tool {

// What a result of the bus means.
CommandError bus_error(const std::string& doing, std::int32_t result);

// The URL of a command line, or the usual one.
// Refuses loop:, which no other process sees.
void require_shared_bus(const std::string& url);

const char* url_or_null(const std::string& url);

class OpenBus {
  public:
    // A pure sender takes no address. Throws CommandError.
    enum class Role : std::uint8_t { receiver, pure_sender };
    OpenBus(const std::string& url, std::uint32_t address, double send_timeout_s = 2,
            Role role = Role::receiver);
    ~OpenBus() { vorn_bus_close(bus_); }
    OpenBus(const OpenBus&) = delete;
    OpenBus& operator=(const OpenBus&) = delete;

    vorn_bus* get() const { return bus_; }
    // The handler may throw where poll() calls it.
    void on_message(std::function<void(const vorn_bus_message&)> handler);
    // vorn_bus_poll; returns the number of batches handled. Throws what the handler throws, and CommandError.
    std::uint32_t poll(std::int32_t timeout_ms, std::uint32_t max_batches);
    // vorn_bus_drain, as poll().
    void drain(std::int32_t timeout_ms);
    vorn_bus_counters counters() const;

  private:
    void check(std::int32_t result);

    vorn_bus* bus_ = nullptr;
    std::function<void(const vorn_bus_message&)> handler_;
    CarriedException exception_;
};

// What the messages of a batch in the compact layout may have together.
inline constexpr std::uint32_t kBatchBytes = 0x10000;

// The bytes in which a record travels.
inline std::uint32_t sent_bytes(const MessageType& type, const void* record) {
    return type.image_bytes != 0 ? type.image_bytes : vorn_inspect_packed_bytes(&type, record);
}

// Milliseconds as the bus takes them.
std::int32_t milliseconds(double seconds);

}  // namespace tool

#endif
