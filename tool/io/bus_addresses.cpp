// SPDX-License-Identifier: Apache-2.0
#include "tool/io/bus_addresses.h"

#include <fmt/format.h>

#include "tool/io/carried_exception.h"
#include "tool/io/open_bus.h"

namespace tool {

std::vector<BusAddress> bus_addresses(const char* url) {
    struct Found {
        std::vector<BusAddress> addresses;
        CarriedException exception;
    } found;
    const std::int32_t result = vorn_bus_list(
        url,
        [](const vorn_bus_listed* listed, void* context) {
            auto& [addresses, exception] = *static_cast<Found*>(context);
            exception.call([&all = addresses, listed] {
                all.push_back(
                    {listed->address, listed->is_open != 0, listed->endpoint, listed->stored_bytes});
            });
        },
        &found);
    found.exception.rethrow();
    if (result != VORN_BUS_OK) {
        throw bus_error(fmt::format("listing the addresses of {}", vorn_bus_display_url(url)), result);
    }
    return found.addresses;
}

}  // namespace tool
