/* SPDX-License-Identifier: Apache-2.0 */
/* libvorn_nac_inspect: what a message is, as data. Look-up of message types, verification of received bytes,
 * what each byte means, records as JSON and back.
 *
 * Everything here follows from a catalogue: constant tables that the compiler makes from a package's
 * descriptions. vorn_nac_catalogue() is that of the Nac package; nac_messages.h declares its records.
 *
 * Threads: every function may be called from any thread at any time; none keeps a pointer that it was given.
 * Tables are constant and live as long as the library is loaded. No C++ exception leaves a function, and none
 * may leave a callback: a callback must return.
 *
 * Growth: later versions may add members at the end of the structs here. They are reached by pointers only;
 * do not copy them by a size of your own.
 *
 * Bytes on the wire are little-endian, unless the library was built for reversed byte order. */
#ifndef VORN_INSPECT_H
#define VORN_INSPECT_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define VORN_INSPECT_API __attribute__((visibility("default")))
#else
#define VORN_INSPECT_API
#endif

/* ---- tables --------------------------------------------------------------------------------------- */

typedef enum vorn_kind {
    VORN_KIND_SCALAR = 0,        /* an unsigned integer */
    VORN_KIND_FIXED_ARRAY = 1,   /* integers, as many as `count` says, inside the record */
    VORN_KIND_NESTED_TABLE = 2,  /* a record inside the record */
    VORN_KIND_SCALAR_VECTOR = 3, /* a count and a pointer to that many integers */
    VORN_KIND_TABLE_VECTOR = 4   /* a count and a pointer to that many records */
} vorn_kind;

/* How people read and write a value. */
typedef enum vorn_display {
    VORN_DISPLAY_NUMBER = 0,
    VORN_DISPLAY_HARDWARE_ADDRESS = 1, /* 02:00:5e:10:00:01 */
    VORN_DISPLAY_IPV6_ADDRESS = 2,     /* 2001:db8::1 */
    VORN_DISPLAY_HEX = 3,              /* 0a1b: bytes */
    VORN_DISPLAY_NUMBERS = 4,          /* a list of integers */
    VORN_DISPLAY_TABLE = 5,            /* field by field */
    VORN_DISPLAY_TABLES = 6            /* a list of them */
} vorn_display;

/* An offset that does not exist. */
#define VORN_NO_OFFSET 0xFFFFFFFFu

typedef struct vorn_type vorn_type;
typedef struct vorn_catalogue vorn_catalogue;
struct vorn_fault;

/* One field of a record. Offsets and sizes are in bytes. */
typedef struct vorn_field {
    const char* name;       /* "f0" */
    const char* type_name;  /* "u32", "u8[6]", "Nac_SrvCar", "[u16]", "[Nac_Ipv6Addr]" */
    uint32_t id;            /* its index, from 0 */
    uint32_t kind;          /* vorn_kind */
    uint32_t display;       /* vorn_display */
    uint32_t element_bytes; /* of a scalar or an element on the wire; of tables: of a reference, 4 */
    uint32_t count;         /* elements inside the record: 1, of a fixed array its length, of a vector 0 */
    uint32_t record_offset; /* of the member; of a vector: of its pointer */
    uint32_t count_offset;  /* of a vector: of its count, a uint32_t; else VORN_NO_OFFSET */
    uint32_t slot;          /* of the field's slot in its vtable */
    uint32_t image_offset;  /* in the fixed image, from its table's start; VORN_NO_OFFSET: no image */
    uint32_t image_bytes;   /* there, with all that it refers to; 0: no image */
    const vorn_type* table; /* of nested tables and vectors of tables; else null */
} vorn_field;

/* A record type: a message, or a table that travels only inside others (no module, functions null). Only a
 * message can be verified, unpacked or walked; both can be written as JSON. */
struct vorn_type {
    const char* name;             /* "Nac_SetPortMsg" */
    const char* module;           /* "port"; null: no message */
    uint32_t id;                  /* of a message: FNV-1a of its name; else 0 */
    uint32_t record_bytes;        /* sizeof the C struct */
    uint32_t vtable_bytes;        /* with a slot for each field */
    uint32_t image_bytes;         /* of the fixed image with its root reference; 0: always sent compact */
    uint32_t image_table_length;  /* as the image's vtable states it */
    uint32_t image_vtable_offset; /* of the vtable in the image, from the table's start */
    const vorn_field* const* fields;
    uint32_t field_count;
    uint32_t reserved;
    const char* root_decoder;   /* under which unpack logs faults of the message's own table */
    const char* nested_decoder; /* and of a table inside another */

