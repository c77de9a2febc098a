// SPDX-License-Identifier: Apache-2.0
#include "tool/message/fault_text.h"

#include <array>
#include <cstddef>

#include "inspect/vorn_inspect.h"
#include "tool/io/carried_exception.h"

namespace tool {
namespace {

constexpr std::size_t kMostFaults = 100;

struct Found {
    std::vector<std::string> texts;
    CarriedException exception;
};

std::int32_t add(const vorn_fault* fault, void* context) {
    auto& found = *static_cast<Found*>(context);
    std::array<char, 512> text = {};
    vorn_inspect_fault_text(fault, text.data(), text.size());
    found.exception.call([&] { found.texts.emplace_back(text.data()); });
    return found.texts.size() < kMostFaults ? 0 : 1;
}

}  // namespace

std::vector<std::string> fault_texts(std::uint32_t message_id, std::span<const std::uint8_t> bytes) {
    Found found;
    vorn_nac_verify(message_id, bytes.data(), static_cast<std::uint32_t>(bytes.size()), add, &found);
    found.exception.rethrow();
    return std::move(found.texts);
}

}  // namespace tool
