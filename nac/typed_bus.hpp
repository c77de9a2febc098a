// SPDX-License-Identifier: Apache-2.0
// The VORN bus with typed handlers, for C++20: see nac.hpp.
#ifndef NAC_TYPED_BUS_HPP
#define NAC_TYPED_BUS_HPP

#include <algorithm>
#include <chrono>
#include <concepts>
#include <cstdint>
#include <exception>
#include <forward_list>
#include <functional>
#include <mutex>
#include <ranges>
#include <span>
#include <utility>
#include <vector>

#include "nac/owned_records.hpp"
#include "vorn/vorn_bus.h"

namespace nac {

// What a function of the bus has returned; true if it is VORN_BUS_OK.
struct Result {
    std::int32_t code = VORN_BUS_OK;

    explicit operator bool() const { return code == VORN_BUS_OK; }
    const char* text() const { return vorn_bus_result_text(code); }
};

struct Polled : Result {
    std::uint32_t batches = 0;  // handled, whatever the result
};

// Where a message comes from, and whether it is valid. Valid until the handler returns.
struct Origin {
    std::uint32_t source;
    std::uint32_t destination;
    std::uint64_t target;
    Bytes packed;
    bool is_valid;      // verified; else its record is what unpack made of damaged bytes, or nobody knows
    bool is_repeated;   // VORN_BUS_REPEATED
    const char* fault;  // what is wrong with it; null: it is valid, or was not verified
};

// A bus that closes itself. What has no function here is done with the functions of vorn_bus.h and get().
class Bus {
  public:
    Bus() = default;
    ~Bus() { close(); }
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;

    // Opens at an address, at the URL of VORN_BUS_URL or at another.
    [[nodiscard]] Result open(std::uint32_t address, const char* url = nullptr) {
        vorn_bus_options options = vorn_bus_options_init();
        options.address = address;
        options.url = url;
        return open(options);
    }
    [[nodiscard]] Result open(const vorn_bus_options& options) {
        close();
        if (const Result verified = {vorn_bus_verify_with(vorn_nac_verify)}; !verified) return verified;
        return {vorn_bus_open(&options, &bus_)};
    }
    void close() {
        vorn_bus_close(std::exchange(bus_, nullptr));
        handlers_.clear();
        thrown_ = nullptr;
    }

    // For an open bus: registers the type, and calls handler(record, origin) for its messages, in the thread
    // that polls. One thread at a time sets handlers. One that is replaced is kept until the bus closes.
    template <Message Record, class Handler>
    requires std::invocable<Handler&, const Record&, const Origin&> Result on(Handler handler) {
        const std::int32_t registered =
            VORN_RegIDLFuncHook(Functions<Record>::id, unpack_any<Record>, free_any<Record>);
        if (registered != VORN_BUS_OK) return {registered};
        handlers_.emplace_front(*this,
                                [handler = std::move(handler)](const vorn_bus_message& message) mutable {
                                    handler(*static_cast<const Record*>(message.record), origin_of(message));
                                });
        return {vorn_bus_handle(bus_, Functions<Record>::id, call, &handlers_.front())};
    }

    // Handles what has arrived, waiting for the first batch at most that long; negative: for ever. Throws the
    // first that a handler has thrown, also before in a receiving thread; the other messages of its batch
    // have got their handlers by then.
    Polled poll(std::chrono::milliseconds timeout, std::uint32_t max_batches = 0) {
        Polled polled;
        polled.code = vorn_bus_poll(bus_, in_milliseconds(timeout), max_batches, &polled.batches);
        if (const std::exception_ptr thrown = take_thrown()) std::rethrow_exception(thrown);
        return polled;
    }

    // One batch: all records arrive, in order and together, or none. They travel in the compact layout.
    template <std::ranges::contiguous_range Records>
    requires Message<std::ranges::range_value_t<Records>>
    [[nodiscard]] Result send(std::uint32_t destination, const Records& records, std::uint64_t target = 0) {
        std::vector<std::vector<std::uint8_t>> packed;
        std::vector<VORN_SendDescriptor> descriptors;
        for (const auto& record : records) {
            const auto& bytes = packed.emplace_back(pack(record));
            if (bytes.empty()) return {kRefused};
            descriptors.push_back({bytes.data(), Functions<std::ranges::range_value_t<Records>>::id,
                                   static_cast<std::uint32_t>(bytes.size())});
        }
        return {vorn_bus_send(bus_, destination, descriptors.data(),
                              static_cast<std::uint32_t>(descriptors.size()), target)};
    }
    template <Message Record>
    [[nodiscard]] Result send(std::uint32_t destination, const Record& record, std::uint64_t target = 0) {
        return send(destination, std::span(&record, 1), target);
    }

    // Waits until all that was accepted is handled; negative: for ever.
    [[nodiscard]] Result flush(std::chrono::milliseconds timeout) {
        return {vorn_bus_flush(bus_, in_milliseconds(timeout))};
    }

    vorn_bus_counters counters() const {
        vorn_bus_counters counters = vorn_bus_counters_init();
        vorn_bus_read_counters(bus_, &counters);
        return counters;
    }

    vorn_bus* get() const { return bus_; }  // null: not open

  private:
    static constexpr auto kRefused = static_cast<std::int32_t>(NAC_REFUSED);

    struct Handler {
        Handler(Bus& owner, std::function<void(const vorn_bus_message&)> function)
            : bus(owner), handle(std::move(function)) {}
        Bus& bus;
        std::function<void(const vorn_bus_message&)> handle;
    };

    // The bus ends the poll after the batch in which this throws.
    static void call(const vorn_bus_message* message, void* context) {
        Handler& handler = *static_cast<Handler*>(context);
        try {
            handler.handle(*message);
        } catch (...) {
            const std::lock_guard locked(handler.bus.lock_);
            if (handler.bus.thrown_ == nullptr) handler.bus.thrown_ = std::current_exception();
            throw;
        }
    }

    std::exception_ptr take_thrown() {
        const std::lock_guard locked(lock_);
        return std::exchange(thrown_, nullptr);
    }

    template <class Record>
    static std::uint32_t unpack_any(const std::uint8_t* bytes, std::uint32_t length, void* record) {
        return Functions<Record>::unpack(bytes, length, static_cast<Record*>(record));
    }
    template <class Record>
    static void free_any(void* record) {
        Functions<Record>::free(static_cast<Record*>(record));
    }

    static Origin origin_of(const vorn_bus_message& message) {
        return {message.source,
                message.destination,
                message.target,
                {message.packed, message.packed_bytes},
                (message.flags & (VORN_BUS_VERIFIED | VORN_BUS_DAMAGED)) == VORN_BUS_VERIFIED,
                (message.flags & VORN_BUS_REPEATED) != 0,
                message.fault};
    }

    static std::int32_t in_milliseconds(std::chrono::milliseconds timeout) {
        return static_cast<std::int32_t>(
            std::clamp<std::chrono::milliseconds::rep>(timeout.count(), -1, INT32_MAX));
    }

    vorn_bus* bus_ = nullptr;
    std::forward_list<Handler> handlers_;  // the bus has their addresses
    std::mutex lock_;
    std::exception_ptr thrown_;
};

}  // namespace nac

#endif
