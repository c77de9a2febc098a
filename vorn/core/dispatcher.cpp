// SPDX-License-Identifier: Apache-2.0
#include "vorn/core/dispatcher.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "bus/registration.h"

namespace vorn {
namespace {

constexpr std::size_t kRecordStorageBytes = 65536;

}  // namespace

RecordStorage::RecordStorage() {
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    bytes_ = (kRecordStorageBytes + page - 1) / page * page;
    start_ = mmap(nullptr, bytes_ + page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (start_ == MAP_FAILED) throw std::system_error(errno, std::generic_category());
    mprotect(static_cast<std::byte*>(start_) + bytes_, page, PROT_NONE);
}

RecordStorage::~RecordStorage() { munmap(start_, bytes_ + static_cast<std::size_t>(sysconf(_SC_PAGESIZE))); }

void RecordStorage::clear(std::uint32_t bytes) const {
    std::memset(start_, 0, bytes < bytes_ ? bytes : bytes_);
}

void Dispatcher::handle_batch(const Batch& batch, std::uint32_t flags, std::uint32_t& handled_messages) {
    if (batch.header().destination != address_) {
        count(counters_.damaged);
        log_.warning("a batch for address ", batch.header().destination, " was left out");
        return;
    }
    std::uint32_t position = 0;
    batch.each_message([&](const Message& message) {
        if (position++ != handled_messages) return;  // handled by an earlier poll
        handle_message(batch.header(), message, flags);
        ++handled_messages;
    });
    handled_messages = 0;
    count_alone(counters_.received_batches);
}

KAPLO_CALLS_REGISTERED void Dispatcher::handle_message(const BatchHeader& header, const Message& message,
                                                       std::uint32_t flags) {
    if (routes_registry_ != Registry::instance().version() ||
        routes_handlers_ != handlers_version_.load(std::memory_order_acquire)) {
        renew_routes();
    }
    const auto found = routes_.find(message.id);
    if (found == routes_.end()) {
        count(counters_.unknown_messages);
        log_.warning("a message of the unknown id ", message.id, " was left out");
        return;
    }
    const Route route = found->second;  // a handler may change the routes
    if (route.handler.call == nullptr) {
        count(counters_.ignored_messages);
        return;
    }
    if (check_ != VORN_BUS_CHECK_NONE) flags |= validity_.check(message, log_);
    const bool is_damaged = (flags & VORN_BUS_DAMAGED) != 0;
    if (is_damaged) {
        count_alone(counters_.damaged_messages);
        if (check_ == VORN_BUS_CHECK_DROP) {
            log_.warning("a damaged message of id ", message.id, " was left out: ", validity_.fault());
            return;
        }
    }
    const auto length = static_cast<std::uint32_t>(message.bytes.size());
    void* const record = storage_.start();
    const std::uint32_t record_bytes = route.functions.unpack(message.bytes.data(), length, record);
    const vorn_bus_message arrived = {message.id,
                                      header.source,
                                      header.destination,
                                      flags,
                                      header.target,
                                      record,
                                      message.bytes.data(),
                                      record_bytes,
                                      length,
                                      is_damaged ? validity_.fault() : nullptr};
    try {
        route.handler.call(&arrived, route.handler.context);
    } catch (...) {
        handler_failed_ = true;
        log_.warning("a handler threw an exception on a message of id ", message.id);
    }
    // Also where unpack refused its arguments: what it frees is zero then.
    route.functions.free_unpacked(record);
    storage_.clear(record_bytes);
    count_alone(counters_.received_messages);
}

void Dispatcher::renew_routes() {
    const std::lock_guard locked(handlers_lock_);
    // Versions first: what is registered meanwhile renews the routes once more.
    const std::uint64_t registry = Registry::instance().version();
    const std::uint64_t handlers = handlers_version_.load(std::memory_order_acquire);
    std::unordered_map<std::uint32_t, Route> routes;
    for (const auto& [id, functions] : Registry::instance().copy()) {
        const auto own = handlers_.find(id);
        routes[id] = {functions, own != handlers_.end() ? own->second : handler_for_all_};
    }
    validity_.ask(Registry::instance().verifiers());
    routes_.swap(routes);
    routes_registry_ = registry;
    routes_handlers_ = handlers;
}

void Dispatcher::handle(std::uint32_t message_id, vorn_bus_handler handler, void* context) {
    const std::lock_guard locked(handlers_lock_);
    if (handler == nullptr) {
        handlers_.erase(message_id);
    } else {
        handlers_[message_id] = {handler, context};
    }
    handlers_version_.fetch_add(1, std::memory_order_release);
}

void Dispatcher::handle_all(vorn_bus_handler handler, void* context) {
    const std::lock_guard locked(handlers_lock_);
    handler_for_all_ = {handler, context};
    handlers_version_.fetch_add(1, std::memory_order_release);
}

}  // namespace vorn
