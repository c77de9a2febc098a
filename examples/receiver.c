/* SPDX-License-Identifier: Apache-2.0 */
/* A process that receives: receiver ADDRESS COUNT prints COUNT messages, then ends. VORN_BUS_URL names the
 * bus. */
#include <inttypes.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include "nac/nac_messages.h"
#include "vorn/vorn_bus.h"

static uint32_t arrived = 0;

/* Runs inside vorn_bus_poll. The record is valid until it returns. */
static void on_set_port(const vorn_bus_message* message, void* context) {
    const Nac_SetPortMsg* record = message->record;
    (void)context;
    ++arrived;
    printf("Nac_SetPortMsg f0=%" PRIu32 " f1=%" PRIu32 " from address %" PRIu32 "\n", record->f0, record->f1,
           message->source);
}

static int fail(const char* what, int32_t result) {
    fprintf(stderr, "receiver: %s: %s\n", what, vorn_bus_result_text(result));
    return 3;
}

int main(int argc, char** argv) {
    vorn_bus_options options = vorn_bus_options_init();
    vorn_bus* bus = NULL;
    struct pollfd waiting;
    uint32_t expected;
    int32_t result;

    if (argc != 3) {
        fprintf(stderr, "usage: receiver ADDRESS COUNT\n");
        return 2;
    }
    options.address = (uint32_t)strtoul(argv[1], NULL, 10);
    expected = (uint32_t)strtoul(argv[2], NULL, 10);

    result = nac_fwm_port_recv_init(); /* the module whose messages this process takes */
    if (result != 0) return fail("registration", result);
    result = vorn_bus_open(&options, &bus);
    if (result != VORN_BUS_OK) return fail("open", result);
    vorn_bus_handle(bus, Nac_SetPortMsg_ID, on_set_port, NULL);

    /* The process's own loop: it could wait for other descriptors too. */
    waiting.fd = vorn_bus_descriptor(bus);
    waiting.events = POLLIN;
    while (arrived < expected) {
        if (poll(&waiting, 1, 10000) == 0) {
            fprintf(stderr, "receiver: nothing came for ten seconds\n");
            break;
        }
        result = vorn_bus_poll(bus, 0, 0, NULL);
        if (result != VORN_BUS_OK) return fail("poll", result);
    }
    vorn_bus_close(bus);
    return arrived >= expected ? 0 : 1;
}
