// SPDX-License-Identifier: Apache-2.0
#include "tool/io/message_filter.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <stdexcept>

#include "inspect/bounded_text.h"
#include "inspect/byte_text.h"
#include "tool/verb.h"

namespace tool {
namespace {

bool has_path(const MessageType& type, const std::vector<std::string>& path) {
    const MessageType* table = &type;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const auto fields = fields_of(*table);
        const auto found = std::find_if(fields.begin(), fields.end(),
                                        [&](const Field* field) { return field->name == path[i]; });
        if (found == fields.end()) return false;
        table = (*found)->table;
        if (i + 1 == path.size()) return table == nullptr;
        if (table == nullptr) return false;
    }
    return false;
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
    verb.add_option("--where", options.wheres,
                    "Only messages where a field has, or has not, a value: f0=17, f2.f1!=0;\n"
                    "of a list, one element is enough")
        ->allow_extra_args(false);
    verb.add_option("--from", options.from, "Only from this address")
        ->allow_extra_args(false)
        ->transform(bus_address());
    verb.add_option("--to", options.to, "Only to this address")
        ->allow_extra_args(false)
        ->transform(bus_address());
}

MessageFilter::MessageFilter(const FilterOptions& options)
    : sources_(options.from.begin(), options.from.end()),
      destinations_(options.to.begin(), options.to.end()) {
    for (const std::string& type : options.types) ids_.insert(id_of(type));
    for (const std::string& where : options.wheres) {
        conditions_.push_back(condition(where));
        const auto& types = message_types();
        const bool exists = std::any_of(types.begin(), types.end(), [&](const auto& type) {
            return (ids_.empty() || ids_.contains(type->id)) && has_path(*type, conditions_.back().path);
        });
        if (!exists) {
            throw CommandError(kBadUsage, fmt::format("--where {}: no message{} has such a field", where,
                                                      ids_.empty() ? "" : " of the types that are given"));
        }
    }
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
        char* end = nullptr;
        errno = 0;
        const unsigned long long number = std::strtoull(text.c_str(), &end, 0);
        return *end == '\0' && errno == 0 && text.front() != '-' && value.get<std::uint64_t>() == number;
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

bool MessageFilter::passes(std::uint32_t id, std::uint32_t source, std::uint32_t destination,
                           std::span<const std::uint8_t> bytes) const {
    if (!ids_.empty() && !ids_.contains(id)) return false;
    if (!sources_.empty() && !sources_.contains(source)) return false;
    if (!destinations_.empty() && !destinations_.contains(destination)) return false;
    if (conditions_.empty()) return true;
    const MessageType* const type = find_message_type(id);
    if (type == nullptr) return false;
    const Unpacked unpacked(*type, bytes);
    if (unpacked.verdict() == VORN_VERDICT_ARGUMENT) return false;  // too few bytes for any field
    const Json record = unpacked.json();
    return std::all_of(conditions_.begin(), conditions_.end(),
                       [&](const Condition& condition) { return holds(condition, record, 0); });
}

}  // namespace tool
