// SPDX-License-Identifier: Apache-2.0
// Received bytes, and the only code that makes addresses of the numbers in them.
//
// Nothing here trusts a number before it is compared with the remaining bytes, and no comparison adds
// what could wrap: a position with the size, a count with what remains after it.
#ifndef KAPLO_REGION_H
#define KAPLO_REGION_H

#include <algorithm>
#include <concepts>
#include <cstdint>

#include "runtime/description.h"
#include "runtime/inline.h"
#include "runtime/kaplo_runtime.h"
#include "runtime/wire.h"

namespace kaplo {

template <ByteOrder order>
class Table;

// A vector whose elements lie inside the region.
struct Elements {
    std::uint32_t count;
    std::uint32_t at;           // position of element 0
    const std::uint8_t* start;  // the same as an address
};

template <ByteOrder order>
class Region {
  public:
    // `size` is from kShortestBuffer to kLongestBuffer, so a position inside plus 16 bits never wraps.
    Region(const std::uint8_t* bytes, std::uint32_t size) : bytes_(bytes), size_(size) {}

    const std::uint8_t* bytes() const { return bytes_; }
    std::uint32_t size() const { return size_; }
    std::uint32_t root_reference() const { return value_at<std::uint32_t>(0); }

    template <std::unsigned_integral T>
    bool read(std::uint32_t at, T& value) const {
        if (!holds(at, sizeof(T))) return false;
        value = value_at<T>(at);
        return true;
    }

    // The `count` bytes at `at`, where a table's frame may lie; null if they are not all inside.
    const std::uint8_t* bytes_at(std::uint64_t at, std::uint32_t count) const {
        return at >= kRootTableAt && at <= size_ && count <= size_ - at ? bytes_ + at : nullptr;
    }

    // The vtable of `vtable_bytes` bytes right before the table at `table`; null unless both begin inside.
    // Positions of 64 bits: sums of two numbers from the wire do not wrap.
    const std::uint8_t* vtable_before(std::uint64_t table, std::uint32_t vtable_bytes) const {
        return table >= kRootTableAt + vtable_bytes && table + kReferenceBytes <= size_
                   ? bytes_ + table - vtable_bytes
                   : nullptr;
    }

    // The same for the table that a reference points to, which is all inside and further from the region's
    // start than a vtable is long: null unless `count` bytes from the vtable on are inside.
    const std::uint8_t* vtable_of(const std::uint8_t* reference, std::uint32_t vtable_bytes,
                                  std::uint32_t count) const {
        const auto distance = std::uint64_t{load<order, std::uint32_t>(reference)};
        return distance + count <= std::uint64_t{bytes_from(reference)} + vtable_bytes
                   ? reference + distance - vtable_bytes
                   : nullptr;
    }

    // Bytes from `start`, which is inside, to the end.
    std::uint32_t bytes_from(const std::uint8_t* start) const {
        return size_ - static_cast<std::uint32_t>(start - bytes_);
    }

    // What the reference at `reference`, all of it inside, points to: perhaps outside.
    std::uint64_t target_of(const std::uint8_t* reference) const {
        return static_cast<std::uint64_t>(reference - bytes_) + load<order, std::uint32_t>(reference);
    }

    // Finds what the reference at `at` points to: further on, perhaps outside. False if the reference is
    // not inside, or its sum wraps.
    bool follow(std::uint32_t at, std::uint32_t& target) const {
        if (!holds(at, kReferenceBytes)) return false;
        const auto distance = value_at<std::uint32_t>(at);
        target = at + distance;
        return distance <= UINT32_MAX - at;
    }

    // Finds the vector that the reference leads to, at `at`. False unless all its elements lie inside.
    bool follow_vector(std::uint32_t at, std::uint32_t element_bytes, Elements& elements) const {
        std::uint32_t vector;
        if (!follow(at, vector) || !read(vector, elements.count)) return false;
        elements.at = vector + kCountBytes;
        elements.start = bytes_ + elements.at;
        return elements.count <= (size_ - elements.at) / element_bytes;
    }

  private:
    friend class Table<order>;

    bool holds(std::uint32_t at, std::uint32_t count) const { return at <= size_ && count <= size_ - at; }

    // A position from 4 to size - 4, as tables and vtables have.
    bool holds_table(std::uint32_t at) const { return at >= kRootTableAt && at <= size_ - kReferenceBytes; }

    template <class T>
    T value_at(std::uint32_t at) const {
        return load<order, T>(bytes_ + at);
    }

