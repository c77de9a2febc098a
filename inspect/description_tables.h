// SPDX-License-Identifier: Apache-2.0
// A package's catalogue, made by the compiler from its descriptions.
//
// A package is a struct: its `name`; `Functions<Record>`, with the addresses of a message's exported
// functions (bus/typed_functions.hpp); and `Modules`, a List of structs with `name`, `recv_init`,
// `send_init` and `Messages`, a List of records. catalogue_of<Package> is its vorn_catalogue.
#ifndef INSPECT_DESCRIPTION_TABLES_H
#define INSPECT_DESCRIPTION_TABLES_H

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "bus/message_id.h"
#include "inspect/bounded_text.h"
#include "inspect/type_operations.h"
#include "inspect/vorn_inspect.h"
#include "runtime/description.h"

namespace inspect {

// The list of what a macro made with a comma before each: Listed<void, A, B>.
template <class, class... T>
using Listed = kaplo::List<T...>;

// Constant text that the compiler puts together; it does not compile where there is too much of it.
struct Words {
    std::array<char, 80> characters = {};
    std::size_t length = 0;

    constexpr Words& add(const char* text) {
        while (*text != '\0') characters[length++] = *text++;
        static_cast<void>(characters[length]);
        return *this;
    }
    constexpr Words& add(std::uint32_t number) {
        if (number >= 10) add(number / 10);
        characters[length++] = static_cast<char>('0' + number % 10);
        return *this;
    }
};

template <std::uint32_t id>
inline constexpr Words field_name = Words().add("f").add(id);

template <class F>
inline constexpr Words field_type_name = [] {
    using Element = typename F::Element;
    constexpr bool is_vector =
        kaplo::is_one_of<kaplo::Kind::scalar_vector, kaplo::Kind::table_vector>(F::kind);
    Words words;
    if constexpr (is_vector) words.add("[");
    if constexpr (std::is_class_v<Element>) {
        words.add(kaplo::Description<Element>::name.c_str());
    } else {
        words.add("u").add(8 * sizeof(Element));
    }
    if constexpr (is_vector) words.add("]");
    if constexpr (F::kind == kaplo::Kind::fixed_array) {
        words.add("[").add(std::extent_v<typename F::Member>).add("]");
    }
    return words;
}();

constexpr vorn_kind kind_of(kaplo::Kind kind) {
    switch (kind) {
        case kaplo::Kind::scalar:
            return VORN_KIND_SCALAR;
        case kaplo::Kind::fixed_array:
            return VORN_KIND_FIXED_ARRAY;
        case kaplo::Kind::nested_table:
            return VORN_KIND_NESTED_TABLE;
        case kaplo::Kind::scalar_vector:
            return VORN_KIND_SCALAR_VECTOR;
        case kaplo::Kind::table_vector:
            break;
    }
    return VORN_KIND_TABLE_VECTOR;
}

template <class F>
constexpr vorn_display display_of() {
    using Element = typename F::Element;
    if constexpr (F::kind == kaplo::Kind::scalar) {
        return VORN_DISPLAY_NUMBER;
    } else if constexpr (F::kind == kaplo::Kind::nested_table) {
        return VORN_DISPLAY_TABLE;
    } else if constexpr (F::kind == kaplo::Kind::table_vector) {
        return VORN_DISPLAY_TABLES;
    } else if constexpr (!std::same_as<Element, std::uint8_t>) {
        return VORN_DISPLAY_NUMBERS;
    } else if constexpr (F::kind == kaplo::Kind::scalar_vector) {
        return VORN_DISPLAY_HEX;
    } else {
        constexpr std::size_t bytes = sizeof(typename F::Member);
        return bytes == kHardwareAddressBytes ? VORN_DISPLAY_HARDWARE_ADDRESS
               : bytes == kIpv6AddressBytes   ? VORN_DISPLAY_IPV6_ADDRESS
                                              : VORN_DISPLAY_HEX;
    }
}

template <class Package, class Record>
struct TypeTable;

template <class Package, class Record, class F, std::uint32_t id>
constexpr vorn_field make_field() {
    using Element = typename F::Element;
    vorn_field made = {};
    made.name = field_name<id>.characters.data();
    made.type_name = field_type_name<F>.characters.data();
    made.id = id;
    made.kind = kind_of(F::kind);
    made.display = display_of<F>();
    made.slot = kaplo::slot_in_vtable(id);
    made.record_offset = kaplo::offset_in_record<Record, id>();
    made.count_offset = VORN_NO_OFFSET;
    made.image_offset = VORN_NO_OFFSET;
    if constexpr (std::is_class_v<Element>) {
        made.element_bytes = kaplo::kReferenceBytes;
        made.table = &TypeTable<Package, Element>::type;
    } else {
        made.element_bytes = sizeof(Element);
    }
    if constexpr (kaplo::is_one_of<kaplo::Kind::scalar_vector, kaplo::Kind::table_vector>(F::kind)) {
        made.count_offset = made.record_offset;
        made.record_offset =
            kaplo::round_up(made.count_offset + std::uint32_t{sizeof(std::uint32_t)}, alignof(Element*));
    } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
        made.count = std::extent_v<typename F::Member>;
    } else {
        made.count = 1;
    }
    if constexpr (!kaplo::owns_memory<Record>) {
        made.image_offset = kaplo::Image<Record>::offsets[id];
        made.image_bytes = kaplo::Image<Record>::template width<F>();
    }
    return made;
}
template <class Package, class Record, class F, std::uint32_t id>
inline constexpr vorn_field field_of = make_field<Package, Record, F, id>();

