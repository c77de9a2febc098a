/* SPDX-License-Identifier: Apache-2.0 */
/* The host services that the library looks up by name (dlsym, default handle) at their first use.
 *
 * A host defines those that it has and exports them to the dynamic linker; every one is optional. They
 * must be safe to call from several threads at once. */
#ifndef ZEB_OSAL_API_H
#define ZEB_OSAL_API_H

#include <stdint.h>

#if defined(__GNUC__)
#define ZEB_OSAL_PRINTF __attribute__((format(printf, 7, 8)))
#else
#define ZEB_OSAL_PRINTF
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Names the library to the host's log writer; belongs to the library, constant while it is loaded. */
typedef struct KaploLogModule {
    const char* module_name;     /* "KAPLO" */
    const char* log_module_name; /* "KAPLO_TORINEX_SERIAL" */
    uint16_t owner_code;         /* 0x6200, the owner code of every send-side allocation */
} KaploLogModule;

/* Asked once by each unit, with 12: exactly 1 means that received arrays shall come from
 * ZEB_OsalMemCacheAlloc and go back to ZEB_OsalMemFree. The unit asks under its lock, the one hook of
 * which this is true: the function must return, and must not throw, call longjmp or fork. It must not call a
 * message function either, which would wait for ever. */
uint32_t ZEB_OsalMemUseFlagGet(uint32_t owner_code);

/* Allocation of received arrays: `size` bytes, owner code 12. Returns the block, aligned for any type
 * as malloc's are, or null. `caller` is constant text naming the operation; it outlives the call. */
void* ZEB_OsalMemCacheAlloc(uint32_t size, uint32_t owner_code, const char* caller);

/* Allocation of send buffers: as above, owner code 0x6200. */
void* ZEB_OsalMemAlloc(uint32_t size, uint32_t owner_code, const char* caller);

/* Release of what either allocate function gave. Must accept a null block. */
void ZEB_OsalMemFree(void* block, uint32_t owner_code, const char* caller);

/* Writes one log line. `level` is always 2 and `file` always ""; `category` is 22 for faults of
 * arguments and layout, 12 for failed allocations; `line` is the source line of the complaint and
 * `function` the name of the operation that found the fault. */
void ZEB_OsalLogWrite(const KaploLogModule* module, uint32_t level, uint32_t category, const char* file,
                      uint32_t line, const char* function, const char* format, ...) ZEB_OSAL_PRINTF;

#ifdef __cplusplus
}
#endif

#undef ZEB_OSAL_PRINTF

#endif