    const std::uint8_t* bytes_;
    std::uint32_t size_;
};

// A table whose header is valid: the table and all of its vtable lie inside the region.
template <ByteOrder order>
class Table {
  public:
    // Checks the header of the table at `at`; a fault is logged under `function`.
    bool open(Unit& unit, Region<order> region, std::uint32_t at, const char* function) {
        if (!region.holds_table(at)) {
            log_table_offset(unit, function, at, region.size_);
            return false;
        }
        // Unsigned: the vtable may lie on either side of the table.
        const std::uint32_t vtable = at - region.template value_at<std::uint32_t>(at);
        if (!region.holds_table(vtable)) {
            // The complaint names the table, not its vtable; log readers rely on it.
            log_vtable_offset(unit, function, at, region.size_ - kVtableHeaderBytes);
            return false;
        }
        const auto vtable_length = region.template value_at<std::uint16_t>(vtable);
        if (vtable_length > region.size_ - vtable) {
            log_vtable_length(unit, function, vtable_length, region.size_ - vtable);
            return false;
        }
        at_ = at;
        remaining_ = region.size_ - at;
        table_ = region.bytes_ + at;
        vtable_ = region.bytes_ + vtable;
        vtable_length_ = vtable_length;
        return true;
    }

    // Finds the field's position, inside the region or up to 64 KiB after it. False: the field is absent.
    bool locate(std::uint32_t id, std::uint32_t& at) const {
        if (vtable_length_ < slot_in_vtable(id) + kSlotBytes) return false;
        const std::uint16_t offset = slot(id);
        at = at_ + offset;
        return offset != 0;
    }

    // Whether each scalar of the record is absent or inside the region, and the vtable has all slots.
    template <class Record>
    KAPLO_INLINE bool holds_scalars() const {
        constexpr std::uint32_t widest = sizeof(std::uint64_t);
        if (vtable_length_ < vtable_bytes<Record> || remaining_ < widest) return false;
        if (all_slots<slots<Record>>() <= remaining_ - widest) return true;
        std::uint32_t outside = 0;
        each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
            if constexpr (F::kind == Kind::scalar) {
                constexpr std::uint32_t bytes = sizeof(typename F::Member);
                outside |= slot(id) > remaining_ - bytes;
            }
        });
        return outside == 0;
    }

    // The scalar, or 0 if it is absent; only after holds_scalars(). An absent one is read from the table's
    // start and masked out, without a branch, since that would be taken at random.
    template <std::unsigned_integral T>
    T scalar(std::uint32_t id) const {
        const std::uint16_t offset = slot(id);
        return static_cast<T>(load<order, T>(table_ + offset) & mask_if(offset != 0));
    }

    // Where the references of a record with all of them stand side by side, in field-id order, and at least
    // `bytes` bytes from there on; else null. Only after holds_scalars().
    template <class Record>
    KAPLO_INLINE const std::uint8_t* references(std::uint32_t bytes) const {
        std::uint32_t first = 0;
        std::uint32_t difference = 0;
        each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
            if constexpr (F::kind != Kind::scalar) {
                constexpr std::uint32_t before = references_before<Record>(id) * kReferenceBytes;
                if constexpr (before == 0) first = slot(id);
                difference |= slot(id) ^ (first + before);
            }
        });
        const bool inside = first != 0 && first + bytes <= remaining_;
        return inside && difference == 0 ? table_ + first : nullptr;
    }

  private:
    std::uint16_t slot(std::uint32_t id) const {
        return load<order, std::uint16_t>(vtable_ + slot_in_vtable(id));
    }

    // The bits of all slots together: a number not below any of them.
    template <std::uint32_t count>
    KAPLO_INLINE std::uint32_t all_slots() const {
        constexpr std::uint32_t step = sizeof(std::uint64_t) / kSlotBytes;
        if constexpr (count < step) {
            return UINT32_MAX;
        } else {
            std::uint64_t four = 0;
            each_index<(count + step - 1) / step>([&]<std::uint32_t i>() KAPLO_INLINE {
                constexpr std::uint32_t id = std::min(i * step, count - step);
                four |= load<ByteOrder::host, std::uint64_t>(vtable_ + slot_in_vtable(id));
            });
            const std::uint64_t two = four | four >> 32;
            return static_cast<std::uint16_t>(two | two >> 16);
        }
    }

    std::uint32_t at_ = 0;
    std::uint32_t remaining_ = 0;  // bytes from the table's start to the region's end, at least 4
    const std::uint8_t* table_ = nullptr;
    const std::uint8_t* vtable_ = nullptr;
    std::uint32_t vtable_length_ = 0;
};

}  // namespace kaplo

#endif
