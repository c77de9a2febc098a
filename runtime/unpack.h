// SPDX-License-Identifier: Apache-2.0
// Unpacking: verifies received bytes while it reads them, in either layout, into a record.
#ifndef KAPLO_UNPACK_H
#define KAPLO_UNPACK_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "runtime/bounded.h"
#include "runtime/description.h"
#include "runtime/frame.h"
#include "runtime/inline.h"
#include "runtime/region.h"
#include "runtime/release.h"
#include "runtime/shapes.h"

namespace kaplo {

inline bool are_unpack_arguments(const std::uint8_t* buffer, std::uint32_t length, const void* record) {
    return buffer != nullptr && record != nullptr && length >= kShortestBuffer && length <= kLongestBuffer;
}

// A null buffer or record, or a length that is no buffer's, is logged under `function`.
inline bool check_unpack_arguments(Unit& unit, const char* function, const std::uint8_t* buffer,
                                   std::uint32_t length, const void* record) {
    if (are_unpack_arguments(buffer, length, record)) return true;
    log_unpack_arguments(unit, function, buffer, length, record);
    return false;
}

// Allocates a received array; a failure is logged under `function`, under which it is allocated too. More
// than 32 bits can ask for counts as a failure.
inline void* allocate_array(Unit& unit, std::uint64_t bytes, const char* function,
                            AllocationComplaint complaint) {
    const auto size = static_cast<std::uint32_t>(bytes);
    void* const array = size == bytes ? allocate_received(unit, size, function) : nullptr;
    if (array == nullptr) log_failed_allocation(unit, function, complaint, size);
    return array;
}

template <ByteOrder order, class Element>
void copy_elements(Element* to, const std::uint8_t* from, std::uint32_t count) {
    if constexpr (is_copied<Element, order>) {
        const std::size_t bytes = count * sizeof(Element);
        memcpy_s(to, bytes, from, bytes);
    } else {
        for (std::uint32_t k = 0; k < count; ++k) to[k] = load<order, Element>(from + k * sizeof(Element));
    }
}

template <class Record, ByteOrder order>
KAPLO_INLINE inline bool read_nested(Unit& unit, Region<order> region, std::uint32_t at, Record& record);

// Reads a table that has its frame, and so every scalar. False: it has not, and the record is as it was. An
// element may well be one of many that have not: that is told by its first bytes.
template <bool is_element = false, class Record, ByteOrder order>
KAPLO_INLINE inline bool read_framed_table(Region<order> region, std::uint64_t at, Record& record) {
    if constexpr (has_frames<Record, order>) {
        using Frame = CompactFrame<Record>;
        const std::uint8_t* const bytes = region.bytes_at(at - vtable_bytes<Record>, Frame::needed_bytes);
        if (bytes == nullptr || (is_element && !Frame::starts_at(bytes)) || !Frame::is_at(bytes))
            return false;
        Frame::read(bytes, record);
        return true;
    } else {
        return false;
    }
}

// Reads a message that has its frame, of either layout.
template <class Record, ByteOrder order>
KAPLO_INLINE inline bool read_framed_message(Region<order> region, Record& record) {
    if constexpr (has_frames<Record, order>) {
        using Frame = ImageFrame<Record>;
        const std::uint32_t table = region.root_reference();
        if (table != kRootTableAt) return read_framed_table(region, table, record);
        if (region.size() < Frame::needed_bytes || !Frame::is_at(region.bytes())) return false;
        Frame::read(region.bytes(), record);
        return true;
    } else {
        return false;
    }
}

// Reads a small table by its shape (see read_shaped()).
template <class Record, ByteOrder order>
[[gnu::noinline]] const std::uint8_t* read_small_table(Region<order> region, std::uint32_t at,
                                                       Record& record) {
    return read_shaped(region, at, record);
}

// A vector whose elements are read to learn whether they are valid, one after the other into the same
// element.
template <class F>
inline constexpr bool is_only_checked = requires {
    F::is_only_checked;
};

// How far it is from one element to the next, in elements.
template <class F>
inline constexpr std::size_t step_of = is_only_checked<F> ? 0 : 1;

// Reads elements from the k-th on that have every scalar, by their frame. Returns the number of the first
// that has not.
template <std::size_t step, class Element, ByteOrder order>
KAPLO_INLINE inline std::uint32_t read_full_elements(Region<order> region, Elements elements, std::uint32_t k,
                                                     Element* array) {
    for (; k < elements.count; ++k) {
        const std::uint64_t table = region.target_of(elements.start + std::size_t{k} * kReferenceBytes);
        if (!read_framed_table(region, table, array[k * step])) break;
    }
    return k;
}

// Reads elements from the k-th on by their shapes, up to one that has none, or up to and with one that has
// every scalar: elements of a list are alike, so that after one that lacks a scalar others do. Returns the
// number of the first that is not read.
template <std::size_t step, class Element, ByteOrder order>
[[gnu::noinline]] std::uint32_t read_small_elements(Region<order> region, Elements elements, std::uint32_t k,
                                                    Element* array) {
    for (; k < elements.count; ++k) {
        const std::uint64_t table = region.target_of(elements.start + std::size_t{k} * kReferenceBytes);
        const std::uint8_t* const end = read_shaped(region, table, array[k * step]);
        if (end == nullptr) break;
        const std::uint8_t* const start = region.bytes() + table - vtable_bytes<Element>;
        if (end - start == CompactFrame<Element>::bytes) return k + 1;
    }
    return k;
}

template <class F, ByteOrder order>
[[gnu::noinline]] bool read_vector(Unit& unit, Region<order> region, std::uint32_t at,
                                   typename F::Record& record) {
    using Record = typename F::Record;
    using Element = typename F::Element;
    constexpr bool of_tables = F::kind == Kind::table_vector;

    Elements elements;
    if (!region.follow_vector(at, of_tables ? kReferenceBytes : sizeof(Element), elements)) return false;
    F::count(record) = elements.count;
    if (elements.count == 0) return true;
    const std::uint64_t bytes = std::uint64_t{elements.count} * sizeof(Element);
    [[maybe_unused]] std::conditional_t<is_only_checked<F>, Element, List<>> element;
    Element* array;
    if constexpr (is_only_checked<F>) {
        if (bytes > UINT32_MAX) return false;
        array = &element;
    } else {
        array = static_cast<Element*>(allocate_array(unit, bytes, root_decoder_name<Record>(),
                                                     Description<Record>::allocation_complaint));
        if (array == nullptr) return false;
        F::elements(record) = array;
    }
    constexpr std::size_t step = step_of<F>;
    if constexpr (of_tables) {
        if constexpr (kPlatformMemory && !is_only_checked<F>) memset_s(array, bytes, 0, bytes);
        for (std::uint32_t k = 0; k < elements.count; ++k) {
            if constexpr (reads_shapes<Element, order>()) {
                k = read_full_elements<step>(region, elements, k, array);
                if (k == elements.count) break;
                k = read_small_elements<step>(region, elements, k, array);
                if (k == elements.count) break;
            }
            std::uint32_t table;
            if (!region.follow(elements.at + k * kReferenceBytes, table)) return false;
            if (read_framed_table<true>(region, table, array[k * step])) continue;
            if (!read_nested(unit, region, table, array[k * step])) return false;
        }
    } else if constexpr (!is_only_checked<F>) {
        copy_elements<order>(array, elements.start, elements.count);
    }
    return true;
}

// Reads one field that is present at `at`. A fault ends decoding without a line in the log.
template <class F, ByteOrder order>
KAPLO_INLINE inline bool read_field(Unit& unit, Region<order> region, std::uint32_t at,
                                    typename F::Record& record) {
    if constexpr (F::kind == Kind::scalar) {
        return region.read(at, F::in(record));
    } else if constexpr (F::kind == Kind::nested_table) {
        std::uint32_t table;
        return region.follow(at, table) && read_nested(unit, region, table, F::in(record));
    } else if constexpr (F::kind == Kind::fixed_array) {
        using Element = typename F::Element;
        constexpr std::uint32_t count = std::extent_v<typename F::Member>;
        Elements elements;
        if (!region.follow_vector(at, sizeof(Element), elements) || elements.count != count) return false;
        copy_elements<order>(F::in(record), elements.start, count);
        return true;
    } else {
        return read_vector<F>(unit, region, at, record);
    }
}

template <class F, std::uint32_t id, ByteOrder order>
KAPLO_INLINE inline bool read_if_present(Unit& unit, Region<order> region, Table<order> table,
                                         typename F::Record& record) {
    std::uint32_t at;
    return !table.locate(id, at) || read_field<F>(unit, region, at, record);
}

// Reads the fields in field-id order until one fails; absent fields keep the zero that they have.
template <class Record, ByteOrder order>
KAPLO_INLINE inline bool read_fields(Unit& unit, Region<order> region, Table<order> table, Record& record) {
    if constexpr (order == ByteOrder::host && has_field_of<Record, Kind::scalar>()) {
        if (table.template holds_scalars<Record>()) {
            if constexpr (constexpr std::uint32_t tail = shared_tail<Record, order>(); tail != 0) {
                using Frame = CompactFrame<Record>;
                const std::uint8_t* const from =
                    table.template references<Record>(Frame::needed_bytes - tail);
                if (from != nullptr && Frame::template is_at<tail>(from)) {
                    each_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
                        if constexpr (F::kind == Kind::scalar) {
                            F::in(record) = table.template scalar<typename F::Member>(id);
                        }
                    });
                    Frame::template read_fields<tail>(from, record);
                    return true;
                }
            }
            return every_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
                if constexpr (F::kind == Kind::scalar) {
                    F::in(record) = table.template scalar<typename F::Member>(id);
                    return true;
                } else {
                    return read_if_present<F, id>(unit, region, table, record);
                }
            });
        }
    }
    return every_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        return read_if_present<F, id>(unit, region, table, record);
    });
}

