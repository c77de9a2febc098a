// SPDX-License-Identifier: Apache-2.0
// The loopback bus and the VORN functions that lead to it.
#include "host/loopback_bus.h"

#include <algorithm>
#include <array>
#include <utility>

#include "bus/registration.h"

namespace host {

LoopbackBus& LoopbackBus::instance() {
    static LoopbackBus bus;
    return bus;
}

void LoopbackBus::reset() {
    const std::lock_guard locked(lock_);
    registered_.clear();
    registration_calls_ = 0;
    refused_registration_.reset();
    refusal_ = 0;
    cleans_.clear();
    sent_.clear();
    records_sends_ = true;
    send_answer_ = 0;
    handler_ = nullptr;
}

void LoopbackBus::deliver_to(Handler handler) {
    const std::lock_guard locked(lock_);
    handler_ = std::move(handler);
}

void LoopbackBus::record_sends(bool on) {
    const std::lock_guard locked(lock_);
    records_sends_ = on;
}

void LoopbackBus::refuse_registration(std::size_t nth, std::int32_t result) {
    const std::lock_guard locked(lock_);
    refused_registration_ = registration_calls_ + nth;
    refusal_ = result;
}

void LoopbackBus::answer_sends(std::int32_t result) {
    const std::lock_guard locked(lock_);
    send_answer_ = result;
}

std::vector<Registered> LoopbackBus::registrations() const {
    const std::lock_guard locked(lock_);
    return registered_;
}

std::size_t LoopbackBus::registration_calls() const {
    const std::lock_guard locked(lock_);
    return registration_calls_;
}

std::vector<VORN_IDLResourceCleanFunc> LoopbackBus::resource_cleans() const {
    const std::lock_guard locked(lock_);
    return cleans_;
}

std::vector<Sent> LoopbackBus::sends() const {
    const std::lock_guard locked(lock_);
    return sent_;
}

std::int32_t LoopbackBus::register_functions(const Registered& entry) {
    const std::lock_guard locked(lock_);
    if (registration_calls_++ == refused_registration_) return refusal_;
    registered_.push_back(entry);
    return 0;
}

std::int32_t LoopbackBus::register_resource_clean(VORN_IDLResourceCleanFunc clean) {
    const std::lock_guard locked(lock_);
    if (registration_calls_++ == refused_registration_) return refusal_;
    cleans_.push_back(clean);
    return 0;
}

std::int32_t LoopbackBus::send(std::uint32_t destination, const VORN_SendDescriptor* descriptors,
                               std::uint32_t count, std::optional<std::uint64_t> target) {
    const std::lock_guard locked(lock_);
    Sent sent = {destination, target, descriptors, {descriptors, descriptors + count}, {}};
    for (const VORN_SendDescriptor& descriptor : sent.descriptors) {
        sent.messages.emplace_back(descriptor.buffer, descriptor.buffer + descriptor.length);
    }
    const std::int32_t result = send_answer_ != 0 || !handler_ ? send_answer_ : deliver(sent);
    if (records_sends_) sent_.push_back(std::move(sent));
    return result;
}

KAPLO_CALLS_REGISTERED std::int32_t LoopbackBus::deliver(const Sent& sent) {
    // Whoever registers an id again replaces the pair, so the last one counts.
    const auto find = [this](std::uint32_t id) {
        return std::find_if(registered_.rbegin(), registered_.rend(),
                            [id](const Registered& entry) { return entry.message_id == id; });
    };
    for (const VORN_SendDescriptor& descriptor : sent.descriptors) {
        if (find(descriptor.message_id) == registered_.rend()) return kUnknownMessage;
    }
    for (std::size_t i = 0; i < sent.messages.size(); ++i) {
        const std::vector<std::uint8_t>& packed = sent.messages[i];
        const Registered entry = *find(sent.descriptors[i].message_id);
        // Zeroed, because unpack leaves the record as it is when its arguments are faulty, and it is freed
        // all the same.
        alignas(std::max_align_t) std::array<std::uint8_t, kRecordRoom> record = {};
        const auto length = static_cast<std::uint32_t>(packed.size());
        const std::uint32_t record_bytes = entry.unpack(packed.data(), length, record.data());
        if (record_bytes > kRecordRoom) return kRecordTooLarge;
        handler_({entry.message_id, sent.destination, sent.target.value_or(0), record.data(), record_bytes,
                  packed});
        entry.free_unpacked(record.data());
    }
    return 0;
}

}  // namespace host

extern "C" {

std::int32_t VORN_RegIDLFuncHook(std::uint32_t message_id, VORN_IDLUnpackFunc unpack,
                                 VORN_IDLFreeFunc free_unpacked) {
    return host::LoopbackBus::instance().register_functions({message_id, unpack, free_unpacked});
}

std::int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc clean) {
    return host::LoopbackBus::instance().register_resource_clean(clean);
}

std::int32_t VORN_SendMsg(std::uint32_t destination, const VORN_SendDescriptor* descriptors,
                          std::uint32_t count) {
    return host::LoopbackBus::instance().send(destination, descriptors, count, std::nullopt);
}

std::int32_t VORN_SendToMsg(std::uint32_t destination, const VORN_SendDescriptor* descriptors,
                            std::uint32_t count, std::uint64_t target) {
    return host::LoopbackBus::instance().send(destination, descriptors, count, target);
}

}  // extern "C"
