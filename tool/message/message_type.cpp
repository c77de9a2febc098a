// SPDX-License-Identifier: Apache-2.0
#include "tool/message/message_type.h"

#include <fmt/format.h>

#include <charconv>
#include <system_error>

#include "tool/show/nearest.h"
#include "tool/show/shown.h"

namespace tool {

std::span<const MessageType* const> all_types() {
    return {vorn_nac_catalogue()->types, vorn_nac_catalogue()->type_count};
}

const std::vector<const MessageType*>& message_types() {
    static const std::vector<const MessageType*> types = [] {
        std::vector<const MessageType*> all;
        const vorn_catalogue& catalogue = *vorn_nac_catalogue();
        for (const vorn_module* const module : std::span(catalogue.modules, catalogue.module_count)) {
            all.insert(all.end(), module->messages, module->messages + module->message_count);
        }
        return all;
    }();
    return types;
}

const MessageType* find_type(const std::string& name) {
    return vorn_inspect_type_by_name(vorn_nac_catalogue(), name.c_str());
}

const MessageType* find_message_type(std::uint32_t id) {
    return vorn_inspect_type_by_id(vorn_nac_catalogue(), id);
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
