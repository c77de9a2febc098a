// SPDX-License-Identifier: Apache-2.0
// Sending: packs one record or many, hands them to the bus in one call, releases what it allocated.
#ifndef KAPLO_SEND_H
#define KAPLO_SEND_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "bus/message_id.h"
#include "bus/vorn_bus_api.h"
#include "runtime/bounded.h"
#include "runtime/image.h"
#include "runtime/pack.h"

namespace kaplo {

// Records without vectors travel as fixed images, all others in the compact layout.
template <class Record>
inline constexpr bool sends_image = !owns_memory<Record>;

inline constexpr std::uint32_t kSingleBufferBytes = 1024;
inline constexpr std::uint32_t kBatchAreaBytes = 0x10000;
inline constexpr std::uint32_t kDescriptorBytes = sizeof(VORN_SendDescriptor);
static_assert(kDescriptorBytes == 16);

inline std::uint32_t hand_to_bus(std::uint32_t destination, const VORN_SendDescriptor* descriptors,
                                 std::uint32_t count, std::uint64_t target) {
    return static_cast<std::uint32_t>(target != 0 ? VORN_SendToMsg(destination, descriptors, count, target)
                                                  : VORN_SendMsg(destination, descriptors, count));
}

// A block for packed messages, taken from the send-side hooks and released with the scope.
class SendBlock {
  public:
    SendBlock(Unit& unit, std::uint32_t bytes, const char* caller)
        : unit_(unit),
          caller_(caller),
          start_(static_cast<std::uint8_t*>(allocate_to_send(unit, bytes, caller))) {}
    ~SendBlock() {
        if (start_ != nullptr) free_sent(unit_, start_, caller_);
    }
    SendBlock(const SendBlock&) = delete;
    SendBlock& operator=(const SendBlock&) = delete;

    std::uint8_t* start() const { return start_; }

  private:
    Unit& unit_;
    const char* caller_;
    std::uint8_t* start_;
};

// Packs into `bytes` bytes, the record's size. What the size counts but the writer leaves out is zeroed: no
// byte of the sender's memory reaches the bus.
template <class Record>
void pack_to_send(Unit& unit, const Record* record, std::uint8_t* buffer, std::uint32_t bytes,
                  std::uint32_t capacity, const char* caller) {
    KaploMemHooksInit(unit);
    const std::uint32_t written = write_message(unit, record, buffer, bytes, capacity);
    if (written > bytes) end_by_long_message(caller);
    memset_s(buffer + written, bytes - written, 0, bytes - written);
}

template <class Record>
std::uint32_t send_single(Unit& unit, std::uint32_t destination, const Record* record, std::uint64_t target) {
    if constexpr (sends_image<Record>) {
        constexpr std::uint32_t bytes = Image<Record>::bytes;
        static_assert(bytes <= kSingleBufferBytes);
        if (record == nullptr) return kRefusal;
        alignas(8) std::uint8_t buffer[kSingleBufferBytes];
        write_image(unit, *record, buffer);
        const VORN_SendDescriptor descriptor = {buffer, message_id<Record>, bytes};
        return hand_to_bus(destination, &descriptor, 1, target);
    } else {
        const std::uint32_t bytes = message_bytes(record);
        if (bytes == 0) return kRefusal;
        const SendBlock block(unit, bytes, send_single_name<Record>.c_str());
        if (block.start() == nullptr) return kRefusal;
        pack_to_send(unit, record, block.start(), bytes, bytes, send_single_name<Record>.c_str());
        const VORN_SendDescriptor descriptor = {block.start(), message_id<Record>, bytes};
        return hand_to_bus(destination, &descriptor, 1, target);
    }
}

// Fills the i-th descriptor of an array that the host's allocator may not have aligned.
inline void put_descriptor(std::uint8_t* descriptors, std::uint32_t i,
                           const VORN_SendDescriptor& descriptor) {
    std::memcpy(descriptors + std::size_t{i} * kDescriptorBytes, &descriptor, kDescriptorBytes);
}

// The block's size is asked for as 32 bits hold it. Where that is less than the batch needs, the batch is
// refused before a byte is written.
inline bool wraps(std::uint64_t needed) { return needed > UINT32_MAX; }

template <class Record>
std::uint32_t send_batch_of_images(Unit& unit, std::uint32_t destination, const Record* records,
                                   std::uint32_t count, std::uint64_t target) {
    constexpr std::uint32_t bytes = Image<Record>::bytes;
    if (records == nullptr && count != 0) return kRefusal;
    const std::uint64_t needed = std::uint64_t{count} * (bytes + kDescriptorBytes);
    const SendBlock block(unit, static_cast<std::uint32_t>(needed), send_batch_name<Record>.c_str());
    if (block.start() == nullptr || wraps(needed)) return kRefusal;

    const std::uint32_t area = count * bytes;
    std::uint8_t* const descriptors = block.start() + area;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t offset = i * bytes;
        write_image(unit, records[i], block.start() + offset);
        put_descriptor(descriptors, i, {block.start() + offset, message_id<Record>, bytes});
    }
    return hand_to_bus(destination, reinterpret_cast<const VORN_SendDescriptor*>(descriptors), count, target);
}

template <class Record>
std::uint32_t send_batch_compact(Unit& unit, std::uint32_t destination, const Record* records,
                                 std::uint32_t count, std::uint64_t target) {
    const std::uint64_t needed =
        (std::uint64_t{count} + kBatchAreaBytes / kDescriptorBytes) * kDescriptorBytes;
    const SendBlock block(unit, static_cast<std::uint32_t>(needed), send_batch_name<Record>.c_str());
    if (block.start() == nullptr || wraps(needed)) return kRefusal;

    std::uint8_t* const descriptors = block.start() + kBatchAreaBytes;
    std::uint32_t offset = 0;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint32_t bytes = message_bytes(records + i);
        const std::uint32_t remaining = kBatchAreaBytes - offset;
        if (bytes == 0 || remaining < bytes) return kRefusal;
        pack_to_send(unit, records + i, block.start() + offset, bytes, remaining,
                     send_batch_name<Record>.c_str());
        put_descriptor(descriptors, i, {block.start() + offset, message_id<Record>, bytes});
        offset += bytes;
        if (i + 1 != count && offset > kBatchAreaBytes - 1) return kRefusal;
    }
    return hand_to_bus(destination, reinterpret_cast<const VORN_SendDescriptor*>(descriptors), count, target);
}

template <class Record>
std::uint32_t send_batch(Unit& unit, std::uint32_t destination, const Record* records, std::uint32_t count,
                         std::uint64_t target) {
    if constexpr (sends_image<Record>) {
        return send_batch_of_images(unit, destination, records, count, target);
    } else {
        return send_batch_compact(unit, destination, records, count, target);
    }
}

// The exported sendmsg (target 0) and sendtomsg of every message type.
template <class Record>
std::uint32_t send(Unit& unit, std::uint32_t destination, const Record* records, std::uint32_t count,
                   std::uint64_t target) {
    if (count == 0) return kRefusal;
    return count == 1 ? send_single(unit, destination, records, target)
                      : send_batch(unit, destination, records, count, target);
}

}  // namespace kaplo

#endif
