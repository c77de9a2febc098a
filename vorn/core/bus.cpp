// SPDX-License-Identifier: Apache-2.0
#include "vorn/core/bus.h"

#include <algorithm>
#include <exception>
#include <new>
#include <string>
#include <system_error>
#include <utility>

namespace vorn {
namespace {

constexpr std::uint32_t kDefaultQueueBatches = 1024;
constexpr std::uint32_t kDefaultQueueBytes = 16U << 20;
constexpr std::uint32_t kDefaultBatchBytes = 1'000'000;
constexpr std::uint32_t kLargestBatchBytes = 64U << 20;
constexpr std::int32_t kDefaultSendTimeout = 2000;
constexpr std::int32_t kDefaultLinger = 1000;

template <class T>
void default_to(T& value, T instead) {
    if (value == 0) value = instead;
}

}  // namespace

thread_local std::int32_t send_timeout_of_thread = -1;

Result Bus::open(const vorn_bus_options& given, std::unique_ptr<Bus>& bus) {
    vorn_bus_options options = given;
    const std::string url = url_or_default(given.url);
    options.url = nullptr;  // the host's text may go
    default_to(options.queue_batches, kDefaultQueueBatches);
    default_to(options.queue_bytes, kDefaultQueueBytes);
    default_to(options.batch_bytes, kDefaultBatchBytes);
    default_to(options.send_timeout_ms, kDefaultSendTimeout);
    default_to(options.linger_ms, kDefaultLinger);
    if (options.batch_bytes < kBatchHeaderBytes + kEntryBytes || options.batch_bytes > kLargestBatchBytes ||
        options.check > VORN_BUS_CHECK_NONE || options.send_only > 1 || options.reserved != 0) {
        return VORN_BUS_BAD_ARGUMENT;
    }
    std::unique_ptr<Bus> made(new Bus(options, "vorn " + std::to_string(options.address) + ": "));
    const TransportKind* kind = nullptr;
    BusUrl read;
    Result result = read_url(url, made->log_, kind, read);
    if (result != VORN_BUS_OK) return result;
    const Endpoint endpoint = {options.address,
                               options.queue_batches,
                               options.queue_bytes,
                               options.batch_bytes,
                               options.send_only != 0,
                               options.open_timeout_ms,
                               options.spin_us,
                               made->inbox_,
                               made->counters_,
                               made->log_,
                               [](const void* self, vorn_bus_counters& counters) {
                                   static_cast<const Bus*>(self)->read_counters(counters);
                               },
                               made.get()};
    result = kind->make(read, endpoint, made->transport_);
    if (result == VORN_BUS_OK) result = made->transport_->open();
    if (result != VORN_BUS_OK) return result;
    made->endpoint_ = made->transport_->endpoint();
    if (Arrivals* const arrivals = made->transport_->arrivals(); arrivals != nullptr)
        made->arrivals_ = arrivals;
    bus = std::move(made);
    return result;
}

Bus::Bus(const vorn_bus_options& options, const std::string& prefix)
    : options_(options),
      log_(options.log, options.log_context, prefix),
      dispatcher_(options.address, options.check, counters_, log_) {}

Bus::~Bus() {
    if (transport_ == nullptr) return;
    stop();
    transport_->stop_receiving();
    arrivals_->close();
    transport_->drain(within_milliseconds(options_.linger_ms));  // allocates nothing, like all above
    if (const std::uint64_t left = transport_->batches_lost_by_closing(); left != 0) {
        log_.error(left, " batches were on their way when the bus was closed; they count as lost");
    }
    transport_.reset();
}

Result Bus::refuse(Result result) {
    count(counters_.refused_batches);
    return result;
}

Result Bus::send(std::uint32_t destination, const VORN_SendDescriptor* descriptors, std::uint32_t count_of,
                 std::uint64_t target) {
    if (descriptors == nullptr || count_of == 0) return refuse(VORN_BUS_BAD_ARGUMENT);
    for (std::uint32_t i = 0; i < count_of; ++i) {
        if (descriptors[i].buffer == nullptr && descriptors[i].length != 0)
            return refuse(VORN_BUS_BAD_ARGUMENT);
    }
    const auto bytes = batch_bytes(descriptors, count_of);
    if (!bytes || *bytes > options_.batch_bytes) return refuse(VORN_BUS_TOO_LARGE);
    const Outgoing batch = {{destination, options_.address, target, count_of, *bytes}, descriptors};
    SendTimeout timeout(send_timeout_of_thread < 0 ? options_.send_timeout_ms : send_timeout_of_thread);
    Result result = VORN_BUS_NO_MEMORY;
    try {
        result = transport_->send(batch, timeout);
    } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): it is refused
    }
    if (result != VORN_BUS_OK) return refuse(result);
    count(counters_.sent_batches);
    count(counters_.sent_messages, count_of);
    return result;
}

