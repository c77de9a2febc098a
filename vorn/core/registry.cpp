// SPDX-License-Identifier: Apache-2.0
#include "vorn/core/registry.h"

#include <algorithm>

namespace vorn {

Registry& Registry::instance() {
    // Never destroyed: modules may send while the process ends.
    static auto* const registry = new Registry;
    return *registry;
}

Result Registry::add(std::uint32_t message_id, const Registered& functions) {
    if (functions.unpack == nullptr || functions.free_unpacked == nullptr) return VORN_BUS_BAD_ARGUMENT;
    const std::lock_guard locked(lock_);
    by_id_[message_id] = functions;
    version_.fetch_add(1, std::memory_order_release);
    return VORN_BUS_OK;
}

Result Registry::add_verifier(vorn_bus_verify verify) {
    if (verify == nullptr) return VORN_BUS_BAD_ARGUMENT;
    const std::lock_guard locked(lock_);
    if (std::find(verifiers_.begin(), verifiers_.end(), verify) == verifiers_.end())
        verifiers_.push_back(verify);
    version_.fetch_add(1, std::memory_order_release);
    return VORN_BUS_OK;
}

Result Registry::add_clean(VORN_IDLResourceCleanFunc function) {
    if (function == nullptr) return VORN_BUS_BAD_ARGUMENT;
    const std::lock_guard locked(lock_);
    if (std::find(cleans_.begin(), cleans_.end(), function) == cleans_.end()) cleans_.push_back(function);
    return VORN_BUS_OK;
}

void Registry::clean() const {
    std::vector<VORN_IDLResourceCleanFunc> cleans;
    {
        const std::lock_guard locked(lock_);
        cleans = cleans_;
    }
    for (const VORN_IDLResourceCleanFunc function : cleans) function();
}

std::unordered_map<std::uint32_t, Registered> Registry::copy() const {
    const std::lock_guard locked(lock_);
    return by_id_;
}

std::vector<vorn_bus_verify> Registry::verifiers() const {
    const std::lock_guard locked(lock_);
    return verifiers_;
}

}  // namespace vorn
