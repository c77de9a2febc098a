/* SPDX-License-Identifier: Apache-2.0 */
/* A host with services of its own, on the installed bus. It sends to itself, and prints how often the library
 * has asked its services: never, if it was linked without exporting them. */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>

#include "nac/nac_messages.h"
#include "runtime/zeb_osal_api.h"
#include "vorn/vorn_bus.h"

static unsigned sends = 0, arrays = 0, releases = 0, lines = 0, groups = 0;

uint32_t ZEB_OsalMemUseFlagGet(uint32_t owner_code) { return owner_code == 12; }

void* ZEB_OsalMemCacheAlloc(uint32_t size, uint32_t owner_code, const char* caller) {
    (void)owner_code;
    (void)caller;
    ++arrays;
    return malloc(size);
}

void* ZEB_OsalMemAlloc(uint32_t size, uint32_t owner_code, const char* caller) {
    (void)owner_code;
    (void)caller;
    ++sends;
    return malloc(size);
}

void ZEB_OsalMemFree(void* block, uint32_t owner_code, const char* caller) {
    (void)owner_code;
    (void)caller;
    releases += block != NULL;
    free(block);
}

void ZEB_OsalLogWrite(const KaploLogModule* module, uint32_t level, uint32_t category, const char* file,
                      uint32_t line, const char* function, const char* format, ...) {
    (void)module;
    (void)level;
    (void)category;
    (void)file;
    (void)line;
    (void)function;
    (void)format;
    ++lines;
}

static void on_groups(const vorn_bus_message* message, void* context) {
    const Nac_UclGroupIpArray* record = message->record;
    (void)context;
    groups += record->f1_count;
}

int main(void) {
    Nac_ConfigAccessUserUclGroupIpMsg two[2] = {{1, {1, 2, 3, 4, 5}}, {0, {6, 7, 8, 9, 10}}};
    Nac_UclGroupIpArray message;
    Nac_UclGroupIpArray cut = {0, 0, NULL};
    const uint8_t nothing[3] = {0};
    vorn_bus_options options = vorn_bus_options_init();
    vorn_bus* bus = NULL;
    int32_t result;
    message.f0 = 42;
    message.f1_count = 2;
    message.f1 = two;
    options.url = "loop:";
    options.address = 7;

    result = nac_fwm_uclgroup_recv_init();
    if (result == 0) result = vorn_bus_open(&options, &bus);
    if (result == 0) result = vorn_bus_handle_all(bus, on_groups, NULL);
    if (result == 0) result = (int32_t)Nac_UclGroupIpArray__sendmsg(7, &message, 1);
    if (result == 0) result = vorn_bus_poll(bus, 1000, 1, NULL);
    if (result != 0) {
        fprintf(stderr, "host: %s\n", vorn_bus_result_text(result));
        return 1;
    }
    vorn_bus_close(bus);
    Nac_UclGroupIpArray__unpack(nothing, sizeof nothing, &cut); /* too short: one line in the log */
    printf("%u groups; asked of the host: %u send buffers, %u arrays, %u releases, %u log lines\n", groups,
           sends, arrays, releases, lines);
    return groups == 2 ? 0 : 1;
}
