// SPDX-License-Identifier: Apache-2.0
// The vocabulary in which a record is described, and what the compiler derives from a description.
//
// A description lists the record's members in field-id order; their types give the kinds of field:
//
//   unsigned integer          scalar
//   another described record  nested table, held inline
//   array                     fixed array, a vector that always has the array's length
//   count and pointer         vector of scalars or of tables, the array allocated by unpack
#ifndef KAPLO_DESCRIPTION_H
#define KAPLO_DESCRIPTION_H

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <tuple>
#include <type_traits>
#include <utility>

#include "runtime/inline.h"
#include "runtime/kaplo_runtime.h"
#include "runtime/wire.h"

namespace kaplo {

// Constant text whose length is part of its type, so that the compiler can join it.
template <std::size_t length>
struct Text {
    char characters[length + 1] = {};

    constexpr Text() = default;
    constexpr Text(const char (&literal)[length + 1]) {  // NOLINT(google-explicit-constructor)
        for (std::size_t i = 0; i < length; ++i) characters[i] = literal[i];
    }
    constexpr const char* c_str() const { return characters; }
    static constexpr std::size_t size() { return length; }
};
template <std::size_t size>
Text(const char (&)[size]) -> Text<size - 1>;

template <std::size_t left_length, std::size_t right_size>
constexpr auto operator+(const Text<left_length>& left, const char (&right)[right_size]) {
    Text<left_length + right_size - 1> joined;
    for (std::size_t i = 0; i < left_length; ++i) joined.characters[i] = left.characters[i];
    for (std::size_t i = 0; i + 1 < right_size; ++i) joined.characters[left_length + i] = right[i];
    return joined;
}

template <class... T>
struct List {};

enum class Kind { scalar, fixed_array, nested_table, scalar_vector, table_vector };

template <class>
struct MemberPointer;
template <class RecordType, class MemberType>
struct MemberPointer<MemberType RecordType::*> {
    using Record = RecordType;
    using Member = MemberType;
};

// A field held in one member of the record. Element: the scalar, the array's element, the nested record.
template <auto member>
struct Field {
    using Record = typename MemberPointer<decltype(member)>::Record;
    using Member = typename MemberPointer<decltype(member)>::Member;
    using Element = std::remove_extent_t<Member>;

    static constexpr Kind kind = std::is_array_v<Member>    ? Kind::fixed_array
                                 : std::is_class_v<Element> ? Kind::nested_table
                                                            : Kind::scalar;
    static_assert(kind == Kind::nested_table || std::unsigned_integral<Element>);

    static constexpr const Member& in(const Record& record) { return record.*member; }
    static constexpr Member& in(Record& record) { return record.*member; }
};

// A field held in two members, a count and the pointer to that many elements.
template <auto count_member, auto elements_member>
struct Vector {
    using Record = typename MemberPointer<decltype(elements_member)>::Record;
    using Element = std::remove_pointer_t<typename MemberPointer<decltype(elements_member)>::Member>;

    static constexpr Kind kind = std::is_class_v<Element> ? Kind::table_vector : Kind::scalar_vector;
    static_assert(kind == Kind::table_vector || std::unsigned_integral<Element>);

    static std::uint32_t count(const Record& record) { return record.*count_member; }
    static std::uint32_t& count(Record& record) { return record.*count_member; }
    static const Element* elements(const Record& record) { return record.*elements_member; }
    static Element*& elements(Record& record) { return record.*elements_member; }
};

// A record's description: `name`, `Fields` (a List in field-id order), and those traits of Usual that it
// sets otherwise.
template <class Record>
struct Description;

// What holds for a record unless its description says otherwise.
struct Usual {
    // The root's header is checked by the record's nested decoder: the record is cleared before the checks,
    // and faults are logged, and arrays allocated, under "..._unpack_non_root".
    static constexpr bool root_decodes_as_nested = false;

    // The nested decoder checks its arguments as the root does, under "..._unpack_non_root".
    static constexpr bool nested_decoder_checks_arguments = false;

    // In the compact layout all scalars come before the references; elsewhere field-id order rules both.
    static constexpr bool scalars_precede_references = false;

    // The table length that the compact layout states covers the inline part and the fixed arrays only.
    static constexpr bool table_length_omits_vectors = false;

    // The size of a scalar vector with a pointer and count 0 includes its reference and count, which the
    // writer leaves out.
    static constexpr bool empty_vector_with_pointer_has_size = false;

