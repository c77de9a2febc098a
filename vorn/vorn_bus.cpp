// SPDX-License-Identifier: Apache-2.0
// The exported functions: each is one call. No exception leaves them.
#include "vorn/vorn_bus.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <shared_mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "vorn/core/bus.h"
#include "vorn/core/sized.h"
#include "vorn/core/watch.h"

struct vorn_bus {
    std::unique_ptr<vorn::Bus> bus;
    std::shared_mutex used;  // by sends that use the bus of the process
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

// A child of fork has none of its parent's threads, and locks that nobody will release.
std::atomic<std::uint32_t> open_handles = 0;
std::atomic<bool> is_forked_child = false;

void note_forks() {
    static const int registered = pthread_atfork(nullptr, nullptr, [] {
        if (open_handles != 0) is_forked_child = true;
    });
    if (registered != 0) throw std::bad_alloc();
}

// Here alone exceptions become results: each exported function is one call of it.
template <class Call, class Value = std::invoke_result_t<Call>>
Value guarded_or(std::type_identity_t<Value> in_child, std::type_identity_t<Value> on_fault,
                 Call&& call) noexcept {
    if (is_forked_child.load(std::memory_order_relaxed)) return in_child;
    try {
        return call();
    } catch (...) {
        return on_fault;
    }
}

template <class Call>
Result guarded(Call&& call) noexcept {
    return guarded_or(VORN_BUS_NOT_OPEN, VORN_BUS_SYSTEM_ERROR, [&]() -> Result {
        try {
            return call();
        } catch (const std::bad_alloc&) {
            return VORN_BUS_NO_MEMORY;
        }
    });
}

const vorn::Log& log_of_process() {
    static const vorn::Log log(nullptr, nullptr, "vorn: ");
    return log;
}

void remove(std::vector<vorn_bus*>& buses, const vorn_bus* bus) { std::erase(buses, bus); }

Result send_by_chosen(std::uint32_t destination, const VORN_SendDescriptor* descriptors, std::uint32_t count,
                      std::uint64_t target) noexcept {
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

struct ResultWords {
    std::int32_t result;
    const char* name;
    const char* text;
};

const ResultWords& words_of(std::int32_t result) {
    static constexpr ResultWords kWords[] = {
        {-1, "VORN_REFUSED",
         "refused by the library before the bus was called: a null pointer, no records, too many bytes or no "
         "memory"},
        {VORN_BUS_OK, "VORN_BUS_OK", "accepted"},
        {VORN_BUS_NOT_OPEN, "VORN_BUS_NOT_OPEN", "no bus is open in this process"},
        {VORN_BUS_BAD_ARGUMENT, "VORN_BUS_BAD_ARGUMENT", "a null pointer, or a number out of its range"},
        {VORN_BUS_BAD_URL, "VORN_BUS_BAD_URL", "not a URL of this bus"},
        {VORN_BUS_ADDRESS_TAKEN, "VORN_BUS_ADDRESS_TAKEN", "another bus is open at this address"},
        {VORN_BUS_NO_PEER, "VORN_BUS_NO_PEER", "no bus is open at the address"},
        {VORN_BUS_FULL, "VORN_BUS_FULL", "the queue to the receiver is full"},
        {VORN_BUS_TOO_LARGE, "VORN_BUS_TOO_LARGE", "the batch is larger than this bus or its receiver takes"},
        {VORN_BUS_LOST, "VORN_BUS_LOST", "batches that were accepted are lost"},
        {VORN_BUS_TIMEOUT, "VORN_BUS_TIMEOUT", "batches that were accepted are still on their way"},
        {VORN_BUS_BUSY, "VORN_BUS_BUSY", "another thread, or the handler's caller, polls this bus"},
        {VORN_BUS_NO_TRANSPORT, "VORN_BUS_NO_TRANSPORT", "built without the transport of this URL"},
        {VORN_BUS_NO_MEMORY, "VORN_BUS_NO_MEMORY", "out of memory"},
        {VORN_BUS_SYSTEM_ERROR, "VORN_BUS_SYSTEM_ERROR", "the system or a server refused"},
        {VORN_BUS_HANDLER_FAILED, "VORN_BUS_HANDLER_FAILED", "a handler ended by an exception"},
        {0, "", "not a result of this bus"},
    };
    return *std::find_if(std::begin(kWords), std::end(kWords) - 1,
                         [result](const auto& words) { return words.result == result; });
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
    return guarded([&]() -> Result {
        vorn_bus_options taken;
        if (!vorn::take_sized(*options, log_of_process(), taken)) return VORN_BUS_BAD_ARGUMENT;
        note_forks();
        auto made = std::make_unique<vorn_bus>();
        const Result result = vorn::Bus::open(taken, made->bus);
        if (result != VORN_BUS_OK) return result;
        OpenBuses& open = OpenBuses::instance();
        const std::lock_guard locked(open.lock);
        open.in_order.push_back(made.get());
        ++open_handles;
        *bus = made.release();
        return result;
    });
}

void vorn_bus_close(vorn_bus* bus) {
    if (bus == nullptr) return;
    static_cast<void>(guarded([&] {
        {
            OpenBuses& open = OpenBuses::instance();
            const std::lock_guard locked(open.lock);
            remove(open.in_order, bus);
        }
        { const std::lock_guard unused(bus->used); }  // no send can come by any more, and none is on
        delete bus;
        --open_handles;
        return VORN_BUS_OK;
    }));
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
        bus->bus->dispatcher().handle(message_id, handler, context);
        return VORN_BUS_OK;
    });
}

