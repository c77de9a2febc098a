// SPDX-License-Identifier: Apache-2.0
// Waiting for a number in memory that processes share.
#ifndef VORN_FUTEX_H
#define VORN_FUTEX_H

#include <atomic>
#include <cstdint>

#include "vorn/core/support.h"

namespace vorn {

// Waits while the number is `value`, at most until the deadline; may return before.
void wait_while(const std::atomic<std::uint32_t>& number, std::uint32_t value, Deadline deadline);
void wake_all(const std::atomic<std::uint32_t>& number);

}  // namespace vorn

#endif
