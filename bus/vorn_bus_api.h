/* SPDX-License-Identifier: Apache-2.0 */
/* The four functions that the library imports from the process's VORN bus. */
#ifndef VORN_BUS_API_H
#define VORN_BUS_API_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* One packed message on its way to the bus. 16 bytes, back to back in arrays. The bytes belong to the
 * sender and are valid only until the bus function returns: a bus that keeps them copies them. */
typedef struct VORN_SendDescriptor {
    const uint8_t* buffer; /* first byte of the packed message */
    uint32_t message_id;   /* names the message type */
    uint32_t length;       /* bytes of the packed message */
} VORN_SendDescriptor;

/* Fills a record of the registered type from `length` received bytes; returns the record's size in
 * bytes, whether the bytes were valid or not. `record` must be zeroed storage of that size: a fault in
 * the arguments leaves it untouched, and it is freed all the same. */
typedef uint32_t (*VORN_IDLUnpackFunc)(const uint8_t* buffer, uint32_t length, void* record);

/* Releases what unpack allocated for the record, never the record itself. */
typedef void (*VORN_IDLFreeFunc)(void* record);

typedef void (*VORN_IDLResourceCleanFunc)(void);

/* Registers how messages of one id are unpacked and freed. Returns 0, or the bus's reason to refuse. */
int32_t VORN_RegIDLFuncHook(uint32_t message_id, VORN_IDLUnpackFunc unpack, VORN_IDLFreeFunc free_unpacked);

/* Registers a sending module's clean-up callback. Returns 0, or the bus's reason to refuse. */
int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc clean);

/* Sends `count` messages to `destination`. Returns 0 or the bus's result. Callable from any thread. */
int32_t VORN_SendMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count);

/* The same with a non-zero target, whose meaning is the bus's. */
int32_t VORN_SendToMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count,
                       uint64_t target);

#ifdef __cplusplus
}
#endif

#endif
