/* SPDX-License-Identifier: Apache-2.0 */
/* A bus for unit tests: the four functions of bus/vorn_bus_api.h in a static library without dependencies, so
 * that a test of code that packs, unpacks or sends needs no functions of its own and no bus.
 *
 * Registrations are accepted and forgotten. A send goes to the test's function; until there is one, it
 * returns VORN_STUB_BUS_CLOSED, as libvorn_bus does where no bus is open. */
#ifndef VORN_STUB_BUS_H
#define VORN_STUB_BUS_H

#include <stdint.h>

#include "bus/vorn_bus_api.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VORN_STUB_BUS_CLOSED 1

/* One call of the bus. Its bytes are valid until the function returns, whose result is the send's. `target`
 * is 0 where the sender gave none. */
typedef int32_t (*vorn_stub_bus_send)(uint32_t destination, const VORN_SendDescriptor* descriptors,
                                      uint32_t count, uint64_t target, void* context);

/* From now on sends go there, from whichever thread they come; null: nowhere. Not while another thread sends.
 */
void vorn_stub_bus_on_send(vorn_stub_bus_send on_send, void* context);

#ifdef __cplusplus
}
#endif

#endif