template <class Package, class Record>
inline constexpr auto fields_of = [] {
    std::array<const vorn_field*, kaplo::slots<Record>> made = {};
    kaplo::each_field<Record>(
        [&]<class F, std::uint32_t id> { made[id] = &field_of<Package, Record, F, id>; });
    return made;
}();

// A message's exported functions for untyped records.
template <class Functions, class Record>
struct Untyped {
    static const Record* of(const void* record) { return static_cast<const Record*>(record); }

    static std::uint32_t pack(const void* record, std::uint8_t* buffer, std::uint32_t* length) {
        return Functions::pack(of(record), buffer, length);
    }
    static std::uint32_t unpack(const std::uint8_t* buffer, std::uint32_t length, void* record) {
        return Functions::unpack(buffer, length, static_cast<Record*>(record));
    }
    static void free_unpacked(void* record) { Functions::free(static_cast<Record*>(record)); }
    static std::uint32_t send(std::uint32_t destination, const void* records, std::uint32_t count,
                              std::uint64_t target) {
        return Functions::send_to(destination, of(records), count, target);
    }
    static std::uint32_t send_batch(std::uint32_t destination, const void* records, std::uint32_t count,
                                    std::uint64_t target) {
        return Functions::send_batch(destination, of(records), count, target);
    }
};

template <class T, class... Ts>
constexpr bool is_in(kaplo::List<Ts...> /*list*/) {
    return (std::same_as<T, Ts> || ...);
}

// The name of the module whose message it is; null: it is none.
template <class Record, class... Modules>
constexpr const char* module_of(kaplo::List<Modules...> /*modules*/) {
    const char* name = nullptr;
    ((name = is_in<Record>(typename Modules::Messages()) ? Modules::name : name), ...);
    return name;
}

template <class Package, class Record>
constexpr vorn_type make_type() {
    vorn_type made = {};
    made.name = kaplo::Description<Record>::name.c_str();
    made.module = module_of<Record>(typename Package::Modules());
    made.record_bytes = sizeof(Record);
    made.vtable_bytes = kaplo::vtable_bytes<Record>;
    if constexpr (!kaplo::owns_memory<Record>) {
        made.image_bytes = kaplo::Image<Record>::bytes;
        made.image_table_length = kaplo::Image<Record>::table_length;
        made.image_vtable_offset = kaplo::Image<Record>::vtable;
    }
    made.fields = fields_of<Package, Record>.data();
    made.field_count = kaplo::slots<Record>;
    made.root_decoder = kaplo::root_decoder_name<Record>();
    made.nested_decoder = kaplo::nested_unpack_name<Record>.c_str();
    if constexpr (module_of<Record>(typename Package::Modules()) != nullptr) {
        using Functions = Untyped<typename Package::template Functions<Record>, Record>;
        made.id = kaplo::message_id<Record>;
        made.pack = &Functions::pack;
        made.unpack = &Functions::unpack;
        made.free_unpacked = &Functions::free_unpacked;
        made.send = &Functions::send;
        made.send_batch = &Functions::send_batch;
        made.operations = &operations_of<Record>;
    }
    return made;
}

