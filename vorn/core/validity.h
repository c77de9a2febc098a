// SPDX-License-Identifier: Apache-2.0
// Whether messages are valid, as the functions answer that the process has given for it.
#ifndef VORN_VALIDITY_H
#define VORN_VALIDITY_H

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "vorn/core/envelope.h"
#include "vorn/core/support.h"

namespace vorn {

// Used by the thread that polls.
class Validity {
  public:
    void ask(std::vector<vorn_bus_verify> verifiers) { verifiers_ = std::move(verifiers); }

    // VORN_BUS_VERIFIED where one of them knows the id, with VORN_BUS_DAMAGED if the message is.
    std::uint32_t check(const Message& message, Log& log);

    // The first fault of the message that was last found damaged, in one sentence; cut where it is longer.
    const char* fault() const { return fault_.data(); }

  private:
    using Text = std::array<char, 512>;
    static std::int32_t write(const vorn_fault* fault, void* text);

    std::vector<vorn_bus_verify> verifiers_;
    Text fault_ = {};
};

}  // namespace vorn

#endif