    /* Of a message, its exported functions as nac_messages.h describes them, with untyped records. */
    uint32_t (*pack)(const void* record, uint8_t* buffer, uint32_t* length);
    uint32_t (*unpack)(const uint8_t* buffer, uint32_t length, void* record);
    void (*free_unpacked)(void* record);
    uint32_t (*send)(uint32_t destination, const void* records, uint32_t count, uint64_t target);
    uint32_t (*send_batch)(uint32_t destination, const void* records, uint32_t count, uint64_t target);

    /* What only the compiled description can do; for the functions below. */
    const struct vorn_type_operations* operations;
};

/* Messages that are registered together. */
typedef struct vorn_module {
    const char* name;           /* "port" */
    int32_t (*recv_init)(void); /* nac_fwm_port_recv_init */
    int32_t (*send_init)(void);
    const vorn_type* const* messages; /* in the order in which they are registered */
    uint32_t message_count;
    uint32_t reserved;
} vorn_module;

/* The types of a package: module by module, each message after the tables in it that were not listed before.
 */
struct vorn_catalogue {
    const char* package; /* "Nac" */
    const vorn_type* const* types;
    uint32_t type_count;
    uint32_t module_count;
    const vorn_module* const* modules;
    const vorn_type* const* messages_by_id; /* ids ascending */
    uint32_t message_count;
    uint32_t tables_version; /* VORN_TABLES_VERSION of the headers with which it was made */

    /* Whether bytes are a valid message of the package, by its id: 0: valid; 1: damaged; negative: no message
     * of the package. For vorn_bus_verify_with. */
    int32_t (*verify)(uint32_t message_id, const uint8_t* bytes, uint32_t length,
                      int32_t (*on_fault)(const struct vorn_fault* fault, void* context), void* context);
};

/* Rises when these tables change so that a catalogue must be compiled again. */
#define VORN_TABLES_VERSION 1u

/* The Nac package's catalogue. */
VORN_INSPECT_API const vorn_catalogue* vorn_nac_catalogue(void);

/* What the catalogue of another package exports (CMake's vorn_add_package): vorn_lease_catalogue() and
 * vorn_lease_verify(), like vorn_nac_catalogue() and vorn_nac_verify() here. */
#define VORN_CATALOGUE_FUNCTIONS(package)                                                          \
    VORN_INSPECT_API const vorn_catalogue* vorn_##package##_catalogue(void);                       \
    VORN_INSPECT_API int32_t vorn_##package##_verify(uint32_t message_id, const uint8_t* bytes,    \
                                                     uint32_t length, vorn_fault_handler on_fault, \
                                                     void* context)

/* Loads the catalogue of another package, and with it the package's library, both until the process ends:
 * libvorn_lease_catalogue.so by its path, or, by its name "lease", that in the folder vorn_nac/ beside this
 * library; "nac" is the Nac package's own. Code of the file runs: load only what you trust. The process must
 * have a bus (libvorn_bus), since the package's library sends. Null: it cannot be loaded, and then `why` (may
 * be null) has what is wrong and what to do. */
VORN_INSPECT_API const vorn_catalogue* vorn_inspect_load(const char* path, char* why, size_t capacity);

/* A type by its full name; null: there is none. */
VORN_INSPECT_API const vorn_type* vorn_inspect_type_by_name(const vorn_catalogue* catalogue,
                                                            const char* name);

/* A message type by its id; null: there is none. */
VORN_INSPECT_API const vorn_type* vorn_inspect_type_by_id(const vorn_catalogue* catalogue,
                                                          uint32_t message_id);

/* Registers all modules with the process's bus, to receive and to send. Returns the first result that is not
 * 0. */
VORN_INSPECT_API int32_t vorn_inspect_register_all(const vorn_catalogue* catalogue);

