// SPDX-License-Identifier: Apache-2.0
// A process to be killed: sends numbered messages, or writes down those that it handles.
//
// peer send URL ADDRESS DESTINATION GENERATION COUNT [BATCH] sends records {generation, number}, numbers from
// 0, again and again where the bus refuses, and prints what became of them; peer exit ... the same, and ends
// without a flush or a close. peer receive URL ADDRESS FILE [marks] appends eight bytes a record to the file,
// until SIGTERM.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "nac/nac_messages.h"
#include "vorn/vorn_bus.h"

namespace {

volatile sig_atomic_t ends = 0;

vorn_bus* open_bus(const char* url, const char* address) {
    vorn_bus_options options = vorn_bus_options_init();
    options.url = url;
    options.address = static_cast<std::uint32_t>(std::strtoul(address, nullptr, 10));
    options.queue_batches = 256;
    options.linger_ms = 5000;
    vorn_bus* bus = nullptr;
    // After a kill, the system or a server may need a moment to see that the address is free.
    for (int tries = 0; tries < 300 && ends == 0; ++tries) {
        const std::int32_t result = vorn_bus_open(&options, &bus);
        if (result == VORN_BUS_OK) return bus;
        std::fprintf(stderr, "open: %s\n", vorn_bus_result_text(result));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    std::exit(3);
}

int send(char** arguments) {
    vorn_bus* const bus = open_bus(arguments[2], arguments[3]);
    const auto destination = static_cast<std::uint32_t>(std::strtoul(arguments[4], nullptr, 10));
    const auto generation = static_cast<std::uint32_t>(std::strtoul(arguments[5], nullptr, 10));
    const auto number = static_cast<std::uint32_t>(std::strtoul(arguments[6], nullptr, 10));
    const auto batch =
        arguments[7] == nullptr ? 1U : static_cast<std::uint32_t>(std::strtoul(arguments[7], nullptr, 10));
    std::uint32_t next = 0;
    std::uint64_t refused = 0;
    std::vector<Nac_SetPortMsg> records;
    while (next < number && ends == 0) {
        const std::uint32_t count = std::min(batch, number - next);
        records.clear();
        for (std::uint32_t i = 0; i < count; ++i) records.push_back({generation, next + i});
        const std::uint32_t result = Nac_SetPortMsg__sendmsg(destination, records.data(), count);
        if (result == VORN_BUS_OK) {
            next += count;
        } else if (result == VORN_BUS_NO_PEER || result == VORN_BUS_FULL) {
            ++refused;
        } else {
            std::fprintf(stderr, "send: %s\n", vorn_bus_result_text(static_cast<std::int32_t>(result)));
            return 3;
        }
    }
    const bool exits = std::strcmp(arguments[1], "exit") == 0;
    const std::int32_t flushed = exits ? VORN_BUS_OK : vorn_bus_flush(bus, 120000);
    vorn_bus_counters counters = vorn_bus_counters_init();
    vorn_bus_read_counters(bus, &counters);
    std::printf(
        "{\"generation\": %u, \"accepted\": %u, \"refused\": %llu, \"lost_batches\": "
        "%llu, "
        "\"left\": %llu, \"flush\": %d}\n",
        generation, next, static_cast<unsigned long long>(refused),
        static_cast<unsigned long long>(counters.lost_batches),
        static_cast<unsigned long long>(counters.unhandled_batches), flushed);
    if (exits) std::exit(0);  // NOLINT(concurrency-mt-unsafe): that is what is tried
    vorn_bus_close(bus);
    return 0;
}

// What is written by then; a message that may have been handled before is looked for in it.
struct Journal {
    int file = -1;
    bool marks = false;
    bool holds(const std::array<std::uint32_t, 2>& record) const {
        std::array<std::uint32_t, 2> last = {};
        const off_t end = lseek(file, 0, SEEK_END);
        for (off_t at = end - 8; at >= 0 && at >= end - 8 * 1000; at -= 8) {
            if (pread(file, last.data(), sizeof last, at) == 8 && last == record) return true;
        }
        return false;
    }
};

int receive(char** arguments) {
    struct sigaction action = {};
    action.sa_handler = [](int) { ends = 1; };
    sigaction(SIGTERM, &action, nullptr);
    Journal journal;
    journal.marks = arguments[5] != nullptr;
    journal.file = ::open(arguments[4], O_CREAT | O_RDWR | O_APPEND | O_CLOEXEC, 0600);
    if (journal.file < 0 || nac_fwm_port_recv_init() != 0) return 3;
    vorn_bus* const bus = open_bus(arguments[2], arguments[3]);
    vorn_bus_handle_all(
        bus,
        [](const vorn_bus_message* message, void* context) {
            const auto& to = *static_cast<const Journal*>(context);
            const auto& port = *static_cast<const Nac_SetPortMsg*>(message->record);
            const bool repeated = (message->flags & VORN_BUS_REPEATED) != 0;
            const std::array<std::uint32_t, 2> record = {repeated && to.marks ? ~port.f0 : port.f0, port.f1};
            if (repeated && !to.marks && to.holds(record)) return;
            if (write(to.file, record.data(), sizeof record) != 8) _exit(3);
        },
        &journal);
    std::puts("open");
    std::fflush(stdout);
    while (ends == 0) vorn_bus_poll(bus, 50, 0, nullptr);
    if (vorn_bus_drain(bus, 10000) != VORN_BUS_OK) std::fputs("drain failed\n", stderr);
    vorn_bus_counters counters = vorn_bus_counters_init();
    vorn_bus_read_counters(bus, &counters);
    std::printf(
        "{\"received_batches\": %llu, \"redelivered_batches\": %llu, \"missed_batches\": %llu, \"damaged\": "
        "%llu}\n",
        static_cast<unsigned long long>(counters.received_batches),
        static_cast<unsigned long long>(counters.redelivered_batches),
        static_cast<unsigned long long>(counters.missed_batches),
        static_cast<unsigned long long>(counters.damaged));
    vorn_bus_close(bus);
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc >= 7 && (std::strcmp(argv[1], "send") == 0 || std::strcmp(argv[1], "exit") == 0))
        return send(argv);
    if ((argc == 5 || argc == 6) && std::strcmp(argv[1], "receive") == 0) return receive(argv);
    return 2;
}