Result Bus::flush(std::int32_t timeout_ms) {
    const bool drained = transport_->drain(in_milliseconds(timeout_ms));
    const std::lock_guard locked(flush_lock_);
    const std::uint64_t lost = counters_.lost_batches.load(std::memory_order_relaxed);
    if (std::exchange(lost_at_flush_, lost) != lost) return VORN_BUS_LOST;
    return drained ? VORN_BUS_OK : VORN_BUS_TIMEOUT;
}

Result Bus::poll(std::int32_t timeout_ms, std::uint32_t max_batches, std::uint32_t& handled) {
    handled = 0;
    if (max_batches == 0) max_batches = UINT32_MAX;
    Deadline deadline = in_milliseconds(timeout_ms);
    if (!begin_polling(deadline)) return VORN_BUS_BUSY;
    const std::unique_ptr<Bus, void (*)(Bus*)> polling(this, [](Bus* self) { self->end_polling(); });
    handle_arrivals(deadline, max_batches, handled);
    return dispatcher_.handler_failed() ? VORN_BUS_HANDLER_FAILED : VORN_BUS_OK;
}

// Handles what is there when the first batch is found, and not what comes meanwhile: senders could keep it
// here for ever.
void Bus::handle_arrivals(Deadline deadline, std::uint32_t most, std::uint32_t& handled) {
    dispatcher_.begin_poll();
    bool is_first = true;
    do {
        Delivery* const delivery = arrivals_->front(deadline);
        if (delivery == nullptr) break;
        if (std::exchange(is_first, false)) {
            most = static_cast<std::uint32_t>(
                std::min<std::uint64_t>(most, std::max<std::uint64_t>(arrivals_->batches_for_poll(), 1)));
        }
        handle_delivery(*delivery, most, handled);
        if (delivery->bytes.empty()) arrivals_->pop_front();
        deadline = Deadline();  // only the first is waited for
    } while (handled < most && !dispatcher_.handler_failed());
    arrivals_->rest();
}

// With what is in the inbox; what has not come so far stays with its senders or servers.
Result Bus::drain(std::int32_t timeout_ms) {
    const Deadline deadline = in_milliseconds(timeout_ms);
    if (!begin_polling(deadline)) return VORN_BUS_BUSY;
    const std::unique_ptr<Bus, void (*)(Bus*)> polling(this, [](Bus* self) { self->end_polling(); });
    transport_->stop_receiving();
    for (bool more = true; more && Clock::now() < deadline;) {
        std::uint32_t handled = 0;
        handle_arrivals(Deadline(), UINT32_MAX, handled);
        if (dispatcher_.handler_failed()) return VORN_BUS_HANDLER_FAILED;
        more = handled != 0;
    }
    return arrivals_->batches() == 0 ? VORN_BUS_OK : VORN_BUS_TIMEOUT;
}

bool Bus::begin_polling(Deadline deadline) {
    const auto self = std::this_thread::get_id();
    std::unique_lock locked(polling_lock_);
    if (polling_ == self || (receiving_ != std::thread::id() && receiving_ != self)) return false;
    if (!polling_ended_.wait_until(locked, deadline, [this] { return polling_ == std::thread::id(); })) {
        return false;
    }
    polling_ = self;
    return true;
}

