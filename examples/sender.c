/* SPDX-License-Identifier: Apache-2.0 */
/* A process that sends: sender ADDRESS sends four messages, one singly and three as a batch. VORN_BUS_URL
 * names the bus. */
#include <stdio.h>
#include <stdlib.h>

#include "nac/nac_messages.h"
#include "runtime/zeb_osal_api.h"
#include "vorn/vorn_bus.h"

/* This host's allocator. It is found by name, since vorn_host exports it. */
static unsigned long allocations = 0;

void* ZEB_OsalMemAlloc(uint32_t size, uint32_t owner_code, const char* caller) {
    (void)owner_code;
    (void)caller;
    ++allocations;
    return malloc(size);
}

void ZEB_OsalMemFree(void* block, uint32_t owner_code, const char* caller) {
    (void)owner_code;
    (void)caller;
    free(block);
}

static int fail(const char* what, uint32_t result) {
    fprintf(stderr, "sender: %s: %s\n", what, vorn_bus_result_text((int32_t)result));
    return 3;
}

int main(int argc, char** argv) {
    const Nac_SetPortMsg one = {24, 1};
    const Nac_SetPortMsg three[3] = {{25, 1}, {26, 0}, {27, 1}};
    vorn_bus_options options = vorn_bus_options_init();
    vorn_bus* bus = NULL;
    uint32_t destination;
    uint32_t result;

    if (argc != 2) {
        fprintf(stderr, "usage: sender ADDRESS\n");
        return 2;
    }
    destination = (uint32_t)strtoul(argv[1], NULL, 10);
    options.address = 1;
    options.send_timeout_ms = 10000; /* the receiver may still be starting */

    result = (uint32_t)vorn_bus_open(&options, &bus);
    if (result != VORN_BUS_OK) return fail("open", result);
    result = Nac_SetPortMsg__sendmsg(destination, &one, 1);
    if (result != VORN_BUS_OK) return fail("send", result);
    result = Nac_SetPortMsg__sendmsg(destination, three, 3); /* all three arrive together, or none */
    if (result != VORN_BUS_OK) return fail("send of three", result);

    /* Accepted is not yet handled: a process that ends waits. */
    result = (uint32_t)vorn_bus_flush(bus, 10000);
    vorn_bus_close(bus);
    if (result != VORN_BUS_OK) return fail("flush", result);
    printf("4 records handled; the host's allocator was called %lu times\n", allocations);
    return 0;
}
