// SPDX-License-Identifier: Apache-2.0
// Records to JSON and back, by their descriptions.
//
// A record is an object of its fields: numbers, byte strings as hexadecimal text, arrays of 6 and 16 bytes as
// addresses, vectors as arrays, nested records as objects. A vector whose array was lost to a fault, a count
// beside a null pointer, is {"lost": count}.
#ifndef TOOL_RECORD_JSON_H
#define TOOL_RECORD_JSON_H

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <memory_resource>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "nac/catalogue.h"
#include "tool/message/record_text.h"

namespace tool {

using Json = nlohmann::ordered_json;  // fields keep their order

// What is wrong with a record in JSON, and where: "f6.f4: ...".
class RecordError : public std::runtime_error {
  public:
    RecordError(const std::string& field, const std::string& what)
        : std::runtime_error(field + ": " + what) {}
};

inline std::string field_name(std::uint32_t id) { return fmt::format("f{}", id); }

template <class Element>
inline constexpr bool is_byte = std::is_same_v<Element, std::uint8_t>;

template <class Record>
Json record_to_json(const Record& record) {
    Json object = Json::object();
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        using Element = typename F::Element;
        Json& value = object[field_name(id)];
        if constexpr (F::kind == kaplo::Kind::scalar) {
            value = F::in(record);
        } else if constexpr (F::kind == kaplo::Kind::nested_table) {
            value = record_to_json(F::in(record));
        } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
            if constexpr (is_byte<Element>) {
                value = to_address(F::in(record));
            } else {
                value = F::in(record);
            }
        } else if (F::count(record) != 0 && F::elements(record) == nullptr) {
            value = {{"lost", F::count(record)}};
        } else {
            const std::span elements(F::elements(record), F::count(record));
            if constexpr (is_byte<Element>) {
                value = to_hex(elements);
            } else {
                value = Json::array();
                for (const Element& element : elements) {
                    if constexpr (F::kind == kaplo::Kind::table_vector) {
                        value.push_back(record_to_json(element));
                    } else {
                        value.push_back(element);
                    }
                }
            }
        }
    });
    return object;
}

template <class Integer>
Integer integer_from_json(const Json& value, const std::string& path) {
    constexpr auto largest = std::numeric_limits<Integer>::max();
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > largest) {
        throw RecordError(path, fmt::format("{} is not an integer from 0 to {}", value.dump(), largest));
    }
    return value.get<Integer>();
}

inline const std::string& text_from_json(const Json& value, const std::string& path) {
    if (!value.is_string()) throw RecordError(path, fmt::format("{} is not a text", value.dump()));
    return value.get_ref<const std::string&>();
}

inline const Json& array_from_json(const Json& value, const std::string& path) {
    if (!value.is_array()) throw RecordError(path, fmt::format("{} is not an array", value.dump()));
    return value;
}

template <class Read>
auto bytes_from_json(const Json& value, const std::string& path, Read read) {
    try {
        return read(text_from_json(value, path));
    } catch (const std::invalid_argument& fault) {
        throw RecordError(path, fault.what());
    }
}

// Fills a zeroed record; fields that the object does not name stay zero. Arrays come from `memory`, which
// must live as long as the record. Throws RecordError; `path` is where the record stands in a larger one.
template <class Record>
void record_from_json(const Json& object, Record& record, std::pmr::memory_resource& memory,
                      const std::string& path = "") {
    if (!object.is_object()) {
        throw RecordError(path.empty() ? "record" : path.substr(0, path.size() - 1), "not an object");
    }
    for (const auto& [key, value] : object.items()) {
        const bool unknown = kaplo::every_field<Record>(
            [&name = key]<class F, std::uint32_t id> { return name != field_name(id); });
        if (unknown)
            throw RecordError(path + key,
                              fmt::format("{} has no such field", kaplo::Description<Record>::name.c_str()));
    }
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        using Element = typename F::Element;
        const auto found = object.find(field_name(id));
        if (found == object.end()) return;
        const Json& value = *found;
        const std::string here = path + field_name(id);
        if constexpr (F::kind == kaplo::Kind::scalar) {
            F::in(record) = integer_from_json<Element>(value, here);
        } else if constexpr (F::kind == kaplo::Kind::nested_table) {
            record_from_json(value, F::in(record), memory, here + ".");
        } else if constexpr (F::kind == kaplo::Kind::fixed_array && is_byte<Element>) {
            const auto bytes = bytes_from_json(value, here, [](const std::string& text) {
                return from_address(text, sizeof(typename F::Member));
            });
            std::copy(bytes.begin(), bytes.end(), F::in(record));
        } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
            constexpr std::size_t size = std::extent_v<typename F::Member>;
            if (array_from_json(value, here).size() != size) {
                throw RecordError(here, fmt::format("holds {} numbers, not {}", value.size(), size));
            }
            for (std::size_t k = 0; k < size; ++k) {
                F::in(record)[k] = integer_from_json<Element>(value[k], fmt::format("{}[{}]", here, k));
            }
        } else {
            const auto own = [&](std::size_t count) {
                F::count(record) = static_cast<std::uint32_t>(count);
                if (count == 0) return std::span<Element>();
                void* const block = memory.allocate(count * sizeof(Element), alignof(Element));
                F::elements(record) = static_cast<Element*>(block);
                std::uninitialized_value_construct_n(F::elements(record), count);
                return std::span(F::elements(record), count);
            };
            if constexpr (is_byte<Element>) {
                const auto bytes = bytes_from_json(value, here, from_hex);
                std::copy(bytes.begin(), bytes.end(), own(bytes.size()).begin());
            } else {
                const auto elements = own(array_from_json(value, here).size());
                for (std::size_t k = 0; k < elements.size(); ++k) {
                    const std::string element_path = fmt::format("{}[{}]", here, k);
                    if constexpr (F::kind == kaplo::Kind::table_vector) {
                        record_from_json(value[k], elements[k], memory, element_path + ".");
                    } else {
                        elements[k] = integer_from_json<Element>(value[k], element_path);
                    }
                }
            }
        }
    });
}

}  // namespace tool

#endif