// How far reading came: to the end, to a fault in the header, or to one after it.
enum class Outcome { whole, bad_header, bad_field };

template <class Record, ByteOrder order>
KAPLO_INLINE inline Outcome read_table_parts(Unit& unit, Region<order> region, std::uint32_t at,
                                             const char* name, Record& record) {
    Table<order> table;
    if (!table.open(unit, region, at, name)) return Outcome::bad_header;
    clear(record);
    return read_fields(unit, region, table, record) ? Outcome::whole : Outcome::bad_field;
}

// Reads the table at `at`; faults of its header are logged under `name`, and leave the record as it was.
template <class Record>
[[gnu::noinline]] Outcome read_table(Unit& unit, Region<ByteOrder::host> region, std::uint32_t at,
                                     const char* name, Record& record) {
    return read_table_parts(unit, region, at, name, record);
}
template <class Record>
KAPLO_FOR_REVERSED Outcome read_table(Unit& unit, Region<ByteOrder::reversed> region, std::uint32_t at,
                                      const char* name, Record& record) {
    return read_table_parts(unit, region, at, name, record);
}

// Reads a nested table into a record inside another, or an element of its array.
template <class Record, ByteOrder order>
KAPLO_INLINE inline bool read_nested(Unit& unit, Region<order> region, std::uint32_t at, Record& record) {
    constexpr const char* name = nested_unpack_name<Record>.c_str();
    if constexpr (Description<Record>::nested_decoder_checks_arguments) {
        if (!check_unpack_arguments(unit, name, region.bytes(), region.size(), &record)) return false;
    }
    if constexpr (reads_shapes<Record, order>() && has_inner_tables<Record>) {
        if (read_small_table(region, at, record) != nullptr) return true;
    }
    return read_table(unit, region, at, name, record) == Outcome::whole;
}

