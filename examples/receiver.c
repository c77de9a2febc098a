/* SPDX-License-Identifier: Apache-2.0 */
/* A process that receives: receiver ADDRESS COUNT prints COUNT messages of any type, the damaged ones with
 * what is wrong, then ends. VORN_BUS_URL names the bus. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "inspect/vorn_inspect.h"
#include "vorn/vorn_bus.h"

static uint32_t arrived = 0;

static int32_t print(const char* text, size_t bytes, void* context) {
    (void)context;
    return fwrite(text, 1, bytes, stdout) == bytes ? 0 : 1;
}

/* Runs inside vorn_bus_poll. The message is valid until it returns. */
static void on_message(const vorn_bus_message* message, void* context) {
    const vorn_type* type = vorn_inspect_type_by_id(vorn_nac_catalogue(), message->message_id);
    (void)context;
    ++arrived;
    printf("%s from address %" PRIu32 ": ", type->name, message->source);
    if (message->fault != NULL) {
        printf("damaged: %s", message->fault);
    } else {
        vorn_inspect_to_json(type, message->record, 100, print, NULL);
    }
    printf("\n");
}

static int usage(void) {
    fprintf(stderr, "usage: receiver ADDRESS COUNT\n");
    return 2;
}

int main(int argc, char** argv) {
    vorn_bus_options options = vorn_bus_options_init();
    vorn_bus* bus = NULL;
    uint32_t handled = 1;
    int32_t result = vorn_inspect_register_all(vorn_nac_catalogue());
    if (argc != 3) return usage();
    options.address = (uint32_t)strtoul(argv[1], NULL, 10);
    if (result == VORN_BUS_OK) result = vorn_bus_verify_with(vorn_nac_verify);
    if (result == VORN_BUS_OK) result = vorn_bus_open(&options, &bus);
    if (result == VORN_BUS_OK) result = vorn_bus_handle_all(bus, on_message, NULL);
    while (result == VORN_BUS_OK && handled != 0 && arrived < strtoul(argv[2], NULL, 10))
        result = vorn_bus_poll(bus, 10000, 1, &handled);
    vorn_bus_close(bus);
    if (result != VORN_BUS_OK) fprintf(stderr, "receiver: %s\n", vorn_bus_result_text(result));
    return result != VORN_BUS_OK ? 3 : handled != 0 ? 0 : 1; /* 1: nothing came for ten seconds */
}