template <class Package, class Record>
struct TypeTable {
    static constexpr vorn_type type = make_type<Package, Record>();
};

// Types in order, each once.
struct TypeList {
    std::array<const vorn_type*, 1024> types = {};
    std::uint32_t count = 0;

    constexpr void add(const vorn_type* type) {
        for (std::uint32_t i = 0; i < count; ++i) {
            if (types[i] == type) return;
        }
        types[count++] = type;
    }
};

// The type, after the tables in it.
template <class Package, class Record>
constexpr void add_with_tables(TypeList& list) {
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (std::is_class_v<typename F::Element>)
            add_with_tables<Package, typename F::Element>(list);
    });
    list.add(&TypeTable<Package, Record>::type);
}

template <class Package, bool with_tables, class... Records>
constexpr void add_messages(TypeList& list, kaplo::List<Records...> /*messages*/) {
    if constexpr (with_tables) {
        (add_with_tables<Package, Records>(list), ...);
    } else {
        (list.add(&TypeTable<Package, Records>::type), ...);
    }
}

template <class Package, bool with_tables, class... Modules>
constexpr TypeList all_types(kaplo::List<Modules...> /*modules*/) {
    TypeList list;
    (add_messages<Package, with_tables>(list, typename Modules::Messages()), ...);
    return list;
}

template <std::uint32_t count>
constexpr std::array<const vorn_type*, count> first_of(const TypeList& list) {
    std::array<const vorn_type*, count> made = {};
    std::copy_n(list.types.begin(), count, made.begin());
    return made;
}

// The lists of a package, as arrays of their lengths.
template <class Package>
inline constexpr auto types_of = first_of<all_types<Package, true>(typename Package::Modules()).count>(
    all_types<Package, true>(typename Package::Modules()));

template <class Package>
inline constexpr auto messages_by_id_of = [] {
    constexpr std::uint32_t count = all_types<Package, false>(typename Package::Modules()).count;
    auto messages = first_of<count>(all_types<Package, false>(typename Package::Modules()));
    std::sort(messages.begin(), messages.end(),
              [](const vorn_type* a, const vorn_type* b) { return a->id < b->id; });
    return messages;
}();

template <class Package, class... Records>
constexpr auto messages_of(kaplo::List<Records...> /*messages*/) {
    return std::array<const vorn_type*, sizeof...(Records)>{&TypeTable<Package, Records>::type...};
}
template <class Package, class Module>
inline constexpr auto messages_of_module = messages_of<Package>(typename Module::Messages());

template <class Package, class Module>
inline constexpr vorn_module module_table = {
    Module::name,
    Module::recv_init,
    Module::send_init,
    messages_of_module<Package, Module>.data(),
    static_cast<std::uint32_t>(messages_of_module<Package, Module>.size()),
    0};

template <class Package, class... Modules>
constexpr auto make_modules(kaplo::List<Modules...> /*modules*/) {
    return std::array<const vorn_module*, sizeof...(Modules)>{&module_table<Package, Modules>...};
}
template <class Package>
inline constexpr auto modules_of = make_modules<Package>(typename Package::Modules());

template <class Package>
std::int32_t verify_message(std::uint32_t message_id, const std::uint8_t* bytes, std::uint32_t length,
                            vorn_fault_handler on_fault, void* context);

template <class Package>
inline constexpr vorn_catalogue catalogue_of = {Package::name,
                                                types_of<Package>.data(),
                                                static_cast<std::uint32_t>(types_of<Package>.size()),
                                                static_cast<std::uint32_t>(modules_of<Package>.size()),
                                                modules_of<Package>.data(),
                                                messages_by_id_of<Package>.data(),
                                                static_cast<std::uint32_t>(messages_by_id_of<Package>.size()),
                                                VORN_TABLES_VERSION,
                                                &verify_message<Package>};

template <class Package>
std::int32_t verify_message(std::uint32_t message_id, const std::uint8_t* bytes, std::uint32_t length,
                            vorn_fault_handler on_fault, void* context) {
    const vorn_type* const type = vorn_inspect_type_by_id(&catalogue_of<Package>, message_id);
    if (type == nullptr) return -1;
    return vorn_inspect_verify(type, bytes, length, on_fault, context) == VORN_VERDICT_VALID ? 0 : 1;
}

}  // namespace inspect

#endif
