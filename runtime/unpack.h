// SPDX-License-Identifier: Apache-2.0
// Unpacking: verifies received bytes while it reads them, in either layout, into a record.
#ifndef KAPLO_UNPACK_H
#define KAPLO_UNPACK_H

#include <cstdint>
#include <type_traits>

#include "runtime/bounded.h"
#include "runtime/description.h"
#include "runtime/region.h"
#include "runtime/release.h"

namespace kaplo {

// A null buffer or record, or a length that is no buffer's, is logged under `function`.
inline bool check_unpack_arguments(Unit& unit, const char* function, const std::uint8_t* buffer,
                                   std::uint32_t length, const void* record) {
    if (buffer != nullptr && record != nullptr && length >= kShortestBuffer && length <= kLongestBuffer) {
        return true;
    }
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
    if constexpr (sizeof(Element) == 1) {
        memcpy_s(to, count, from, count);
    } else {
        for (std::uint32_t k = 0; k < count; ++k) to[k] = load<order, Element>(from + k * sizeof(Element));
    }
}

template <class Record, ByteOrder order>
bool read_nested(Unit& unit, const Region<order>& region, std::uint32_t at, Record& record);

template <class F, ByteOrder order>
bool read_vector(Unit& unit, const Region<order>& region, std::uint32_t at, typename F::Record& record) {
    using Record = typename F::Record;
    using Element = typename F::Element;
    constexpr bool of_tables = F::kind == Kind::table_vector;

    Elements elements;
    if (!region.follow_vector(at, of_tables ? kReferenceBytes : sizeof(Element), elements)) return false;
    F::count(record) = elements.count;
    if (elements.count == 0) return true;
    const std::uint64_t bytes = std::uint64_t{elements.count} * sizeof(Element);
    auto* const array = static_cast<Element*>(
        allocate_array(unit, bytes, root_decoder_name<Record>(), Description<Record>::allocation_complaint));
    if (array == nullptr) return false;
    F::elements(record) = array;
    if constexpr (of_tables) {
        memset_s(array, bytes, 0, bytes);
        for (std::uint32_t k = 0; k < elements.count; ++k) {
            std::uint32_t table;
            if (!region.follow(elements.at + k * kReferenceBytes, table)) return false;
            if (!read_nested(unit, region, table, array[k])) return false;
        }
    } else {
        copy_elements<order>(array, elements.start, elements.count);
    }
    return true;
}

// Reads one field that is present at `at`. A fault ends decoding without a line in the log.
template <class F, ByteOrder order>
bool read_field(Unit& unit, const Region<order>& region, std::uint32_t at, typename F::Record& record) {
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

// Reads the fields in field-id order until one fails; absent fields keep the zero that they have.
template <class Record, ByteOrder order>
bool read_fields(Unit& unit, const Region<order>& region, const Table<order>& table, Record& record) {
    return every_field<Record>([&]<class F, std::uint32_t id> {
        std::uint32_t at;
        return !table.locate(id, at) || read_field<F>(unit, region, at, record);
    });
}

// Reads a nested table into a record inside another, or an element of its array.
template <class Record, ByteOrder order>
bool read_nested(Unit& unit, const Region<order>& region, std::uint32_t at, Record& record) {
    constexpr const char* name = nested_unpack_name<Record>.c_str();
    if constexpr (Description<Record>::nested_decoder_checks_arguments) {
        if (!check_unpack_arguments(unit, name, region.bytes(), region.size(), &record)) return false;
    }
    Table<order> table;
    return table.open(unit, region, at, name) && read_fields(unit, region, table, record);
}

// How far reading came: to the end, to a fault in the root's header, or to one behind it.
enum class Outcome { whole, bad_header, bad_field };

template <class Record, ByteOrder order>
Outcome read_root(Unit& unit, const Region<order>& region, Record& record) {
    static_assert(nests_no_memory<Record>);
    const auto clear = [&] { memset_s(&record, sizeof record, 0, sizeof record); };
    if constexpr (cleared_before_header_checks<Record>) clear();
    Table<order> table;
    if (!table.open(unit, region, region.root_reference(), root_decoder_name<Record>())) {
        return Outcome::bad_header;
    }
    if constexpr (!cleared_before_header_checks<Record>) clear();
    if (!read_fields(unit, region, table, record)) {
        if constexpr (owns_memory<Record>) release(unit, record);
        return Outcome::bad_field;
    }
    return Outcome::whole;
}

// The exported unpack of every message type.
template <class Record>
std::uint32_t unpack(Unit& unit, const std::uint8_t* buffer, std::uint32_t length, Record* record) {
    KaploMemHooksInit(unit);
    if (check_unpack_arguments(unit, unpack_name<Record>.c_str(), buffer, length, record)) {
        if (unit.byte_swap == 0) {
            read_root(unit, Region<ByteOrder::host>(buffer, length), *record);
        } else {
            read_root(unit, Region<ByteOrder::reversed>(buffer, length), *record);
        }
    }
    return sizeof(Record);
}

}  // namespace kaplo

#endif
