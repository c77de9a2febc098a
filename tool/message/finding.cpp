// SPDX-License-Identifier: Apache-2.0
#include "tool/message/finding.h"

#include <fmt/format.h>

namespace tool {

Finding find_faults(const MessageType& type, std::span<const std::uint8_t> bytes) {
    Finding finding;
    finding.walk = walk(type, bytes);
    if (!finding.is_buffer()) finding.walk.faults.clear();  // the summary says it
    if (!finding.is_whole()) finding.logged = Unpacked(type, bytes).faults();
    return finding;
}

std::string summary_of(const Finding& finding) {
    if (!finding.is_buffer()) {
        return fmt::format("no message, which has {} to {} bytes", VORN_SHORTEST_MESSAGE,
                           VORN_LONGEST_MESSAGE);
    }
    const char* const verdict = finding.is_whole()                            ? "ok"
                                : finding.walk.verdict == VORN_VERDICT_HEADER ? "damaged in its header"
                                                                              : "damaged in a field";
    return fmt::format("{}, {}", vorn_inspect_layout_text(finding.walk.layout), verdict);
}

std::string fault_text(const Fault& fault) {
    vorn_fault plain = fault;
    plain.path = fault.path.c_str();
    plain.what = fault.what.c_str();
    std::string text(vorn_inspect_fault_text(&plain, nullptr, 0), '\0');
    vorn_inspect_fault_text(&plain, text.data(), text.size() + 1);
    return text;
}

std::vector<std::string> fault_texts(const MessageType& type, std::span<const std::uint8_t> bytes) {
    std::vector<std::string> texts;
    for (const Fault& fault : walk(type, bytes).faults) texts.push_back(fault_text(fault));
    return texts;
}

Json finding_to_json(const Finding& finding, const MessageType& type, std::span<const std::uint8_t> bytes) {
    Json faults = Json::array();
    for (const Fault& fault : finding.walk.faults) {
        faults.push_back({{"at", fault.at},
                          {"bytes", fault.bytes},
                          {"table", fault.table->name},
                          {"field", fault.field != nullptr ? Json(fault.field->name) : Json(nullptr)},
                          {"path", fault.path},
                          {"what", fault.what}});
    }
    return {
        {"type", type.name},
        {"id", type.id},
        {"bytes", bytes.size()},
        {"layout", finding.is_buffer() ? Json(vorn_inspect_layout_text(finding.walk.layout)) : Json(nullptr)},
        {"verdict", finding.verdict()},
        {"faults", std::move(faults)},
        {"more_faults", finding.walk.more_faults},
        {"log", finding.logged}};
}

}  // namespace tool
