/* SPDX-License-Identifier: Apache-2.0 */
/* The installed inspect library in a C program: bytes are shown by name if they are valid, and by what is
 * wrong. */
#include <stdio.h>

#include "inspect/vorn_inspect.h"
#include "nac/nac_messages.h"

static int32_t print_fault(const vorn_fault* fault, void* name) {
    char text[256];
    vorn_inspect_fault_text(fault, text, sizeof text);
    printf("%s is damaged: %s\n", (const char*)name, text);
    return 1;
}

static int32_t print_text(const char* text, size_t bytes, void* context) {
    return fwrite(text, 1, bytes, context) == bytes ? 0 : 1;
}

static void show(uint32_t message_id, const uint8_t* bytes, size_t length) {
    const vorn_type* type = vorn_inspect_type_by_id(vorn_nac_catalogue(), message_id);
    char record[1024] = {0};
    if (type == NULL || type->record_bytes > sizeof record) return;
    if (vorn_inspect_verify(type, bytes, length, print_fault, (void*)type->name) != VORN_VERDICT_VALID)
        return;
    vorn_inspect_unpack(type, bytes, length, record);
    printf("%s ", type->name);
    vorn_inspect_to_json(type, record, 1000, print_text, stdout);
    printf("\n");
    type->free_unpacked(record);
}

int main(void) {
    uint8_t bytes[] = {12, 0, 0, 0, 8, 0, 12, 0, 4, 0, 8, 0, 8, 0, 0, 0, 7, 0, 0, 0, 9, 0, 0, 0};
    show(Nac_SetPortMsg_ID, bytes, sizeof bytes);
    bytes[4] = 255;
    show(Nac_SetPortMsg_ID, bytes, sizeof bytes);
    return 0;
}
