// SPDX-License-Identifier: Apache-2.0
// Received bytes, and the only place where numbers found in them become addresses.
//
// Nothing here trusts a number before it is compared with the room that is left, and no comparison adds
// what could wrap: a position is held against the size, a count against the rest behind it.
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
    const std::uint8_t* bytes_at(std::uint32_t at, std::uint32_t count) const {
        return at >= kRootTableAt && holds(at, count) ? bytes_ + at : nullptr;
    }

    // Finds what the reference at `at` points to: further on, perhaps outside. False if the reference is
    // not inside, or its sum wraps.
    bool follow(std::uint32_t at, std::uint32_t& target) const {
        if (!holds(at, kReferenceBytes)) return false;
        const auto distance = value_at<std::uint32_t>(at);
        target = at + distance;
        return distance <= UINT32_MAX - at;
    }

    // Finds the vector behind the reference at `at`. False unless all its elements lie inside.
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

// A table whose header was found good: the table and all of its vtable lie inside the region.
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
        room_ = region.size_ - at;
        table_ = region.bytes_ + at;
        vtable_ = region.bytes_ + vtable;
        vtable_length_ = vtable_length;
        return true;
    }

    // Finds the field's place, inside the region or up to 64 KiB behind it. False: the field is absent.
    bool locate(std::uint32_t id, std::uint32_t& at) const {
        if (vtable_length_ < slot_in_vtable(id) + kSlotBytes) return false;
        const std::uint16_t place = slot(id);
        at = at_ + place;
        return place != 0;
    }

    // Whether each scalar of the record is absent or inside the region, and the vtable has all slots.
    template <class Record>
    KAPLO_INLINE bool holds_scalars() const {
        constexpr std::uint32_t widest = sizeof(std::uint64_t);
        if (vtable_length_ < vtable_bytes<Record> || room_ < widest) return false;
        if (all_slots<slots<Record>>() <= room_ - widest) return true;
        std::uint32_t outside = 0;
        each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
            if constexpr (F::kind == Kind::scalar) {
                constexpr std::uint32_t bytes = sizeof(typename F::Member);
                outside |= slot(id) > room_ - bytes;
            }
        });
        return outside == 0;
    }

    // The scalar, or 0 if it is absent; only after holds_scalars(). An absent one is read from the table's
    // start and masked out, without a branch, since that would be taken at random.
    template <std::unsigned_integral T>
    T scalar(std::uint32_t id) const {
        const std::uint16_t place = slot(id);
        return static_cast<T>(load<order, T>(table_ + place) & mask_if(place != 0));
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
            for (std::uint32_t id = 0; id < count; id += step) {
                four |= load<ByteOrder::host, std::uint64_t>(vtable_ +
                                                             slot_in_vtable(std::min(id, count - step)));
            }
            const std::uint64_t two = four | four >> 32;
            return static_cast<std::uint16_t>(two | two >> 16);
        }
    }

    std::uint32_t at_ = 0;
    std::uint32_t room_ = 0;  // bytes from the table's start to the region's end, at least 4
    const std::uint8_t* table_ = nullptr;
    const std::uint8_t* vtable_ = nullptr;
    std::uint32_t vtable_length_ = 0;
};

}  // namespace kaplo

#endif
