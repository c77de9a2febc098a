// SPDX-License-Identifier: Apache-2.0
// The addresses of a bus that other processes use.
#ifndef TOOL_BUS_ADDRESSES_H
#define TOOL_BUS_ADDRESSES_H

#include <cstdint>
#include <string>
#include <vector>

namespace tool {

struct BusAddress {
    std::uint32_t address;
    bool is_open;  // if not, what it left is there: a socket's file, a stream
    std::string endpoint;
    std::uint64_t stored_bytes;  // of what waits there, on nats
};

// In ascending order. Throws CommandError.
std::vector<BusAddress> bus_addresses(const char* url);

}  // namespace tool

#endif
