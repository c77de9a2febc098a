// SPDX-License-Identifier: Apache-2.0
#include "tool/io/message_filter.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <optional>
#include <stdexcept>

#include "inspect/bounded_text.h"
#include "inspect/byte_text.h"
#include "tool/verb.h"

namespace tool {
namespace {

// The field at the end of the path; null: the type has none there, or a table.
const Field* field_at(const MessageType& type, const std::vector<std::string>& path) {
    const MessageType* table = &type;
    const Field* field = nullptr;
    for (const std::string& name : path) {
        if (table == nullptr) return nullptr;
        const auto fields = fields_of(*table);
        const auto found = std::find_if(fields.begin(), fields.end(),
                                        [&name](const Field* each) { return each->name == name; });
        if (found == fields.end()) return nullptr;
        field = *found;
        table = field->table;
    }
    return table == nullptr ? field : nullptr;
}

std::optional<std::uint64_t> number_of(const std::string& text) {
    char* end = nullptr;
    errno = 0;
    const unsigned long long number = std::strtoull(text.c_str(), &end, 0);
    const bool is_number =
        *end == '\0' && errno == 0 && std::isdigit(static_cast<unsigned char>(*text.c_str())) != 0;
    return is_number ? std::optional<std::uint64_t>(number) : std::nullopt;
}

// What the field holds, if no message has the value there; else empty.
std::string why_never(const Field& field, const std::string& value) {
    if (field.element_bytes == 1 && field.kind == VORN_KIND_SCALAR_VECTOR) return "";  // bytes, or their text
    if (field.element_bytes == 1 && field.kind == VORN_KIND_FIXED_ARRAY) {
        try {
            inspect::from_address(value, field.count);
            return "";
        } catch (const std::invalid_argument& error) {
            return fmt::format("holds {} bytes: {}", field.count, error.what());
        }
    }
    const std::uint64_t largest = UINT64_MAX >> (64 - 8 * field.element_bytes);
    const auto number = number_of(value);
    return number && *number <= largest ? "" : fmt::format("holds numbers from 0 to {}", largest);
}

// The id of a type that has no name here may be given too.
std::uint32_t id_of(const std::string& text) {
    if (const MessageType* const type = named_message_type(text)) return type->id;
    try {
        std::size_t used = 0;
        const unsigned long number = std::stoul(text, &used, 0);
        if (used == text.size() && number <= UINT32_MAX) return static_cast<std::uint32_t>(number);
    } catch (const std::logic_error&) {
    }
    throw CommandError(kBadUsage,
                       fmt::format("--type {}: no message type, and no id; nac types lists them", text));
}

bool is_same_bytes(const std::string& shown, const std::string& text) {
    for (const std::size_t size : {inspect::kHardwareAddressBytes, inspect::kIpv6AddressBytes}) {
        try {
            if (shown == inspect::to_address(inspect::from_address(text, size))) return true;
        } catch (const std::invalid_argument&) {
        }
    }
    const auto* const octets = reinterpret_cast<const std::uint8_t*>(text.data());
    if (shown == inspect::to_hex(std::span(octets, text.size()))) return true;
    try {
        return shown == inspect::to_hex(inspect::from_hex(text));
    } catch (const std::invalid_argument&) {
        return false;
    }
}

}  // namespace

void add_filter_options(CLI::App& verb, FilterOptions& options) {
    verb.add_option("--type", options.types, "Only messages of this type, by name or id")
        ->allow_extra_args(false);
    add_condition_options(verb, options);
}

void add_condition_options(CLI::App& verb, FilterOptions& options) {
    verb.add_option("--where", options.wheres,
                    "Only messages where a field has, or has not, a value: f0=17, f2.f1!=0,\n"
                    "f31=alice@example.org, f31=616c; of a list, one element is enough")
        ->allow_extra_args(false);
    verb.add_option("--from", options.from, "Only from this address")
        ->allow_extra_args(false)
        ->transform(bus_address());
    verb.add_option("--to", options.to, "Only to this address")
        ->allow_extra_args(false)
        ->transform(bus_address());
}

void add_packet_option(CLI::App& verb, FilterOptions& options) {
    verb.add_option("--packet", options.packets, "Only these packets of each capture: 18, 5-9, 20-")
        ->allow_extra_args(false);
}

MessageFilter::MessageFilter(const FilterOptions& options)
    : sources_(options.from.begin(), options.from.end()),
      destinations_(options.to.begin(), options.to.end()) {
    for (const std::string& type : options.types) ids_.insert(id_of(type));
    std::vector<const MessageType*> types;
    for (const MessageType* const type : message_types()) {
        if (ids_.empty() || ids_.contains(type->id)) types.push_back(type);
    }
    for (const std::string& where : options.wheres) add_condition(where, types);
    for (const std::string& packets : options.packets) add_packets(packets);
}

// Leaves of the types those whose messages can fit. A condition that no message fits is a mistake.
void MessageFilter::add_condition(const std::string& text, std::vector<const MessageType*>& types) {
    const Condition made = condition(text);
    std::string why;
    std::erase_if(types, [&](const MessageType* type) {
        const Field* const field = field_at(*type, made.path);
        if (field == nullptr) return true;
        const std::string never = why_never(*field, made.value);
        if (why.empty() && !never.empty())
            why = fmt::format("{} of {} {}", fmt::join(made.path, "."), type->name, never);
        return !never.empty();
    });
    if (types.empty()) {
        if (why.empty() && !conditions_.empty())
            why = "no message has this field and those of the other --where";
        if (why.empty())
            why = fmt::format("no message{} has such a field; nac describe TYPE lists them",
                              ids_.empty() ? "" : " of the types that are given");
        throw CommandError(kBadUsage, fmt::format("--where {}: {}", text, why));
    }
    conditions_.push_back(made);
}

void MessageFilter::add_packets(const std::string& text) {
    const std::size_t dash = text.find('-');
    const std::string last = dash == std::string::npos ? text : text.substr(dash + 1);
    const auto first = number_of(text.substr(0, dash));
    const auto end = last.empty() ? std::optional(UINT64_MAX) : number_of(last);
    if (!first || !end || *first == 0 || *first > *end) {
        throw CommandError(
            kBadUsage, fmt::format("--packet {}: no packet number from 1, and no range as 5-9 or 20-", text));
    }
    last_packet_ = packets_.empty() ? *end : std::max(last_packet_, *end);
    packets_.push_back({*first, *end});
}

bool MessageFilter::takes_packet(std::uint64_t number) const {
    return packets_.empty() ||
           std::any_of(packets_.begin(), packets_.end(), [number](const PacketRange& range) {
               return number >= range.first && number <= range.last;
           });
}

MessageFilter::Condition MessageFilter::condition(const std::string& text) {
    Condition made;
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals + 1 == text.size())
        throw CommandError(kBadUsage, fmt::format("--where {}: not FIELD=VALUE or FIELD!=VALUE", text));
    std::string path = text.substr(0, equals);
    if (!path.empty() && path.back() == '!') {
        made.differs = true;
        path.pop_back();
    }
    made.value = text.substr(equals + 1);
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t dot = std::min(path.find('.', begin), path.size());
        made.path.push_back(path.substr(begin, dot - begin));
        begin = dot + 1;
    }
    return made;
}

