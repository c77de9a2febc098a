// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/futex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <ctime>

namespace vorn {

void wait_while(const std::atomic<std::uint32_t>& number, std::uint32_t value, Deadline deadline) {
    const auto left = std::max(deadline - Clock::now(), Clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    timespec time = {};
    time.tv_sec = static_cast<time_t>(seconds.count());
    time.tv_nsec = static_cast<long>(std::chrono::nanoseconds(left - seconds).count());
    static_cast<void>(syscall(SYS_futex, &number, FUTEX_WAIT, value, &time, nullptr, 0));
}

void wake_all(const std::atomic<std::uint32_t>& number) {
    static_cast<void>(syscall(SYS_futex, &number, FUTEX_WAKE, INT_MAX, nullptr, nullptr, 0));
}

}  // namespace vorn