    // Free hands the pointers of scalar vectors to the free hook even when they are null.
    static constexpr bool frees_null_scalar_arrays = false;

    static constexpr AllocationComplaint allocation_complaint = AllocationComplaint::sixteen_blanks;
};

// ---- names under which a record's operations allocate, release and log ------------------------------

template <class Record>
inline constexpr auto unpack_name = Description<Record>::name + "_unpack";
template <class Record>
inline constexpr auto nested_unpack_name = Description<Record>::name + "_unpack_non_root";
template <class Record>
inline constexpr auto free_name = Description<Record>::name + "_free_unpacked";
template <class Record>
inline constexpr auto pack_name = Description<Record>::name + "_pack";
template <class Record>
inline constexpr auto send_single_name = Description<Record>::name + "__sendsingle";
template <class Record>
inline constexpr auto send_batch_name = Description<Record>::name + "__sendbatch";

// The name of a root's decoder, once its arguments are accepted.
template <class Record>
constexpr const char* root_decoder_name() {
    if constexpr (Description<Record>::root_decodes_as_nested) {
        return nested_unpack_name<Record>.c_str();
    } else {
        return unpack_name<Record>.c_str();
    }
}

// ---- walking the fields: always inline, so that a visitor's variables stay in registers -------------------

template <class... T>
constexpr std::uint32_t length_of(List<T...> /*list*/) {
    return sizeof...(T);
}

template <class Record>
inline constexpr std::uint32_t slots = length_of(typename Description<Record>::Fields{});

template <class... F, std::size_t... id, class Visitor>
KAPLO_INLINE constexpr bool every_of(List<F...> /*list*/, std::index_sequence<id...> /*ids*/,
                                     Visitor&& visit) {
    return (visit.template operator()<F, static_cast<std::uint32_t>(id)>() && ...);
}

// Calls visit<field, id>() in field-id order until one returns false; returns whether none did.
template <class Record, class Visitor>
KAPLO_INLINE constexpr bool every_field(Visitor&& visit) {
    return every_of(typename Description<Record>::Fields{}, std::make_index_sequence<slots<Record>>{}, visit);
}

// Calls visit<field, id>() for all fields in field-id order.
template <class Record, class Visitor>
KAPLO_INLINE constexpr void each_field(Visitor&& visit) {
    every_field<Record>([&]<class F, std::uint32_t id>() KAPLO_INLINE {
        visit.template operator()<F, id>();
        return true;
    });
}

// Calls visit<i>() for all i below `count`.
template <std::uint32_t count, class Visitor>
KAPLO_INLINE constexpr void each_index(Visitor&& visit) {
    [&]<std::size_t... i>(std::index_sequence<i...> /*indices*/) KAPLO_INLINE {
        (visit.template operator()<static_cast<std::uint32_t>(i)>(), ...);
    }
    (std::make_index_sequence<count>{});
}

template <std::uint32_t id, class... F>
std::tuple_element_t<id, std::tuple<F...>> field_of(List<F...> /*list*/);

// The record's field `id`.
template <class Record, std::uint32_t id>
using FieldAt = decltype(field_of<id>(typename Description<Record>::Fields{}));

template <Kind... kinds>
constexpr bool is_one_of(Kind kind) {
    return ((kind == kinds) || ...);
}

template <class Record, Kind... kinds>
constexpr bool has_field_of() {
    return !every_field<Record>([]<class F, std::uint32_t id> { return !is_one_of<kinds...>(F::kind); });
}

// How many of the record's fields before field `end` are references in its table.
template <class Record>
constexpr std::uint32_t references_before(std::uint32_t end) {
    std::uint32_t count = 0;
    each_field<Record>([&]<class F, std::uint32_t id> { count += F::kind != Kind::scalar && id < end; });
    return count;
}

// How many of the record's fields are scalars.
template <class Record>
inline constexpr std::uint32_t scalars = slots<Record> - references_before<Record>(slots<Record>);

// Where each field starts in the record, in field-id order as soon as its alignment allows; at last, the
// size.
template <class Record>
inline constexpr std::array<std::uint32_t, slots<Record> + 1> record_layout = [] {
    std::array<std::uint32_t, slots<Record> + 1> offsets = {};
    std::uint32_t next = 0;
    const auto add = [&next](std::size_t size, std::size_t alignment) {
        const std::uint32_t start = round_up(next, static_cast<std::uint32_t>(alignment));
        next = start + static_cast<std::uint32_t>(size);
        return start;
    };
    each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (is_one_of<Kind::scalar_vector, Kind::table_vector>(F::kind)) {
            offsets[id] = add(sizeof(std::uint32_t), alignof(std::uint32_t));  // the count
            add(sizeof(void*), alignof(void*));
        } else {
            offsets[id] = add(sizeof(typename F::Member), alignof(typename F::Member));
        }
    });
    offsets.back() = round_up(next, alignof(Record));
    return offsets;
}();

