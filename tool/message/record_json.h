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
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory_resource>
#include <nlohmann/json.hpp>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "nac/catalogue.h"
#include "tool/message/record_text.h"
#include "tool/show/shown.h"

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

// The text of what verbs print: ASCII, with what is no UTF-8 replaced, so that no text of others reaches a
// terminal.
std::string json_text(const Json& json);

// Deeper than any record, and shallow enough for what follows the levels one by one.
inline constexpr std::size_t kMostLevels = 32;

// Reads JSON text. Throws std::invalid_argument with what is wrong and at which character.
Json json_from_text(std::string_view text);

// Takes a record value by value, in field order.
class RecordSink {
  public:
    virtual ~RecordSink() = default;
    virtual void begin_object() = 0;
    virtual void end_object() = 0;
    virtual void begin_array() = 0;
    virtual void end_array() = 0;
    virtual void key(std::string_view name) = 0;
    virtual void number(std::uint64_t value) = 0;
    virtual void text(std::string_view value) = 0;
    // Vectors end before an element that would be too many.
    virtual bool is_full() { return false; }
};

// Makes Json of a record, of at most that many elements in all of its vectors.
class JsonBuilder final : public RecordSink {
  public:
    explicit JsonBuilder(std::size_t most_elements = SIZE_MAX) : elements_left_(most_elements) {}
    void begin_object() override { open(Json::object()); }
    void end_object() override { open_.pop_back(); }
    void begin_array() override { open(Json::array()); }
    void end_array() override { open_.pop_back(); }
    void key(std::string_view name) override { key_ = name; }
    void number(std::uint64_t value) override { add(value); }
    void text(std::string_view value) override { add(std::string(value)); }
    bool is_full() override { return elements_left_ == 0 || --elements_left_ == 0; }
    Json take() { return std::move(root_); }

  private:
    Json& add(Json value);
    void open(Json container) { open_.push_back(&add(std::move(container))); }

    Json root_;
    std::vector<Json*> open_;
    std::string key_;
    std::size_t elements_left_;
};

// Writes a record as JSON text, piece by piece, in memory that does not grow with the record.
class JsonWriter final : public RecordSink {
  public:
    using Put = std::function<void(std::string_view)>;
    explicit JsonWriter(Put put) : put_(std::move(put)) {}
    void begin_object() override { begin('{'); }
    void end_object() override { end('}'); }
    void begin_array() override { begin('['); }
    void end_array() override { end(']'); }
    void key(std::string_view name) override;
    void number(std::uint64_t value) override;
    void text(std::string_view value) override;  // of characters that need no escape
    void flush();

  private:
    void begin(char bracket);
    void end(char bracket);
    void separate();

    Put put_;
    std::string piece_;
    bool is_first_ = true;  // in its object or array, or after its key
};

template <class Record>
void visit_record(const Record& record, RecordSink& sink) {
    sink.begin_object();
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        using Element = typename F::Element;
        sink.key(field_name(id));
        const auto visit_numbers = [&sink](const auto& elements) {
            sink.begin_array();
            for (const auto element : elements) {
                if (sink.is_full()) break;
                sink.number(element);
            }
            sink.end_array();
        };
        if constexpr (F::kind == kaplo::Kind::scalar) {
            sink.number(F::in(record));
        } else if constexpr (F::kind == kaplo::Kind::nested_table) {
            visit_record(F::in(record), sink);
        } else if constexpr (F::kind == kaplo::Kind::fixed_array) {
            if constexpr (is_byte<Element>) {
                sink.text(to_address(F::in(record)));
            } else {
                visit_numbers(F::in(record));
            }
        } else if (F::count(record) != 0 && F::elements(record) == nullptr) {
            sink.begin_object();
            sink.key("lost");
            sink.number(F::count(record));
            sink.end_object();
        } else {
            const std::span elements(F::elements(record), F::count(record));
            if constexpr (is_byte<Element>) {
                sink.text(to_hex(elements));
            } else if constexpr (F::kind == kaplo::Kind::table_vector) {
                sink.begin_array();
                for (const Element& element : elements) {
                    if (sink.is_full()) break;
                    visit_record(element, sink);
                }
                sink.end_array();
            } else {
                visit_numbers(elements);
            }
        }
    });
    sink.end_object();
}

template <class Record>
Json record_to_json(const Record& record) {
    JsonBuilder builder;
    visit_record(record, builder);
    return builder.take();
}

template <class Integer>
Integer integer_from_json(const Json& value, const std::string& path) {
    constexpr auto largest = std::numeric_limits<Integer>::max();
    if (!value.is_number_unsigned() || value.get<std::uint64_t>() > largest) {
        throw RecordError(
            path, fmt::format("{} is not an integer from 0 to {}", shortened(json_text(value)), largest));
    }
    return value.get<Integer>();
}

inline const std::string& text_from_json(const Json& value, const std::string& path) {
    if (!value.is_string())
        throw RecordError(path, fmt::format("{} is not a text", shortened(json_text(value))));
    return value.get_ref<const std::string&>();
}

inline const Json& array_from_json(const Json& value, const std::string& path) {
    if (!value.is_array())
        throw RecordError(path, fmt::format("{} is not an array", shortened(json_text(value))));
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
// must live as long as the record. Throws RecordError; `path` is that of the record in a larger one.
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
            throw RecordError(path + shortened(key),
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
