// SPDX-License-Identifier: Apache-2.0
// The exported functions: each is one call. No exception leaves them.
#include "vorn/vorn_bus.h"

#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>
#include <vector>

#include "vorn/core/bus.h"
#include "vorn/core/watch.h"

struct vorn_bus {
    std::unique_ptr<vorn::Bus> bus;
    std::shared_mutex used;  // by sends that were not told which bus
};

struct vorn_bus_watch {
    std::unique_ptr<vorn::BusWatch> watch;
};

namespace {

using vorn::Result;

// The open buses of this process; the first is that of VORN_SendMsg.
struct OpenBuses {
    std::mutex lock;
    std::vector<vorn_bus*> in_order;

    static OpenBuses& instance() {
        static auto* const open = new OpenBuses;  // never destroyed: modules may send while the process ends
        return *open;
    }
};

template <class Call>
Result guarded(Call&& call) noexcept try {
    return call();
} catch (const std::bad_alloc&) {
    return VORN_BUS_NO_MEMORY;
} catch (const std::exception&) {
    return VORN_BUS_SYSTEM_ERROR;
}

void remove(std::vector<vorn_bus*>& buses, const vorn_bus* bus) { std::erase(buses, bus); }

Result send_by_chosen(std::uint32_t destination, const VORN_SendDescriptor* descriptors, std::uint32_t count,
                      std::uint64_t target) {
    return guarded([&]() -> Result {
        OpenBuses& open = OpenBuses::instance();
        std::unique_lock listed(open.lock);
        if (open.in_order.empty()) return VORN_BUS_NOT_OPEN;
        vorn_bus* const bus = open.in_order.front();
        const std::shared_lock used(bus->used);  // so that it is not closed under this send
        listed.unlock();
        return bus->bus->send(destination, descriptors, count, target);
    });
}

}  // namespace

extern "C" {

int32_t VORN_RegIDLFuncHook(uint32_t message_id, VORN_IDLUnpackFunc unpack, VORN_IDLFreeFunc free_unpacked) {
    return guarded([&] { return vorn::Registry::instance().add(message_id, {unpack, free_unpacked}); });
}

int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc clean) {
    return guarded([&] { return vorn::Registry::instance().add_clean(clean); });
}

int32_t VORN_SendMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count) {
    return send_by_chosen(destination, descriptors, count, 0);
}

int32_t VORN_SendToMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count,
                       uint64_t target) {
    return send_by_chosen(destination, descriptors, count, target);
}

int32_t vorn_bus_open(const vorn_bus_options* options, vorn_bus** bus) {
    if (options == nullptr || bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        auto made = std::make_unique<vorn_bus>();
        const Result result = vorn::Bus::open(*options, made->bus);
        if (result != VORN_BUS_OK) return result;
        OpenBuses& open = OpenBuses::instance();
        const std::lock_guard locked(open.lock);
        open.in_order.push_back(made.get());
        *bus = made.release();
        return result;
    });
}

void vorn_bus_close(vorn_bus* bus) {
    if (bus == nullptr) return;
    {
        OpenBuses& open = OpenBuses::instance();
        const std::lock_guard locked(open.lock);
        remove(open.in_order, bus);
    }
    { const std::lock_guard unused(bus->used); }  // no send can come by any more, and none is on
    delete bus;
}

int32_t vorn_bus_use(vorn_bus* bus) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        OpenBuses& open = OpenBuses::instance();
        const std::lock_guard locked(open.lock);
        remove(open.in_order, bus);
        open.in_order.insert(open.in_order.begin(), bus);
        return VORN_BUS_OK;
    });
}

int32_t vorn_bus_handle(vorn_bus* bus, uint32_t message_id, vorn_bus_handler handler, void* context) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        bus->bus->handle(message_id, handler, context);
        return VORN_BUS_OK;
    });
}

int32_t vorn_bus_handle_all(vorn_bus* bus, vorn_bus_handler handler, void* context) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        bus->bus->handle_all(handler, context);
        return VORN_BUS_OK;
    });
}

int32_t vorn_bus_poll(vorn_bus* bus, int32_t timeout_ms, uint32_t max_batches, uint32_t* handled) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        uint32_t number = 0;
        const Result result = bus->bus->poll(timeout_ms, max_batches, number);
        if (handled != nullptr) *handled = number;
        return result;
    });
}

int vorn_bus_descriptor(vorn_bus* bus) { return bus == nullptr ? -1 : bus->bus->descriptor(); }

int32_t vorn_bus_start(vorn_bus* bus) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] { return bus->bus->start(); });
}