int32_t vorn_bus_handle_all(vorn_bus* bus, vorn_bus_handler handler, void* context) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        bus->bus->dispatcher().handle_all(handler, context);
        return VORN_BUS_OK;
    });
}

int32_t vorn_bus_poll(vorn_bus* bus, int32_t timeout_ms, uint32_t max_batches, uint32_t* handled) {
    uint32_t number = 0;
    const Result result = guarded([&]() -> Result {
        if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
        return bus->bus->poll(timeout_ms, max_batches, number);
    });
    if (handled != nullptr) *handled = number;
    return result;
}

int32_t vorn_bus_wake(vorn_bus* bus) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        bus->bus->wake();
        return VORN_BUS_OK;
    });
}

int32_t vorn_bus_drain(vorn_bus* bus, int32_t timeout_ms) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] { return bus->bus->drain(timeout_ms); });
}

int vorn_bus_descriptor(vorn_bus* bus) {
    return guarded_or(-1, -1, [&] { return bus == nullptr ? -1 : bus->bus->descriptor(); });
}

int32_t vorn_bus_start(vorn_bus* bus) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] { return bus->bus->start(); });
}

int32_t vorn_bus_stop(vorn_bus* bus) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] { return bus->bus->stop(); });
}

int32_t vorn_bus_verify_with(vorn_bus_verify verify) {
    return guarded([&] { return vorn::Registry::instance().add_verifier(verify); });
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

int32_t vorn_bus_send_timeout(int32_t timeout_ms) {
    return std::exchange(vorn::send_timeout_of_thread, std::max(timeout_ms, -1));
}

int32_t vorn_bus_flush(vorn_bus* bus, int32_t timeout_ms) {
    if (bus == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] { return bus->bus->flush(timeout_ms); });
}

int32_t vorn_bus_read_counters(vorn_bus* bus, vorn_bus_counters* counters) {
    if (bus == nullptr || counters == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        vorn_bus_counters now = vorn_bus_counters_init();
        bus->bus->read_counters(now);
        return vorn::fill_sized(now, log_of_process(), *counters) ? VORN_BUS_OK : VORN_BUS_BAD_ARGUMENT;
    });
}

int32_t vorn_bus_ask_counters(const char* url, uint32_t address, int32_t timeout_ms,
                              vorn_bus_counters* counters) {
    if (counters == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&]() -> Result {
        if (!vorn::has_valid_size(*counters, log_of_process())) return VORN_BUS_BAD_ARGUMENT;
        vorn::Log log(nullptr, nullptr, "vorn: ");
        const vorn::TransportKind* kind = nullptr;
        vorn::BusUrl read;
        if (const Result result = vorn::read_url(vorn::url_or_default(url), log, kind, read);
            result != VORN_BUS_OK) {
            return result;
        }
        vorn_bus_counters answer = vorn_bus_counters_init();
        const Result result = kind->ask(read, address, vorn::within_milliseconds(timeout_ms), log, answer);
        if (result == VORN_BUS_OK) vorn::fill_sized(answer, log, *counters);
        return result;
    });
}

const char* vorn_bus_display_url(const char* url) {
    return guarded_or("", "", [&] {
        static thread_local std::string shown;
        shown = vorn::display_url(vorn::url_or_default(url));
        return shown.c_str();
    });
}

