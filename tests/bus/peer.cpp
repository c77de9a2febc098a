// SPDX-License-Identifier: Apache-2.0
// A process to be killed: sends numbered messages, or writes down those that it handles.
//
// peer send URL ADDRESS DESTINATION GENERATION COUNT BATCH ACCEPTED sends records {generation, number},
// numbers from 0, again and again where the bus refuses, keeps how many were accepted in the eight bytes of
// the file ACCEPTED, and prints what became of them; peer sync ... the same, with a flush after each send;
// peer exit ... ends without a flush or a close. peer receive URL ADDRESS FILE SLOW_US appends eight bytes a
// record to the file, the generation inverted where the message is flagged as repeated, and takes that long
// for each, until SIGTERM.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
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

std::uint32_t number_in(const char* text) {
    return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 10));
}

int send(char** arguments) {
    const std::string role = arguments[1];
    vorn_bus* const bus = open_bus(arguments[2], arguments[3]);
    const std::uint32_t destination = number_in(arguments[4]);
    const std::uint32_t generation = number_in(arguments[5]);
    const std::uint32_t number = number_in(arguments[6]);
    const std::uint32_t batch = number_in(arguments[7]);
    const int file = ::open(arguments[8], O_RDWR | O_CLOEXEC);
    void* const shared = mmap(nullptr, sizeof(std::uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    if (shared == MAP_FAILED) return 3;
    auto& accepted = *static_cast<volatile std::uint64_t*>(shared);  // a kill leaves what it holds
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
            if (role == "sync" && vorn_bus_flush(bus, 120000) != VORN_BUS_OK) return 3;
            accepted = next;
        } else if (result == VORN_BUS_NO_PEER || result == VORN_BUS_FULL) {
            ++refused;
        } else {
            std::fprintf(stderr, "send: %s\n", vorn_bus_result_text(static_cast<std::int32_t>(result)));
            return 3;
        }
    }
    const bool exits = role == "exit";
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

struct Receiver {
    int file;
    std::chrono::microseconds takes;
};

int receive(char** arguments) {
    struct sigaction action = {};
    action.sa_handler = [](int) { ends = 1; };
    sigaction(SIGTERM, &action, nullptr);
    Receiver receiver = {::open(arguments[4], O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600),
                         std::chrono::microseconds(number_in(arguments[5]))};
    if (receiver.file < 0 || nac_fwm_port_recv_init() != 0) return 3;
    vorn_bus* const bus = open_bus(arguments[2], arguments[3]);
    vorn_bus_handle_all(
        bus,
        [](const vorn_bus_message* message, void* context) {
            const auto& to = *static_cast<const Receiver*>(context);
            const auto& port = *static_cast<const Nac_SetPortMsg*>(message->record);
            const bool repeated = (message->flags & VORN_BUS_REPEATED) != 0;
            const std::array<std::uint32_t, 2> record = {repeated ? ~port.f0 : port.f0, port.f1};
            if (write(to.file, record.data(), sizeof record) != 8) _exit(3);
            if (to.takes.count() != 0) std::this_thread::sleep_for(to.takes);
        },
        &receiver);
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
    const std::string role = argc > 1 ? argv[1] : "";
    if (argc == 9 && (role == "send" || role == "sync" || role == "exit")) return send(argv);
    if (argc == 6 && role == "receive") return receive(argv);
    return 2;
}
