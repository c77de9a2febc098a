/* SPDX-License-Identifier: Apache-2.0 */
/* A program in C that includes the header alone: a message is valid, then damaged, and is shown by name. */
#include "inspect/vorn_inspect.h"

#include <stdio.h>
#include <string.h>

static int32_t print_fault(const vorn_fault* fault, void* context) {
    char text[200];
    vorn_inspect_fault_text(fault, text, sizeof text);
    *(int*)context +=
        strcmp(text, "at 4, header of Nac_SetPortMsg: the vtable would have 65535 bytes, and 20 are left") ==
        0;
    return 0;
}

static int32_t append(const char* text, size_t bytes, void* context) {
    strncat(context, text, bytes);
    return 0;
}

static int expect(int holds, const char* what) {
    if (!holds) fprintf(stderr, "not so: %s\n", what);
    return holds ? 0 : 1;
}

int main(void) {
    uint8_t bytes[] = {0x0C, 0, 0, 0, 0x08, 0, 0x0C, 0, 4, 0, 8, 0, 8, 0, 0, 0, 7, 0, 0, 0, 9, 0, 0, 0};
    const vorn_type* type = vorn_inspect_type_by_name(vorn_nac_catalogue(), "Nac_SetPortMsg");
    uint32_t record[2] = {0, 0};
    char json[200] = "";
    int faults = 0;
    int failed = 0;

    failed +=
        expect(type == vorn_inspect_type_by_id(vorn_nac_catalogue(), 0x09B58155), "a type by name and by id");
    failed += expect(vorn_inspect_unpack(type, bytes, sizeof bytes, record) == VORN_VERDICT_VALID,
                     "it is unpacked");
    failed += expect(vorn_inspect_to_json(type, record, 100, append, json) == 0, "it is written");
    failed += expect(strcmp(json, "{\"f0\":7,\"f1\":9}") == 0, json);
    failed +=
        expect(vorn_nac_verify(type->id, bytes, sizeof bytes, print_fault, &faults) == 0, "it is valid");
    bytes[4] = bytes[5] = 0xFF;
    failed +=
        expect(vorn_nac_verify(type->id, bytes, sizeof bytes, print_fault, &faults) == 1, "it is damaged");
    failed +=
        expect(vorn_nac_verify(1, bytes, sizeof bytes, print_fault, &faults) < 0, "no type has the id 1");
    failed += expect(faults == 1, "the fault in words");
    return failed;
}