const char* vorn_bus_url_fault(const char* url) {
    return guarded_or(nullptr, nullptr, [&]() -> const char* {
        static thread_local std::string fault;
        fault = vorn::url_fault(vorn::url_or_default(url));
        return fault.empty() ? nullptr : fault.c_str();
    });
}

const char* vorn_bus_endpoint(const vorn_bus* bus) {
    return guarded_or("", "", [&] { return bus == nullptr ? "" : bus->bus->endpoint().c_str(); });
}

const char* vorn_bus_default_folder(void) {
    return guarded_or("", "", [] {
        static const std::string folder = vorn::default_folder();
        return folder.c_str();
    });
}

int32_t vorn_bus_list(const char* url, vorn_bus_list_handler handler, void* context) {
    if (handler == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&]() -> Result {
        vorn::Log log(nullptr, nullptr, "vorn: ");
        const vorn::TransportKind* kind = nullptr;
        vorn::BusUrl read;
        if (const Result result = vorn::read_url(vorn::url_or_default(url), log, kind, read);
            result != VORN_BUS_OK) {
            return result;
        }
        std::vector<vorn::Listed> found;
        if (const Result result = kind->list(read, log, found); result != VORN_BUS_OK) return result;
        std::sort(found.begin(), found.end(),
                  [](const auto& left, const auto& right) { return left.address < right.address; });
        for (const vorn::Listed& one : found) {
            const vorn_bus_listed listed = {one.address, one.is_open ? 1U : 0U, one.endpoint.c_str(),
                                            one.stored_bytes};
            try {
                handler(&listed, context);
            } catch (...) {
                return VORN_BUS_HANDLER_FAILED;
            }
        }
        return VORN_BUS_OK;
    });
}

int32_t vorn_bus_remove(const char* url, uint32_t address) {
    return guarded([&]() -> Result {
        vorn::Log log(nullptr, nullptr, "vorn: ");
        const vorn::TransportKind* kind = nullptr;
        vorn::BusUrl read;
        const Result result = vorn::read_url(vorn::url_or_default(url), log, kind, read);
        return result == VORN_BUS_OK ? kind->remove(read, address, log) : result;
    });
}

int32_t vorn_bus_watch_open(const vorn_bus_watch_options* options, vorn_bus_watch** watch) {
    if (options == nullptr || watch == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&]() -> Result {
        vorn_bus_watch_options taken;
        if (!vorn::take_sized(*options, log_of_process(), taken)) return VORN_BUS_BAD_ARGUMENT;
        note_forks();
        auto made = std::make_unique<vorn_bus_watch>();
        const Result result = vorn::BusWatch::open(taken, made->watch);
        if (result != VORN_BUS_OK) return result;
        ++open_handles;
        *watch = made.release();
        return result;
    });
}

void vorn_bus_watch_close(vorn_bus_watch* watch) {
    if (watch == nullptr) return;
    static_cast<void>(guarded([&] {
        delete watch;
        --open_handles;
        return VORN_BUS_OK;
    }));
}

int32_t vorn_bus_watch_poll(vorn_bus_watch* watch, int32_t timeout_ms, uint32_t max_batches,
                            vorn_bus_watch_handler handler, void* context, uint32_t* handled) {
    uint32_t number = 0;
    const Result result = guarded([&]() -> Result {
        if (watch == nullptr || handler == nullptr) return VORN_BUS_BAD_ARGUMENT;
        return watch->watch->poll(timeout_ms, max_batches, handler, context, number);
    });
    if (handled != nullptr) *handled = number;
    return result;
}

int32_t vorn_bus_watch_read_counters(vorn_bus_watch* watch, vorn_bus_watch_counters* counters) {
    if (watch == nullptr || counters == nullptr) return VORN_BUS_BAD_ARGUMENT;
    return guarded([&] {
        vorn_bus_watch_counters now = vorn_bus_watch_counters_init();
        watch->watch->read_counters(now);
        return vorn::fill_sized(now, log_of_process(), *counters) ? VORN_BUS_OK : VORN_BUS_BAD_ARGUMENT;
    });
}

const char* vorn_bus_result_text(int32_t result) { return words_of(result).text; }
const char* vorn_bus_result_name(int32_t result) { return words_of(result).name; }

}  // extern "C"
