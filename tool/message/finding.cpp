// SPDX-License-Identifier: Apache-2.0
#include "tool/message/finding.h"

#include <fmt/format.h>

namespace tool {

Finding find_faults(const MessageType& type, std::span<const std::uint8_t> bytes) {
    Finding finding;
    if (!is_buffer_size(bytes.size())) {
        finding.is_buffer = false;
        finding.logged = type.refuse(bytes);
        return finding;
    }
    finding.walk = walk(*type.shape, bytes);
    if (!finding.is_whole()) finding.logged = type.decode(bytes).faults;
    return finding;
}

std::string summary_of(const Finding& finding) {
    if (!finding.is_buffer) {
        return fmt::format("no message, which has {} to {} bytes", kaplo::kShortestBuffer,
                           kaplo::kLongestBuffer);
    }
    const char* const verdict = finding.is_whole()                                   ? "ok"
                                : finding.walk.outcome == kaplo::Outcome::bad_header ? "damaged in its header"
                                                                                     : "damaged in a field";
    return fmt::format("{}, {}", text_of(finding.walk.layout), verdict);
}

std::string fault_text(const Fault& fault) {
    return fmt::format("at {}, {} of {}: {}", fault.at,
                       fault.field == nullptr && fault.path.empty() ? "header"
                       : fault.field == nullptr                     ? fault.path + " header"
                                                                    : fault.path,
                       fault.table->name, fault.what);
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
    return {{"type", type.name},
            {"id", type.id},
            {"bytes", bytes.size()},
            {"layout", finding.is_buffer ? Json(text_of(finding.walk.layout)) : Json(nullptr)},
            {"verdict", finding.verdict()},
            {"faults", std::move(faults)},
            {"more_faults", finding.walk.more_faults},
            {"log", finding.logged}};
}

}  // namespace tool
