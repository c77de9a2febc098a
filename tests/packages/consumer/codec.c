/* SPDX-License-Identifier: Apache-2.0 */
/* The installed codec in a C program that brings its own bus: what is sent is unpacked again at once. */
#include <inttypes.h>
#include <stdio.h>

#include "bus/vorn_bus_api.h"
#include "nac/nac_messages.h"

static struct {
    uint32_t message_id;
    VORN_IDLUnpackFunc unpack;
    VORN_IDLFreeFunc free_unpacked;
} registered[16];
static uint32_t registered_count = 0;
static Nac_UclGroupIpArray received;
static uint32_t received_bytes = 0;

int32_t VORN_RegIDLFuncHook(uint32_t message_id, VORN_IDLUnpackFunc unpack, VORN_IDLFreeFunc free_unpacked) {
    if (registered_count == sizeof registered / sizeof registered[0]) return 1;
    registered[registered_count].message_id = message_id;
    registered[registered_count].unpack = unpack;
    registered[registered_count].free_unpacked = free_unpacked;
    ++registered_count;
    return 0;
}

int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc clean) {
    (void)clean;
    return 0;
}

int32_t VORN_SendToMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count,
                       uint64_t target) {
    uint32_t i;
    (void)target;
    if (destination != 7 || count != 1) return 2;
    for (i = 0; i < registered_count; ++i) {
        if (registered[i].message_id != descriptors->message_id) continue;
        received_bytes = descriptors->length;
        return registered[i].unpack(descriptors->buffer, descriptors->length, &received) == sizeof received
                   ? 0
                   : 3;
    }
    return 4;
}

int32_t VORN_SendMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count) {
    return VORN_SendToMsg(destination, descriptors, count, 0);
}

int main(void) {
    Nac_ConfigAccessUserUclGroupIpMsg groups[2] = {{1, {1, 2, 3, 4, 5}}, {0, {6, 7, 8, 9, 10}}};
    Nac_UclGroupIpArray message;
    uint32_t result;
    message.f0 = 42;
    message.f1_count = 2;
    message.f1 = groups;

    result = (uint32_t)nac_fwm_uclgroup_recv_init();
    if (result == 0) result = Nac_UclGroupIpArray__sendmsg(7, &message, 1);
    if (result != 0) {
        fprintf(stderr, "codec: %" PRIu32 "\n", result);
        return 1;
    }
    printf("%" PRIu32 " bytes: %" PRIu32 ", %" PRIu32 " groups, the last {%" PRIu32 " %" PRIu32 "}\n",
           received_bytes, received.f0, received.f1_count, received.f1[1].f1.f0, received.f1[1].f1.f3);
    Nac_UclGroupIpArray_free__unpacked(&received);
    return received.f1 == NULL ? 0 : 1;
}
