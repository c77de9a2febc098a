/* SPDX-License-Identifier: Apache-2.0 */
/* The installed stub of a bus: a test of code that sends sees what it sends. */
#include <inttypes.h>
#include <stddef.h>
#include <stdio.h>

#include "bus/stub_bus.h"
#include "nac/nac_messages.h"

static int32_t show(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count,
                    uint64_t target, void* context) {
    (void)context;
    printf("to %" PRIu32 ", target %" PRIu64 ": %" PRIu32 " message of %" PRIu32 " bytes\n", destination,
           target, count, descriptors[0].length);
    return 0;
}

int main(void) {
    Nac_SetPortMsg message = {24, 1};
    if (Nac_SetPortMsg__sendmsg(2, &message, 1) != VORN_STUB_BUS_CLOSED) return 1;
    vorn_stub_bus_on_send(show, NULL);
    return (int)Nac_SetPortMsg__sendtomsg(2, &message, 1, 7);
}
