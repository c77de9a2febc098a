/* SPDX-License-Identifier: Apache-2.0 */
/* A process written in C, with a bus of four small functions and no host services: the library from there. */
#include "nac/nac_messages.h"

#include "bus/vorn_bus_api.h"

#include <stdio.h>
#include <string.h>

/* ---- the bus: keeps the last call --------------------------------------------------------------- */

static struct {
    uint32_t destination;
    uint64_t target;
    uint32_t count;
    uint32_t message_id;
    uint32_t length;
    uint8_t bytes[512];
} sent;

static struct {
    int count;
    uint32_t message_id;
    VORN_IDLUnpackFunc unpack;
    VORN_IDLFreeFunc free_unpacked;
} registered;

static VORN_IDLResourceCleanFunc resource_clean;

int32_t VORN_RegIDLFuncHook(uint32_t message_id, VORN_IDLUnpackFunc unpack, VORN_IDLFreeFunc free_unpacked) {
    if (message_id != Nac_SetPortMsg_ID) return 0;
    ++registered.count;
    registered.message_id = message_id;
    registered.unpack = unpack;
    registered.free_unpacked = free_unpacked;
    return 0;
}

int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc clean) {
    resource_clean = clean;
    return -7;
}

int32_t VORN_SendToMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count,
                       uint64_t target) {
    const VORN_SendDescriptor* last = descriptors + count - 1;
    sent.destination = destination;
    sent.target = target;
    sent.count = count;
    sent.message_id = last->message_id;
    sent.length = last->length;
    if (last->length > sizeof sent.bytes) return 1;
    memcpy(sent.bytes, last->buffer, last->length);
    return 0;
}

int32_t VORN_SendMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count) {
    return VORN_SendToMsg(destination, descriptors, count, 0);
}

/* ---- the checks --------------------------------------------------------------------------------- */

static int failures = 0;

static void check(int holds, const char* what, int line) {
    if (holds) return;
    ++failures;
    printf("c_client.c:%d: does not hold: %s\n", line, what);
}
#define CHECK(condition) check((condition), #condition, __LINE__)

static void a_scalar_record_packs_and_unpacks(void) {
    static const uint8_t expected[24] = {
        12,   0,    0,    0,                /* root reference: table at 12 */
        8,    0,    12,   0,    4, 0, 8, 0, /* vtable: length, table length, offsets of f0 and f1 */
        8,    0,    0,    0,                /* soffset */
        0x78, 0x56, 0x34, 0x12,             /* f0 */
        9,    0,    0,    0,                /* f1 */
    };
    const Nac_SetPortMsg port = {0x12345678, 9};
    Nac_SetPortMsg unpacked = {0, 0};
    uint8_t buffer[32];
    uint32_t length = sizeof buffer;

    CHECK(Nac_SetPortMsg__pack(&port, buffer, &length) == 0);
    CHECK(length == sizeof expected);
    CHECK(memcmp(buffer, expected, sizeof expected) == 0);

    CHECK(Nac_SetPortMsg__unpack(buffer, length, &unpacked) == sizeof unpacked);
    CHECK(unpacked.f0 == 0x12345678 && unpacked.f1 == 9);
    Nac_SetPortMsg_free__unpacked(&unpacked);
    CHECK(unpacked.f1 == 9);

    length = sizeof expected - 1;
    CHECK(Nac_SetPortMsg__pack(&port, buffer, &length) == NAC_REFUSED);
    CHECK(length == sizeof expected - 1);
}

static void a_list_is_allocated_and_freed(void) {
    Nac_UserDataFlowInfo elements[2];
    Nac_UserDataFlowMsg list = {2, NULL};
    Nac_UserDataFlowMsg unpacked = {0, NULL};
    uint8_t buffer[512];
    uint32_t length = sizeof buffer;

    memset(elements, 0, sizeof elements);
    elements[1].f5.f3 = 0x1122334455667788;
    list.f0 = elements;
    CHECK(Nac_UserDataFlowMsg__pack(&list, buffer, &length) == 0);
    CHECK(length == 22 + 2 * 4 + 100 + 108);

    CHECK(Nac_UserDataFlowMsg__unpack(buffer, length, &unpacked) == sizeof unpacked);
    CHECK(unpacked.f0_count == 2);
    CHECK(unpacked.f0 != NULL && memcmp(unpacked.f0, elements, sizeof elements) == 0);
    Nac_UserDataFlowMsg_free__unpacked(&unpacked);
    CHECK(unpacked.f0 == NULL && unpacked.f0_count == 2);
}

static void records_are_sent(void) {
    const Nac_SetPortMsg ports[2] = {{1, 2}, {3, 4}};
    Nac_SetPortMsg arrived = {0, 0};

    CHECK(Nac_SetPortMsg__sendmsg(5, ports, 1) == 0);
    CHECK(sent.destination == 5 && sent.target == 0 && sent.count == 1);
    CHECK(sent.message_id == Nac_SetPortMsg_ID && sent.length == 24);

    CHECK(Nac_SetPortMsg__sendtomsg(6, ports, 2, 0x123456789) == 0);
    CHECK(sent.destination == 6 && sent.target == 0x123456789 && sent.count == 2);
    CHECK(Nac_SetPortMsg__unpack(sent.bytes, sent.length, &arrived) == sizeof arrived);
    CHECK(arrived.f0 == 3 && arrived.f1 == 4);

    CHECK(Nac_SetPortMsg__sendmsg(5, ports, 0) == NAC_REFUSED);
}

static void modules_register(void) {
    Nac_SetPortMsg port = {0, 0};

    CHECK(nac_fwm_port_recv_init() == 0);
    CHECK(registered.count == 1 && registered.message_id == Nac_SetPortMsg_ID);
    CHECK(registered.unpack(sent.bytes, sent.length, &port) == sizeof port);
    CHECK(port.f0 == 3);
    registered.free_unpacked(&port);

    CHECK(nac_fwm_port_send_init() == -7);
    CHECK(resource_clean == nac_fwm_port__send_resource_clean);
    resource_clean();
}

int main(void) {
    a_scalar_record_packs_and_unpacks();
    a_list_is_allocated_and_freed();
    records_are_sent();
    modules_register();
    return failures == 0 ? 0 : 1;
}
