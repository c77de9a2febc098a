// SPDX-License-Identifier: Apache-2.0
// A process that receives, in C++: receiver_cpp ADDRESS COUNT prints COUNT messages of two types, the damaged
// ones with what is wrong, then ends. VORN_BUS_URL names the bus.
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <type_traits>

#include "nac/nac.hpp"

namespace {

int fail(int code, const char* what) {
    std::cerr << what << '\n';
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return fail(2, "usage: receiver_cpp ADDRESS COUNT");
    nac::Bus bus;
    const nac::Result opened = bus.open(static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10)));
    if (!opened) return fail(3, opened.text());
    long expected = std::strtol(argv[2], nullptr, 10);
    const auto print = [&expected]<class Record>(const Record& record, const nac::Origin& origin) {
        --expected;
        std::cout << nac::name<Record> << " from address " << origin.source << ": "
                  << (origin.is_valid ? nac::to_json(record) : std::string("damaged: ") + origin.fault)
                  << '\n';
    };
    bus.on<Nac_SetPortMsg>(print);
    bus.on<Nac_SetUserTableMsg>(print);
    while (expected > 0 && bus.poll(std::chrono::seconds(10)).batches != 0) continue;
    return expected <= 0 ? 0 : fail(1, "nothing came for ten seconds");
}