/* How many bytes a message may have. */
#define VORN_SHORTEST_MESSAGE 4u
#define VORN_LONGEST_MESSAGE 0x7FFFFFFFu

/* ---- verification ----------------------------------------------------------------------------------- */

typedef enum vorn_verdict {
    VORN_VERDICT_VALID = 0,
    VORN_VERDICT_ARGUMENT = 1, /* null, or fewer than 4 or more than 0x7FFFFFFF bytes: no message at all */
    VORN_VERDICT_HEADER = 2,   /* damaged in the header of its own table */
    VORN_VERDICT_FIELD = 3,    /* damaged after it */
    VORN_VERDICT_NO_MEMORY = 4 /* vorn_inspect_unpack: an allocation failed for a valid message */
} vorn_verdict;

/* "ok", "argument", "header", "field", "memory": constant text. */
VORN_INSPECT_API const char* vorn_inspect_verdict_text(vorn_verdict verdict);

/* What is wrong with some bytes of a message. Unpack stops at the first fault; verification goes on. Valid
 * until the callback returns. */
typedef struct vorn_fault {
    uint32_t at;             /* offset of the bytes that are wrong, or after which something is missing */
    uint32_t bytes;          /* their number; 0: they are not there */
    const vorn_type* table;  /* in which they stand */
    const vorn_field* field; /* null: the table's header */
    const char* path;        /* from the message to there: "f6.f4[3].f0"; empty: the message itself */
    const char* what;        /* "the reference 77 leads beyond 32 bits" */
} vorn_fault;

/* Returns 0 to go on, anything else to hear of no further fault. */
typedef int32_t (*vorn_fault_handler)(const vorn_fault* fault, void* context);

/* Whether unpack would read `length` bytes without a fault, and if not, why, fault by fault in the order of
 * reading. Allocates nothing, logs nothing. A null handler only asks for the verdict, and costs no more than
 * unpack. Bytes that are no message at all are one fault. */
VORN_INSPECT_API vorn_verdict vorn_inspect_verify(const vorn_type* type, const uint8_t* bytes, size_t length,
                                                  vorn_fault_handler on_fault, void* context);

/* The same for a message of the Nac package, by its id: 0: valid; 1: damaged; negative: no message of this
 * package. */
VORN_INSPECT_API int32_t vorn_nac_verify(uint32_t message_id, const uint8_t* bytes, uint32_t length,
                                         vorn_fault_handler on_fault, void* context);

/* The fault in one sentence: "at 20, f6.f4 of Nac_SrvCar: ...". Writes at most `capacity` bytes, the 0 at the
 * end included. Returns the length of the whole text, like snprintf. */
VORN_INSPECT_API size_t vorn_inspect_fault_text(const vorn_fault* fault, char* text, size_t capacity);

/* Unpacks as the type's own unpack does, and returns how it went: one pass where unpack and verify are two.
 * `record` is zeroed storage of type->record_bytes; release it with type->free_unpacked, whatever the
 * verdict. Memory and log are the host's, as for the library (zeb_osal_api.h), which both find at their first
 * call. */
VORN_INSPECT_API vorn_verdict vorn_inspect_unpack(const vorn_type* type, const uint8_t* bytes, size_t length,
                                                  void* record);

/* ---- what each byte means ---------------------------------------------------------------------------- */

typedef enum vorn_part {
    VORN_PART_ROOT_REFERENCE = 0,
    VORN_PART_VTABLE_LENGTH = 1,
    VORN_PART_TABLE_LENGTH = 2,
    VORN_PART_SLOT = 3,
    VORN_PART_SOFFSET = 4,
    VORN_PART_SCALAR = 5,
    VORN_PART_REFERENCE = 6,
    VORN_PART_COUNT = 7,
    VORN_PART_ELEMENTS = 8,
    VORN_PART_PADDING = 9, /* of a fixed image */
    VORN_PART_UNREAD = 10  /* nothing leads here */
} vorn_part;

/* "root reference", "vtable length", ... */
VORN_INSPECT_API const char* vorn_inspect_part_text(vorn_part part);

