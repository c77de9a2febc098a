// SPDX-License-Identifier: Apache-2.0
// The end of a test program that cannot go on: its own mistake, or a system without means.
#ifndef TESTS_SUPPORT_GIVE_UP_H
#define TESTS_SUPPORT_GIVE_UP_H

#include <cstdio>
#include <cstdlib>
#include <string>

namespace tests {

[[noreturn]] inline void give_up(const std::string& why) {
    static_cast<void>(std::fprintf(stderr, "the test cannot go on: %s\n", why.c_str()));
    std::abort();
}

}  // namespace tests

#endif