template <class Record, std::uint32_t id>
constexpr std::uint32_t offset_in_record() {
    static_assert(record_layout<Record>.back() == sizeof(Record), "the members are in field-id order");
    return record_layout<Record>[id];
}

// Whether each byte of the record belongs to a field.
template <class Record>
inline constexpr bool has_no_padding = std::has_unique_object_representations_v<Record>;

// Unpack allocates arrays for the record, and free releases them.
template <class Record>
inline constexpr bool owns_memory = has_field_of<Record, Kind::scalar_vector, Kind::table_vector>();

template <class Record>
inline constexpr bool has_vectors = owns_memory<Record> || has_field_of<Record, Kind::fixed_array>();

// A record with memory is cleared as soon as there is one to clear: the bus frees it even after a fault.
template <class Record>
inline constexpr bool cleared_before_header_checks =
    Description<Record>::root_decodes_as_nested || owns_memory<Record>;

// Release walks the vectors of the root record only.
template <class Record>
inline constexpr bool nests_no_memory = every_field<Record>([]<class F, std::uint32_t id> {
    if constexpr (is_one_of<Kind::nested_table, Kind::table_vector>(F::kind)) {
        return !owns_memory<typename F::Element>;
    } else {
        return true;
    }
});

template <class Record>
inline constexpr std::uint32_t vtable_bytes = kVtableHeaderBytes + kSlotBytes* slots<Record>;

// Of the vtable and the soffset, which the compact layout puts side by side.
template <class Record>
inline constexpr std::uint32_t header_bytes = vtable_bytes<Record> + kReferenceBytes;

// The numbers of the record's vtable, ready to be stored unchanged.
template <class Record, ByteOrder order>
inline constexpr std::uint16_t vtable_length_entry = in_full<order>(vtable_bytes<Record>);
template <class Record, ByteOrder order>
constexpr std::uint16_t table_length_entry(std::uint32_t length) {
    return has_vectors<Record> ? in_full<order>(length) : in_short<order>(length);
}
template <ByteOrder order>
constexpr std::uint16_t slot_entry(std::uint32_t offset) {
    return in_short<order>(offset);
}

// Bytes that a fixed array's reference leads to: its count and its elements.
template <class F>
inline constexpr std::uint32_t fixed_array_bytes = kCountBytes + sizeof(typename F::Member);

// ---- the fixed image ---------------------------------------------------------------------------------

// The image of a record: reference, table with every field at its own offset, vtable, and padding to a
// multiple of 8. Positions count from the table, which starts after the reference.
template <class Record>
struct Image {
    static_assert(!owns_memory<Record>, "a record with vectors has no fixed image");

    template <class F>
    static constexpr std::uint32_t width() {
        if constexpr (F::kind == Kind::scalar) {
            return sizeof(typename F::Member);
        } else if constexpr (F::kind == Kind::fixed_array) {
            return kReferenceBytes + fixed_array_bytes<F>;
        } else {
            return Image<typename F::Element>::bytes;
        }
    }

    static constexpr std::array<std::uint32_t, slots<Record>> offsets = [] {
        std::array<std::uint32_t, slots<Record>> result = {};
        std::uint32_t next = kReferenceBytes;
        each_field<Record>([&]<class F, std::uint32_t id> {
            result[id] = next;
            next += width<F>();
        });
        return result;
    }();
    static constexpr std::uint32_t table_length = [] {
        std::uint32_t length = kReferenceBytes;
        each_field<Record>([&]<class F, std::uint32_t id> { length += width<F>(); });
        return length;
    }();
    static constexpr std::uint32_t vtable = round_up(table_length, 4);
    static constexpr std::uint32_t vtable_in_image = kRootTableAt + vtable;
    static constexpr std::uint32_t bytes = round_up(vtable_in_image + vtable_bytes<Record>, 8);
};

}  // namespace kaplo

#endif