int32_t vorn_bus_stop(vorn_bus* bus) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] { return bus->bus->stop(); });
}

void vorn_bus_clean_resources(void) {
    static_cast<void>(guarded([] {
        vorn::Registry::instance().clean();
        return VORN_BUS_OK;
    }));
}

int32_t vorn_bus_send(vorn_bus* bus, uint32_t destination, const VORN_SendDescriptor* descriptors,
                      uint32_t count, uint64_t target) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] { return bus->bus->send(destination, descriptors, count, target); });
}

int32_t vorn_bus_flush(vorn_bus* bus, int32_t timeout_ms) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] { return bus->bus->flush(timeout_ms); });
}

void vorn_bus_read_counters(vorn_bus* bus, vorn_bus_counters* counters) {
    if (bus != nullptr && counters != nullptr) bus->bus->read_counters(*counters);
}

int32_t vorn_bus_ask_counters(const char* url, uint32_t address, int32_t timeout_ms,
                              vorn_bus_counters* counters) {
    if (counters == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&]() -> Result {
        const std::string chosen = vorn::chosen_url(url);
        const vorn::Scheme* const scheme = vorn::find_scheme(chosen);
        if (scheme == nullptr) return VORN_BUS_BAD_URL;
        if (scheme->ask == nullptr) return VORN_BUS_NO_TRANSPORT;
        vorn::Log log(nullptr, nullptr, "vorn: ");
        *counters = {};
        return scheme->ask(chosen.substr(std::string(scheme->prefix).size()), address,
                           vorn::within_milliseconds(timeout_ms), log, *counters);
    });
}

int32_t vorn_bus_watch_open(const vorn_bus_watch_options* options, vorn_bus_watch** watch) {
    if (options == nullptr || watch == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        auto made = std::make_unique<vorn_bus_watch>();
        const Result result = vorn::BusWatch::open(*options, made->watch);
        if (result == VORN_BUS_OK) *watch = made.release();
        return result;
    });
}

void vorn_bus_watch_close(vorn_bus_watch* watch) { delete watch; }

int32_t vorn_bus_watch_poll(vorn_bus_watch* watch, int32_t timeout_ms, uint32_t max_batches,
                            vorn_bus_watch_handler handler, void* context, uint32_t* handled) {
    if (watch == nullptr || handler == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        uint32_t number = 0;
        const Result result = watch->watch->poll(timeout_ms, max_batches, handler, context, number);
        if (handled != nullptr) *handled = number;
        return result;
    });
}

void vorn_bus_watch_read_counters(vorn_bus_watch* watch, vorn_bus_watch_counters* counters) {
    if (watch != nullptr && counters != nullptr) watch->watch->read_counters(*counters);
}

const char* vorn_bus_endpoint(const vorn_bus* bus) { return bus == nullptr ? "" : bus->bus->place().c_str(); }

const char* vorn_bus_usual_folder(void) {
    static const std::string folder = vorn::usual_folder();
    return folder.c_str();
}

const char* vorn_bus_chosen_url(const char* url) { return vorn::chosen_url(url); }

const char* vorn_bus_result_text(int32_t result) {
    switch (result) {
        case VORN_BUS_OK:
            return "accepted";
        case VORN_BUS_NOT_OPEN:
            return "no bus is open in this process";
        case VORN_BUS_BAD_ARGUMENT:
            return "a null pointer, or a number out of its range";
        case VORN_BUS_BAD_URL:
            return "the URL is none of this bus, or cannot hold the address";
        case VORN_BUS_ADDRESS_TAKEN:
            return "another bus is open at this address";
        case VORN_BUS_NO_PEER:
            return "nobody is there at the address";
        case VORN_BUS_FULL:
            return "the receiver did not make room in time";
        case VORN_BUS_TOO_LARGE:
            return "larger than a batch may be";
        case VORN_BUS_LOST:
            return "some of what was accepted is lost";
        case VORN_BUS_TIMEOUT:
            return "some of what was accepted is still on its way";
        case VORN_BUS_OUTCOME_UNKNOWN:
            return "the server did not say whether it has stored the batch";
        case VORN_BUS_BUSY:
            return "polled from a handler, or by a thread already";
        case VORN_BUS_NO_TRANSPORT:
            return "built without the transport of this URL";
        case VORN_BUS_NO_MEMORY:
            return "out of memory";
        case VORN_BUS_SYSTEM_ERROR:
            return "the system refused";
        default:
            return "not a result of this bus";
    }
}

}  // extern "C"
