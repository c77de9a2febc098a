// SPDX-License-Identifier: Apache-2.0
#include "tool/io/interrupt.h"

#include <csignal>

namespace tool {
namespace {

volatile std::sig_atomic_t interrupted = 0;

}  // namespace

void catch_interrupts() {
    static_cast<void>(std::signal(SIGINT, [](int) { interrupted = 1; }));
    static_cast<void>(std::signal(SIGTERM, [](int) { interrupted = 1; }));
}

void interrupt() { interrupted = 1; }

bool is_interrupted() { return interrupted != 0; }

}  // namespace tool
