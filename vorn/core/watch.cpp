// SPDX-License-Identifier: Apache-2.0
#include "vorn/core/watch.h"

#include <cstring>
#include <utility>

#include "vorn/core/transport.h"

namespace vorn {
namespace {

constexpr std::uint32_t kDefaultQueueBytes = 16U << 20;

}  // namespace

std::uint64_t nanoseconds_now() {
    return static_cast<std::uint64_t>(
        std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count());
}

bool CopyQueue::has_capacity_for(std::size_t bytes) {
    const std::lock_guard locked(lock_);
    return bytes_ == 0 || bytes_ + cost(bytes) <= most_bytes_;
}

void CopyQueue::put(std::unique_ptr<Copies> copies) {
    const std::uint64_t bytes = cost(copies->bytes.size());
    bool was_empty = false;
    {
        const std::lock_guard locked(lock_);
        if (bytes_ != 0 && bytes_ + bytes > most_bytes_) {
            count(counters_.lost_batches, copies->batches);
            return;
        }
        was_empty = copies_.empty();
        copies_.push_back(std::move(copies));
        bytes_ += bytes;
    }
    if (was_empty) changed_.notify_one();
}

std::unique_ptr<Copies> CopyQueue::take(Deadline deadline) {
    std::unique_lock locked(lock_);
    const auto ready = [this] { return !copies_.empty(); };
    if (!ready() && !changed_.wait_until(locked, deadline, ready)) return nullptr;
    std::unique_ptr<Copies> first = std::move(copies_.front());
    copies_.pop_front();
    bytes_ -= cost(first->bytes.size());
    return first;
}

Result BusWatch::open(const vorn_bus_watch_options& options, std::unique_ptr<BusWatch>& watch) {
    if (options.address_count != 0 && options.addresses == nullptr) return VORN_BUS_BAD_ARGUMENT;
    std::unique_ptr<BusWatch> made(new BusWatch(options));
    const TransportKind* kind = nullptr;
    BusUrl url;
    Result result = read_url(url_or_default(options.url), made->log_, kind, url);
    if (result != VORN_BUS_OK) return result;
    WatchEndpoint endpoint = {{},
                              options.queue_bytes == 0 ? kDefaultQueueBytes : options.queue_bytes,
                              made->queue_,
                              made->counters_,
                              made->log_};
    if (options.address_count != 0) {
        endpoint.addresses.assign(options.addresses, options.addresses + options.address_count);
    }
    result = kind->watch(url, endpoint, made->watcher_);
    if (result == VORN_BUS_OK) result = made->watcher_->open();
    if (result == VORN_BUS_OK) watch = std::move(made);
    return result;
}

BusWatch::BusWatch(const vorn_bus_watch_options& options)
    : log_(options.log, options.log_context, "vorn watch: "),
      queue_(options.queue_bytes == 0 ? kDefaultQueueBytes : options.queue_bytes, counters_) {}

Result BusWatch::poll(std::int32_t timeout_ms, std::uint32_t max_batches, vorn_bus_watch_handler handler,
                      void* context, std::uint32_t& handled) {
    handled = 0;
    bool failed = false;
    Deadline deadline = in_milliseconds(timeout_ms);
    while ((max_batches == 0 || handled < max_batches) && !failed) {
        if (begun_ == nullptr) begun_ = queue_.take(deadline);
        if (begun_ == nullptr) break;
        deadline = Deadline();  // only the first is waited for
        Copies& copies = *begun_;
        const auto batch = copies.batches == 0 ? std::nullopt : read_batch(copies.bytes);
        if (!batch) {
            count(counters_.damaged);
            begun_.reset();
            continue;
        }
        const BatchHeader& header = batch->header();
        std::uint32_t position = 0;
        batch->each_message([&](const Message& message) {
            const vorn_bus_watched seen = {
                copies.time,         header.target,
                message.id,          header.source,
                header.destination,  position++,
                header.count,        static_cast<std::uint32_t>(message.bytes.size()),
                message.bytes.data()};
            try {
                handler(&seen, context);
            } catch (...) {
                failed = true;
            }
        });
        count(counters_.batches);
        count(counters_.messages, header.count);
        ++handled;
        --copies.batches;
        copies.bytes = copies.bytes.subspan(header.bytes);
        if (copies.bytes.empty()) begun_.reset();
    }
    return failed ? VORN_BUS_HANDLER_FAILED : VORN_BUS_OK;
}

void BusWatch::read_counters(vorn_bus_watch_counters& counters) const {
    const auto now = [](const std::atomic<std::uint64_t>& counter) {
        return counter.load(std::memory_order_relaxed);
    };
    counters.batches = now(counters_.batches);
    counters.messages = now(counters_.messages);
    counters.lost_batches = now(counters_.lost_batches);
    counters.damaged = now(counters_.damaged);
    counters.receivers = watcher_->receivers();
    counters.interruptions = now(counters_.interruptions);
}

}  // namespace vorn
