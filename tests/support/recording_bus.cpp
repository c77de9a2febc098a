// SPDX-License-Identifier: Apache-2.0
// The recording bus and the VORN functions that lead to it.
#include "tests/support/recording_bus.h"

#include <algorithm>
#include <array>
#include <utility>

#include "bus/registration.h"

namespace tests {

RecordingBus& RecordingBus::instance() {
    static RecordingBus bus;
    return bus;
}

void RecordingBus::reset() {
    const std::lock_guard locked(lock_);
    registered_.clear();
    registration_calls_ = 0;
    refused_registration_.reset();
    refusal_ = 0;
    cleans_.clear();
    sent_.clear();
    send_answer_ = 0;
}

void RecordingBus::refuse_registration(std::size_t nth, std::int32_t result) {
    const std::lock_guard locked(lock_);
    refused_registration_ = registration_calls_ + nth;
    refusal_ = result;
}

void RecordingBus::answer_sends(std::int32_t result) {
    const std::lock_guard locked(lock_);
    send_answer_ = result;
}

std::vector<Registered> RecordingBus::registrations() const {
    const std::lock_guard locked(lock_);
    return registered_;
}

std::size_t RecordingBus::registration_calls() const {
    const std::lock_guard locked(lock_);
    return registration_calls_;
}

std::vector<VORN_IDLResourceCleanFunc> RecordingBus::resource_cleans() const {
    const std::lock_guard locked(lock_);
    return cleans_;
}

std::vector<Sent> RecordingBus::sends() const {
    const std::lock_guard locked(lock_);
    return sent_;
}

std::vector<Sent> RecordingBus::take_sends() {
    const std::lock_guard locked(lock_);
    return std::exchange(sent_, {});
}

std::int32_t RecordingBus::register_functions(const Registered& entry) {
    const std::lock_guard locked(lock_);
    if (registration_calls_++ == refused_registration_) return refusal_;
    registered_.push_back(entry);
    return 0;
}

std::int32_t RecordingBus::register_resource_clean(VORN_IDLResourceCleanFunc clean) {
    const std::lock_guard locked(lock_);
    if (registration_calls_++ == refused_registration_) return refusal_;
    cleans_.push_back(clean);
    return 0;
}

std::int32_t RecordingBus::send(std::uint32_t destination, const VORN_SendDescriptor* descriptors,
                                std::uint32_t count, std::optional<std::uint64_t> target) {
    const std::lock_guard locked(lock_);
    Sent sent = {destination, target, descriptors, {descriptors, descriptors + count}, {}};
    for (const VORN_SendDescriptor& descriptor : sent.descriptors) {
        sent.messages.emplace_back(descriptor.buffer, descriptor.buffer + descriptor.length);
    }
    sent_.push_back(std::move(sent));
    return send_answer_;
}

KAPLO_CALLS_REGISTERED void RecordingBus::deliver(
    const Sent& sent, const std::function<void(const void*, std::uint32_t)>& handle) const {
    for (std::size_t i = 0; i < sent.messages.size(); ++i) {
        const std::vector<Registered> all = registrations();
        const auto entry = std::find_if(all.rbegin(), all.rend(), [&](const Registered& each) {
            return each.message_id == sent.descriptors[i].message_id;
        });
        const std::vector<std::uint8_t>& message = sent.messages[i];
        // Zeroed, because unpack leaves the record as it is when its arguments are faulty, and it is freed
        // all the same.
        alignas(std::max_align_t) std::array<std::uint8_t, kRecordCapacity> record = {};
        const std::uint32_t bytes =
            entry->unpack(message.data(), static_cast<std::uint32_t>(message.size()), record.data());
        handle(record.data(), bytes);
        entry->free_unpacked(record.data());
    }
}

}  // namespace tests

extern "C" {

std::int32_t VORN_RegIDLFuncHook(std::uint32_t message_id, VORN_IDLUnpackFunc unpack,
                                 VORN_IDLFreeFunc free_unpacked) {
    return tests::RecordingBus::instance().register_functions({message_id, unpack, free_unpacked});
}

std::int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc clean) {
    return tests::RecordingBus::instance().register_resource_clean(clean);
}

std::int32_t VORN_SendMsg(std::uint32_t destination, const VORN_SendDescriptor* descriptors,
                          std::uint32_t count) {
    return tests::RecordingBus::instance().send(destination, descriptors, count, std::nullopt);
}

std::int32_t VORN_SendToMsg(std::uint32_t destination, const VORN_SendDescriptor* descriptors,
                            std::uint32_t count, std::uint64_t target) {
    return tests::RecordingBus::instance().send(destination, descriptors, count, target);
}

}  // extern "C"
