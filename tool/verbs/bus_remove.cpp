// SPDX-License-Identifier: Apache-2.0
// nac bus remove.
#include <fmt/format.h>

#include <string>
#include <vector>

#include "tool/io/open_bus.h"
#include "tool/message/record_json.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct BusRemoveOptions {
    std::string bus;
    std::vector<std::uint32_t> addresses;
    bool json = false;
};

ExitCode run_bus_remove(const BusRemoveOptions& options) {
    require_shared_bus(options.bus);
    ExitCode code = kOk;
    for (const std::uint32_t address : options.addresses) {
        const std::int32_t result = vorn_bus_remove(url_or_null(options.bus), address);
        if (result == VORN_BUS_BAD_URL) throw bus_error("removing", result);
        if (options.json) {
            fmt::print("{}\n", json_text({{"address", address}, {"result", vorn_bus_result_name(result)}}));
        }
        if (result == VORN_BUS_OK) continue;
        report("nac: address {}: {}", address,
               result == VORN_BUS_ADDRESS_TAKEN ? "a bus is open there; end its process first"
               : result == VORN_BUS_NO_PEER     ? "nothing is left there"
                                                : vorn_bus_result_text(result));
        code = kTrouble;
    }
    return code;
}

}  // namespace

void add_bus_remove(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_bus_remove);
    verb.add_option("ADDRESS", options.addresses, "Whose")->required()->transform(bus_address());
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_flag("--json", options.json, kJsonHelp);
    verb.footer(
        "Removes what a bus has left that is no longer open: a socket's file, or a stream with all that "
        "waits "
        "there, which is lost.");
}

}  // namespace tool
