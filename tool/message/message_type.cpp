// SPDX-License-Identifier: Apache-2.0
#include "tool/message/message_type.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <system_error>

#include "tool/commands.h"
#include "tool/show/nearest.h"
#include "tool/show/shown.h"

namespace tool {

namespace {

std::vector<const vorn_catalogue*>& chosen_catalogues() {
    static std::vector<const vorn_catalogue*> chosen = {vorn_nac_catalogue()};
    return chosen;
}

}  // namespace

const std::vector<const vorn_catalogue*>& catalogues() { return chosen_catalogues(); }

const vorn_catalogue& load_catalogue(const std::string& file) {
    std::array<char, 1024> why = {};
    const vorn_catalogue* const catalogue = vorn_inspect_load(file.c_str(), why.data(), why.size());
    if (catalogue == nullptr) throw CommandError(kTrouble, shortened(why.data(), why.size()));
    return *catalogue;
}

void load_catalogues(const std::vector<std::string>& files) {
    std::vector<const vorn_catalogue*> loaded;
    loaded.reserve(files.size());
    for (const std::string& file : files) loaded.push_back(&load_catalogue(file));
    chosen_catalogues() = loaded;
}

const std::vector<const MessageType*>& all_types() {
    static const std::vector<const MessageType*> types = [] {
        std::vector<const MessageType*> all;
        for (const vorn_catalogue* const catalogue : catalogues()) {
            all.insert(all.end(), catalogue->types, catalogue->types + catalogue->type_count);
        }
        return all;
    }();
    return types;
}

const std::vector<const MessageType*>& message_types() {
    static const std::vector<const MessageType*> types = [] {
        std::vector<const MessageType*> all;
        for (const vorn_catalogue* const catalogue : catalogues()) {
            for (const vorn_module* const module : std::span(catalogue->modules, catalogue->module_count)) {
                all.insert(all.end(), module->messages, module->messages + module->message_count);
            }
        }
        return all;
    }();
    return types;
}

const MessageType* find_type(const std::string& name) {
    for (const vorn_catalogue* const catalogue : catalogues()) {
        const MessageType* const found = vorn_inspect_type_by_name(catalogue, name.c_str());
        if (found != nullptr) return found;
    }
    return nullptr;
}

const MessageType* find_message_type(std::uint32_t id) {
    for (const vorn_catalogue* const catalogue : catalogues()) {
        const MessageType* const found = vorn_inspect_type_by_id(catalogue, id);
        if (found != nullptr) return found;
    }
    return nullptr;
}

const MessageType* named_message_type(const std::string& text) {
    const MessageType* const type = find_type(text);
    if (type != nullptr && type->module != nullptr) return type;
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const char* const first = text.data() + (hexadecimal ? 2 : 0);
    const char* const last = text.data() + text.size();
    std::uint32_t id = 0;
    const auto [end, error] = std::from_chars(first, last, id, hexadecimal ? 16 : 10);
    return error == std::errc() && end == last ? find_message_type(id) : nullptr;
}

std::string no_such_type(const std::string& text) {
    std::vector<std::string> names;
    for (const MessageType* const type : message_types()) names.emplace_back(type->name);
    const std::string nearest = did_you_mean(text, names);
    return fmt::format("{} is not a message type{}", shortened(text),
                       nearest.empty() ? "; nac types lists them" : nearest);
}

std::string type_name(std::uint32_t id) {
    const MessageType* const type = find_message_type(id);
    return type != nullptr ? type->name : fmt::format("0x{:08X}", id);
}

}  // namespace tool