void Bus::end_polling() {
    {
        const std::lock_guard locked(polling_lock_);
        polling_ = std::thread::id();
    }
    polling_ended_.notify_one();
}

// Handles batches of the delivery until `handled` is max_batches or a handler has failed, and takes them off
// it. Throws bad_alloc before a message is handled, never after: the next poll continues with it.
void Bus::handle_delivery(Delivery& delivery, std::uint32_t max_batches, std::uint32_t& handled) {
    while (handled < max_batches && !dispatcher_.handler_failed() && !delivery.bytes.empty() &&
           delivery.may_begin()) {
        const auto batch = read_batch(delivery.bytes);
        if (!batch || delivery.batches == 0) {
            count(counters_.damaged);
            log_.warning("a damaged envelope was left out, with what followed it in its packet");
            delivery.bytes = {};
            break;
        }
        delivery.batch_begins();
        dispatcher_.handle_batch(*batch, delivery.repeated ? VORN_BUS_REPEATED : 0,
                                 delivery.handled_messages);
        delivery.repeated = false;
        delivery.batch_handled();
        delivery.bytes = delivery.bytes.subspan(batch->header().bytes);
        --delivery.batches;
        arrivals_->batches_left(1);
        ++handled;
    }
    if (delivery.bytes.empty()) {
        arrivals_->batches_left(std::exchange(delivery.batches, 0));
        delivery.finished();
    } else {
        delivery.left_for_later();
    }
}

Result Bus::start() {
    const std::lock_guard locked(receiver_lock_);
    if (receiver_.joinable()) return VORN_BUS_BUSY;
    receiver_stops_ = false;
    arrivals_->interrupt(false);
    receiver_ = start_thread([this] {
        {
            const std::lock_guard polling(polling_lock_);
            receiving_ = std::this_thread::get_id();
        }
        while (!receiver_stops_) {
            try {
                std::uint32_t handled = 0;
                poll(-1, 0, handled);
            } catch (const std::exception& fault) {
                log_.warning("the receiving thread tries again: ", fault.what());
                std::this_thread::sleep_for(kAfterFault);
            }
        }
    });
    return VORN_BUS_OK;
}

Result Bus::stop() {
    const std::lock_guard locked(receiver_lock_);
    if (!receiver_.joinable()) return VORN_BUS_OK;
    if (receiver_.get_id() == std::this_thread::get_id()) return VORN_BUS_BUSY;
    receiver_stops_ = true;
    arrivals_->interrupt(true);
    receiver_.join();
    {
        const std::lock_guard polling(polling_lock_);
        receiving_ = std::thread::id();
    }
    arrivals_->interrupt(false);
    return VORN_BUS_OK;
}

void Bus::read_counters(vorn_bus_counters& counters) const {
    const auto now = [](const std::atomic<std::uint64_t>& counter) {
        return counter.load(std::memory_order_relaxed);
    };
    counters.sent_batches = now(counters_.sent_batches);
    counters.sent_messages = now(counters_.sent_messages);
    counters.refused_batches = now(counters_.refused_batches);
    counters.lost_batches = now(counters_.lost_batches);
    counters.unhandled_batches = transport_ == nullptr ? 0 : transport_->batches_on_their_way();
    counters.received_batches = now(counters_.received_batches);
    counters.received_messages = now(counters_.received_messages);
    counters.waiting_batches = arrivals_->batches();
    counters.unknown_messages = now(counters_.unknown_messages);
    counters.ignored_messages = now(counters_.ignored_messages);
    counters.damaged = now(counters_.damaged);
    counters.redelivered_batches = now(counters_.redelivered_batches);
    counters.missed_batches = now(counters_.missed_batches);
    counters.damaged_messages = now(counters_.damaged_messages);
}

}  // namespace vorn