/* Bytes of one meaning; all of them lie in the message. Valid until the callback returns. */
typedef struct vorn_range {
    uint32_t at;
    uint32_t bytes;
    uint32_t part;           /* vorn_part */
    uint32_t depth;          /* of nesting; 0: the message's own table */
    const vorn_type* table;  /* to which they belong; null: none */
    const vorn_field* field; /* likewise */
    uint32_t index;          /* of an element's reference; else VORN_NO_OFFSET */
    uint32_t id;             /* of a slot: its field's */
    uint64_t number;         /* of what is one number */
    uint32_t target;         /* where a reference, soffset or slot leads */
    const char* path;        /* of the field or table: "f6.f4[3]"; empty: the message itself */
} vorn_range;

typedef enum vorn_layout {
    VORN_LAYOUT_COMPACT = 0,
    VORN_LAYOUT_IMAGE = 1,
    VORN_LAYOUT_OTHER = 2
} vorn_layout;

/* "compact", "image", "other". */
VORN_INSPECT_API const char* vorn_inspect_layout_text(vorn_layout layout);

typedef void (*vorn_range_handler)(const vorn_range* range, void* context);

/* Follows the message as unpack reads it, and beyond faults, and calls `on_range` for each meaning of any
 * bytes: the same bytes may come more than once, or never. Padding is reported as the image has it, even
 * where something else lies. Allocates nothing. Each callback and `layout` (how the message's own table lies)
 * may be null. */
VORN_INSPECT_API vorn_verdict vorn_inspect_walk(const vorn_type* type, const uint8_t* bytes, size_t length,
                                                vorn_range_handler on_range, vorn_fault_handler on_fault,
                                                void* context, vorn_layout* layout);

/* A range's value as people read it, for scalars and elements, else empty: at most `most_elements` of a list.
 * `bytes` are the message's. Like snprintf. */
VORN_INSPECT_API size_t vorn_inspect_value_text(const vorn_range* range, const uint8_t* bytes,
                                                size_t most_elements, char* text, size_t capacity);

/* What a range means, in words: "f0 u32 = 7", "soffset: vtable at 16". Like snprintf. */
VORN_INSPECT_API size_t vorn_inspect_range_text(const vorn_range* range, const uint8_t* bytes,
                                                size_t most_elements, char* text, size_t capacity);

/* ---- records ------------------------------------------------------------------------------------------- */

/* The size in the compact layout, as pack would return it; no line is logged. 0: it cannot be packed. */
VORN_INSPECT_API uint32_t vorn_inspect_packed_bytes(const vorn_type* type, const void* record);

/* Writes the fixed image, as sends of types without vectors do. Returns its bytes; 0: the type has none, or
 * `capacity` is less. */
VORN_INSPECT_API uint32_t vorn_inspect_write_image(const vorn_type* type, const void* record, uint8_t* buffer,
                                                   uint32_t capacity);

/* Takes a piece of a text, not terminated. Returns 0 to go on, anything else to stop. */
typedef int32_t (*vorn_text_handler)(const char* text, size_t bytes, void* context);

/* The record as one JSON object: numbers, byte strings as hexadecimal text, arrays of 6 and 16 bytes as
 * addresses, vectors as arrays, nested records as objects. A vector that a fault has cost its array, a count
 * beside a null pointer, is {"lost": count}. At most `most_elements` elements of all lists together. Returns
 * what the handler returned last. Allocates nothing. */
VORN_INSPECT_API int32_t vorn_inspect_to_json(const vorn_type* type, const void* record, size_t most_elements,
                                              vorn_text_handler on_text, void* context);

/* Fills `record`, zeroed storage of type->record_bytes, from a JSON object; fields that it does not name stay
 * zero. Returns 0, or not, and then in `why` (may be null) what is wrong and where: "f6.f4: 300 is not an
 * integer from 0 to 255". Release the record with vorn_inspect_free_record, whatever the result. */
VORN_INSPECT_API int32_t vorn_inspect_from_json(const vorn_type* type, const char* json, size_t length,
                                                void* record, char* why, size_t capacity);

/* Releases the arrays that vorn_inspect_from_json made, and nulls their pointers; the record stays the
 * caller's. */
VORN_INSPECT_API void vorn_inspect_free_record(const vorn_type* type, void* record);

#ifdef __cplusplus
}
#endif

#endif
