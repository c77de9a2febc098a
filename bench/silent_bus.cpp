// SPDX-License-Identifier: Apache-2.0
#include "bench/silent_bus.h"

bench::Tap bench::bus_tap = nullptr;

extern "C" {

std::int32_t VORN_RegIDLFuncHook(std::uint32_t /*message_id*/, VORN_IDLUnpackFunc /*unpack*/,
                                 VORN_IDLFreeFunc /*free_unpacked*/) {
    return 0;
}

std::int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc /*clean*/) { return 0; }

std::int32_t VORN_SendMsg(std::uint32_t /*destination*/, const VORN_SendDescriptor* descriptors,
                          std::uint32_t count) {
    if (bench::bus_tap != nullptr) bench::bus_tap(descriptors, count);
    return 0;
}

std::int32_t VORN_SendToMsg(std::uint32_t /*destination*/, const VORN_SendDescriptor* /*descriptors*/,
                            std::uint32_t /*count*/, std::uint64_t /*target*/) {
    return 0;
}
}