template <class Record, ByteOrder order>
Outcome read_root(Unit& unit, Region<order> region, Record& record) {
    static_assert(nests_no_memory<Record>, "only a message's own table may have vectors, no table inside it");
    if constexpr (reads_shapes<Record, order>()) {
        if (read_small_table(region, region.root_reference(), record) != nullptr) return Outcome::whole;
    }
    const Outcome outcome =
        read_table(unit, region, region.root_reference(), root_decoder_name<Record>(), record);
    if constexpr (cleared_before_header_checks<Record>) {
        if (outcome == Outcome::bad_header) clear(record);
    }
    if constexpr (owns_memory<Record>) {
        if (outcome == Outcome::bad_field) release(unit, record);
    }
    return outcome;
}

// A large record is read from all over its message: what it will need is asked for at once.
inline constexpr std::size_t kLargeRecord = 256;
inline constexpr std::uint32_t kFetchedBytes = 1024;

inline void fetch(const std::uint8_t* bytes, std::uint32_t length) {
    constexpr std::uint32_t two_lines = 128;  // processors fetch them together
    const std::uint32_t end = std::min(length, kFetchedBytes);
    for (std::uint32_t at = two_lines; at < end; at += two_lines) __builtin_prefetch(bytes + at);
}

// Unpacks from the beginning: hooks not resolved, arguments not checked, no frame recognised.
template <class Record>
[[gnu::noinline]] std::uint32_t unpack_in_full(Unit& unit, const std::uint8_t* buffer, std::uint32_t length,
                                               Record* record) {
    KaploMemHooksInit(unit);
    if (check_unpack_arguments(unit, unpack_name<Record>.c_str(), buffer, length, record)) {
        if constexpr (sizeof(Record) > kLargeRecord) fetch(buffer, length);
        if (unit.byte_swap == 0) {
            read_root(unit, Region<ByteOrder::host>(buffer, length), *record);
        } else {
            read_root(unit, Region<ByteOrder::reversed>(buffer, length), *record);
        }
    }
    return sizeof(Record);
}

// The exported unpack of every message type. A message with its frame is read here, where no call means no
// register to save.
template <class Record>
KAPLO_INLINE inline std::uint32_t unpack(Unit& unit, const std::uint8_t* buffer, std::uint32_t length,
                                         Record* record) {
    if (has_frames<Record, ByteOrder::host> && has_memory_hooks(unit) &&
        are_unpack_arguments(buffer, length, record) && unit.byte_swap == 0 &&
        read_framed_message(Region<ByteOrder::host>(buffer, length), *record)) {
        return sizeof(Record);
    }
    return unpack_in_full(unit, buffer, length, record);
}

}  // namespace kaplo

#endif
