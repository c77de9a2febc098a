// SPDX-License-Identifier: Apache-2.0
// What the modules of this process have registered. One for all buses: it is about code, not about addresses.
#ifndef VORN_REGISTRY_H
#define VORN_REGISTRY_H

#include <atomic>
#include <cstdint>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "vorn/core/support.h"

namespace vorn {

struct Registered {
    VORN_IDLUnpackFunc unpack;
    VORN_IDLFreeFunc free_unpacked;
};

class Registry {
  public:
    static Registry& instance();

    // Whoever registers an id again replaces the pair.
    Result add(std::uint32_t message_id, const Registered& functions);
    Result add_clean(VORN_IDLResourceCleanFunc function);
    Result add_verifier(vorn_bus_verify verify);

    // Calls each once, in the order of registration, outside of the lock.
    void clean() const;

    // Changes with every registration, so that readers can keep a copy.
    std::uint64_t version() const { return version_.load(std::memory_order_acquire); }
    std::unordered_map<std::uint32_t, Registered> copy() const;
    std::vector<vorn_bus_verify> verifiers() const;

  private:
    mutable std::mutex lock_;
    std::unordered_map<std::uint32_t, Registered> by_id_;
    std::vector<VORN_IDLResourceCleanFunc> cleans_;
    std::vector<vorn_bus_verify> verifiers_;
    std::atomic<std::uint64_t> version_ = 1;
};

}  // namespace vorn

#endif