bool MessageFilter::is(const Json& value, const std::string& text) {
    if (value.is_number_unsigned()) {
        return number_of(text) == value.get<std::uint64_t>();
    }
    if (!value.is_string()) return false;
    const auto& shown = value.get_ref<const std::string&>();
    return shown == text || is_same_bytes(shown, text);
}

bool MessageFilter::holds(const Condition& condition, const Json& value, std::size_t depth) {
    if (value.is_array()) {
        return std::any_of(value.begin(), value.end(),
                           [&](const Json& element) { return holds(condition, element, depth); });
    }
    if (depth == condition.path.size()) {
        return !value.is_object() && is(value, condition.value) != condition.differs;
    }
    if (!value.is_object()) return false;
    const auto found = value.find(condition.path[depth]);
    return found != value.end() && holds(condition, *found, depth + 1);
}

bool MessageFilter::passes_header(std::uint32_t id, std::uint32_t source, std::uint32_t destination) const {
    return (ids_.empty() || ids_.contains(id)) && (sources_.empty() || sources_.contains(source)) &&
           (destinations_.empty() || destinations_.contains(destination));
}

bool MessageFilter::passes(std::uint32_t id, std::uint32_t source, std::uint32_t destination,
                           std::span<const std::uint8_t> bytes) const {
    if (!passes_header(id, source, destination)) return false;
    if (conditions_.empty()) return true;
    const MessageType* const type = find_message_type(id);
    return type != nullptr && fits(*type, bytes);
}

bool MessageFilter::fits(const MessageType& type, std::span<const std::uint8_t> bytes) const {
    if (conditions_.empty()) return true;
    const Unpacked unpacked(type, bytes);
    if (unpacked.verdict() == VORN_VERDICT_ARGUMENT) return false;  // too few bytes for any field
    const Json record = unpacked.json();
    return std::all_of(conditions_.begin(), conditions_.end(),
                       [&](const Condition& condition) { return holds(condition, record, 0); });
}

}  // namespace tool
