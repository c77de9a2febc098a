/* SPDX-License-Identifier: Apache-2.0 */
/* What a package's header declares of its message types and modules. */
#ifndef KAPLO_MESSAGE_FUNCTIONS_H
#define KAPLO_MESSAGE_FUNCTIONS_H

#include <stdint.h>

#if defined(__GNUC__)
#define VORN_API __attribute__((visibility("default")))
#else
#define VORN_API
#endif

/* What pack and the send functions return when they refuse before anything reached the bus. */
#define VORN_REFUSED 0xFFFFFFFFu

/* The seven functions of a message type.
 *
 * Message__pack writes `record` to `buffer` in the compact layout. `*length` is the buffer's capacity in
 * bytes on entry and the packed size on success. Returns 0, or VORN_REFUSED with `*length` as it was: null
 * record or length, a capacity below the packed size, or a packed size above 0xFFFFFFFF. A null buffer
 * with enough capacity gives the size, writes nothing, and logs a line; vorn_inspect_packed_bytes
 * (inspect/vorn_inspect.h) logs none, and for types without vectors the largest compact size stands at the
 * record: a buffer of that size always suffices. `buffer` stays the caller's. A
 * vector with count 0 must have a null pointer: otherwise some types count 8 bytes that they leave as
 * they were. A null pointer with a count, as a failed unpack may leave it, packs as no vector.
 *
 * Message__unpack fills `record` from `length` received bytes, which may hold anything. Returns
 * sizeof(Message) always: faults show in the host's log and in the record, whose later fields are then
 * zero. `record` must be zeroed storage, since a null buffer or a length below 4 or above 0x7FFFFFFF
 * leaves it untouched. Vectors are allocated, and belong to the record until it is freed; after a fault
 * they are released, their pointers null, their counts perhaps not: test the pointer, not the count.
 *
 * Message_free__unpacked releases the arrays that unpack allocated and nulls their pointers; the record
 * stays the caller's. A null record and a second call are harmless.
 *
 * Message__sendmsg and Message__sendtomsg send `count` records, back to back at `records`, in one call of
 * the bus; a non-zero `target` is handed to it. They choose between Message__sendsingle (one record;
 * `reserved` is not used) and Message__sendbatch. All four return the bus's result, or VORN_REFUSED: a null
 * pointer, a record that cannot be sized, no memory, for types with vectors a batch of more than 65,536
 * packed bytes, for any a batch whose block is larger than 32 bits can ask for, and, but for
 * Message__sendbatch, which hands the bus an empty batch, no records. The records stay the caller's and are
 * not changed. */
#define VORN_MESSAGE_FUNCTIONS(Message)                                                                     \
    VORN_API uint32_t Message##__pack(const Message* record, uint8_t* buffer, uint32_t* length);            \
    VORN_API uint32_t Message##__unpack(const uint8_t* buffer, uint32_t length, Message* record);           \
    VORN_API void Message##_free__unpacked(Message* record);                                                \
    VORN_API uint32_t Message##__sendsingle(uint32_t destination, const Message* record, uint32_t reserved, \
                                            uint64_t target);                                               \
    VORN_API uint32_t Message##__sendbatch(uint32_t destination, const Message* records, uint32_t count,    \
                                           uint64_t target);                                                \
    VORN_API uint32_t Message##__sendmsg(uint32_t destination, const Message* records, uint32_t count);     \
    VORN_API uint32_t Message##__sendtomsg(uint32_t destination, const Message* records, uint32_t count,    \
                                           uint64_t target)

/* The three functions of a module, by the prefix of their names. prefix_recv_init registers the module's
 * message types with the bus, for a process that receives them; prefix_send_init registers what the bus calls
 * to clean up, for a process that sends. Both return the bus's result. The clean-up does nothing: every send
 * function has released its buffers before it returns. */
#define VORN_MODULE_FUNCTIONS(prefix)          \
    VORN_API int32_t prefix##_recv_init(void); \
    VORN_API int32_t prefix##_send_init(void); \
    VORN_API void prefix##__send_resource_clean(void)

#endif
