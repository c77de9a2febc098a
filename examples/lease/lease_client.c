/* SPDX-License-Identifier: Apache-2.0 */
/* A client: lease_client ADDRESS NAME asks the server at address 1 for an address, prints what it gets, and
 * ends. VORN_BUS_URL names the bus. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "lease.h"
#include "vorn/vorn_bus.h"

enum { kServer = 1 };

static int answered = 0;

static int32_t print(const char* text, size_t bytes, void* context) {
    (void)context;
    return fwrite(text, 1, bytes, stdout) == bytes ? 0 : 1;
}

/* Runs inside vorn_bus_poll. */
static void on_message(const vorn_bus_message* message, void* context) {
    const vorn_type* const type = vorn_inspect_type_by_id(vorn_lease_catalogue(), message->message_id);
    (void)context;
    answered = 1;
    printf("%s ", type->name);
    vorn_inspect_to_json(type, message->record, 100, print, NULL);
    printf("%s%s\n", message->fault != NULL ? " damaged: " : "",
           message->fault != NULL ? message->fault : "");
}

int main(int argc, char** argv) {
    uint16_t wanted[] = {15};
    Lease_Request request = {7, {0x02, 0, 0x5e, 0x10, 0, 0}, 0, NULL, 1, wanted};
    vorn_bus_options options = vorn_bus_options_init();
    vorn_bus* bus = NULL;
    uint32_t handled = 1;
    int32_t result = vorn_inspect_register_all(vorn_lease_catalogue());
    if (argc != 3) {
        fprintf(stderr, "usage: lease_client ADDRESS NAME\n");
        return 2;
    }
    options.address = (uint32_t)strtoul(argv[1], NULL, 10);
    options.send_timeout_ms = 10000; /* the server may still be starting */
    request.f1[5] = (uint8_t)options.address;
    request.f2_count = (uint32_t)strlen(argv[2]);
    request.f2 = (uint8_t*)argv[2];
    if (result == VORN_BUS_OK) result = vorn_bus_verify_with(vorn_lease_verify);
    if (result == VORN_BUS_OK) result = vorn_bus_open(&options, &bus);
    if (result == VORN_BUS_OK) result = vorn_bus_handle_all(bus, on_message, NULL);
    if (result == VORN_BUS_OK) result = (int32_t)Lease_Request__sendmsg(kServer, &request, 1);
    while (result == VORN_BUS_OK && handled != 0 && !answered)
        result = vorn_bus_poll(bus, 10000, 1, &handled);
    vorn_bus_close(bus);
    if (result != VORN_BUS_OK) fprintf(stderr, "lease_client: %s\n", vorn_bus_result_text(result));
    return result != VORN_BUS_OK ? 3 : handled != 0 ? 0 : 1; /* 1: no answer for ten seconds */
}
