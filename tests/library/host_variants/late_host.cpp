// SPDX-License-Identifier: Apache-2.0
// A host that brings its hooks late: a module that is loaded while the library is already in use.
#include <cstdint>
#include <cstdlib>

#include "runtime/zeb_osal_api.h"

extern "C" {

unsigned late_host_calls = 0;

std::uint32_t ZEB_OsalMemUseFlagGet(std::uint32_t /*owner_code*/) {
    ++late_host_calls;
    return 1;
}

void* ZEB_OsalMemCacheAlloc(std::uint32_t size, std::uint32_t /*owner_code*/, const char* /*caller*/) {
    ++late_host_calls;
    return std::malloc(size);
}

void* ZEB_OsalMemAlloc(std::uint32_t size, std::uint32_t /*owner_code*/, const char* /*caller*/) {
    ++late_host_calls;
    return std::malloc(size);
}

void ZEB_OsalMemFree(void* block, std::uint32_t /*owner_code*/, const char* /*caller*/) {
    ++late_host_calls;
    std::free(block);
}

void ZEB_OsalLogWrite(const KaploLogModule* /*module*/, std::uint32_t /*level*/, std::uint32_t /*category*/,
                      const char* /*file*/, std::uint32_t /*line*/, const char* /*function*/,
                      const char* /*format*/, ...) {
    ++late_host_calls;
}

}  // extern "C"
