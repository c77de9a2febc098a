// SPDX-License-Identifier: Apache-2.0
// What the units of a module begin with: the declarations of its functions, and a state of their own.
#ifndef KAPLO_UNIT_H
#define KAPLO_UNIT_H

#include "bus/message_functions.h"
#include "runtime/kaplo_runtime.h"

// `priority` is that of the start-up constructor: units start in this order, however they are linked.
#define VORN_UNIT(prefix, priority)                                     \
    extern "C" {                                                        \
    VORN_MODULE_FUNCTIONS(prefix);                                      \
    }                                                                   \
    namespace {                                                         \
    constinit kaplo::Unit unit;                                         \
    [[gnu::constructor(priority)]] void start_up() { unit.start_up(); } \
    }

#endif
