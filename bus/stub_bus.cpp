// SPDX-License-Identifier: Apache-2.0
#include "bus/stub_bus.h"

namespace {

vorn_stub_bus_send send_to = nullptr;
void* send_context = nullptr;

}  // namespace

extern "C" {

void vorn_stub_bus_on_send(vorn_stub_bus_send on_send, void* context) {
    send_to = on_send;
    send_context = context;
}

int32_t VORN_RegIDLFuncHook(uint32_t /*message_id*/, VORN_IDLUnpackFunc /*unpack*/,
                            VORN_IDLFreeFunc /*free_unpacked*/) {
    return 0;
}

int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc /*clean*/) { return 0; }

int32_t VORN_SendMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count) {
    return VORN_SendToMsg(destination, descriptors, count, 0);
}

int32_t VORN_SendToMsg(uint32_t destination, const VORN_SendDescriptor* descriptors, uint32_t count,
                       uint64_t target) {
    if (send_to == nullptr) return VORN_STUB_BUS_CLOSED;
    return send_to(destination, descriptors, count, target, send_context);
}

}  // extern "C"
