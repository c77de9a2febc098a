// SPDX-License-Identifier: Apache-2.0
#include "tool/message/described_package.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <exception>
#include <span>
#include <stdexcept>

#include "tool/io/line_reader.h"
#include "tool/show/shown.h"

namespace tool {
namespace {

// In the order of vorn_kind and vorn_display.
constexpr std::array kForms = {"scalar", "fixed array", "nested table", "scalar vector", "table vector"};
constexpr std::array kDisplays = {
    "number", "hardware address", "IPv6 address", "hexadecimal", "numbers", "table", "tables"};

constexpr std::size_t kMostTypes = 1024;
constexpr std::uint32_t kFirstSlot = 4;  // in the vtable
constexpr std::uint32_t kSlotBytes = 2;

Json number_or_null(bool exists, std::uint32_t number) { return exists ? Json(number) : Json(nullptr); }

Json field_json(const Field& field) {
    const bool in_image = field.image_offset != VORN_NO_OFFSET;
    return {{"name", field.name},
            {"kind", field.type_name},
            {"form", kForms.at(field.kind)},
            {"display", kDisplays.at(field.display)},
            {"element_bytes", field.element_bytes},
            {"count", field.count},
            {"table", field.table != nullptr ? Json(field.table->name) : Json(nullptr)},
            {"record_offset", field.record_offset},
            {"count_offset", number_or_null(field.count_offset != VORN_NO_OFFSET, field.count_offset)},
            {"slot", field.slot},
            {"image_offset", number_or_null(in_image, kTableInImage + field.image_offset)},
            {"image_bytes", number_or_null(in_image, field.image_bytes)}};
}

// A name as sources have it; null is none.
std::string name_from(const Json& value) {
    constexpr std::size_t kLongest = 200;
    std::string name = value.is_null() ? std::string() : value.get<std::string>();
    if (name.size() > kLongest) throw std::invalid_argument(shortened(name) + " is no name");
    return name;
}

DescribedField described_field(const Json& field, std::size_t number) {
    const auto* const form = std::find(kForms.begin(), kForms.end(), field.at("form").get<std::string>());
    DescribedField described = {name_from(field.at("name")),
                                name_from(field.at("kind")),
                                static_cast<vorn_kind>(form - kForms.begin()),
                                field.at("element_bytes"),
                                field.at("count"),
                                name_from(field.at("table"))};
    const bool has_table =
        described.form == VORN_KIND_NESTED_TABLE || described.form == VORN_KIND_TABLE_VECTOR;
    if (form == kForms.end() || has_table == described.table.empty()) {
        throw std::invalid_argument(fmt::format("its field {} has no known form", number));
    }
    if (field.at("slot") != kFirstSlot + kSlotBytes * number) {
        throw std::invalid_argument(fmt::format("its field {} is not in the order of slots", number));
    }
    return described;
}

}  // namespace

Json description_json(const MessageType& type) {
    const bool is_message = type.module != nullptr;
    const bool has_image = type.image_bytes != 0;
    Json object = {
        {"name", type.name},
        {"module", is_message ? Json(type.module) : Json(nullptr)},
        {"id", number_or_null(is_message, type.id)},
        {"record_bytes", type.record_bytes},
        {"vtable_bytes", type.vtable_bytes},
        {"image_bytes", number_or_null(has_image, type.image_bytes)},
        {"image_table_length", number_or_null(has_image, type.image_table_length)},
        {"image_vtable_offset", number_or_null(has_image, kTableInImage + type.image_vtable_offset)},
        {"fields", Json::array()}};
    for (const Field* const field : fields_of(type)) object["fields"].push_back(field_json(*field));
    return object;
}

DescribedPackage::DescribedPackage() {
    for (const MessageType* const type : all_types()) add(description_json(*type));
}

DescribedPackage::DescribedPackage(const std::string& file) {
    if (!file.ends_with(".so")) {
        read(file);
        return;
    }
    const vorn_catalogue& catalogue = load_catalogue(file);
    for (const MessageType* const type : std::span(catalogue.types, catalogue.type_count)) {
        add(description_json(*type));
    }
}

void DescribedPackage::read(const std::string& file) {
    LineReader reader(file);
    std::string line;
    while (reader.next(line)) {
        if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
        try {
            add(json_from_text(line));
        } catch (const std::exception& error) {
            throw CommandError(kBadUsage,
                               fmt::format("{}: no description as nac describe --json prints it: {}",
                                           reader.origin(), error.what()));
        }
    }
    const std::string missing = missing_table();
    if (types_.empty() || !missing.empty()) {
        throw CommandError(
            kBadUsage, fmt::format("{}: describes no {}; nac describe --json without a type describes all",
                                   file, missing.empty() ? "type" : shortened(missing)));
    }
}

const DescribedType* DescribedPackage::find(const std::string& name) const {
    const auto found = std::find_if(types_.begin(), types_.end(),
                                    [&name](const DescribedType& type) { return type.name == name; });
    return found != types_.end() ? &*found : nullptr;
}

void DescribedPackage::add(const Json& description) {
    DescribedType type = {
        name_from(description.at("name")), name_from(description.at("module")), std::nullopt, {}};
    if (!description.at("id").is_null()) type.id = description.at("id").get<std::uint32_t>();
    if (types_.size() == kMostTypes) {
        throw std::invalid_argument(
            fmt::format("more types than the {} that a package may have", kMostTypes));
    }
    if (find(type.name) != nullptr) {
        throw std::invalid_argument(fmt::format("{} is described twice", shortened(type.name)));
    }
    for (const Json& field : description.at("fields")) {
        type.fields.push_back(described_field(field, type.fields.size()));
    }
    types_.push_back(std::move(type));
}

std::string DescribedPackage::missing_table() const {
    for (const DescribedType& type : types_) {
        for (const DescribedField& field : type.fields) {
            if (!field.table.empty() && find(field.table) == nullptr) return field.table;
        }
    }
    return {};
}

}  // namespace tool
