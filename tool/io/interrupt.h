// SPDX-License-Identifier: Apache-2.0
// The end of a verb that would otherwise go on.
#ifndef TOOL_INTERRUPT_H
#define TOOL_INTERRUPT_H

namespace tool {

// SIGINT and SIGTERM end verbs in order from now on.
void catch_interrupts();
bool is_interrupted();
// As a signal does.
void interrupt();

}  // namespace tool

#endif
