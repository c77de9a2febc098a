// SPDX-License-Identifier: Apache-2.0
// The installed codec in a C++ program, whose bus does nothing: pack, unpack, and a message that is cut
// short.
#include <cstdint>
#include <cstdio>
#include <vector>

#include "bus/vorn_bus_api.h"
#include "nac/nac_messages.h"

extern "C" {
int32_t VORN_RegIDLFuncHook(uint32_t, VORN_IDLUnpackFunc, VORN_IDLFreeFunc) { return 0; }
int32_t VORN_RegIDLResorceCleanFuncHook(VORN_IDLResourceCleanFunc) { return 0; }
int32_t VORN_SendMsg(uint32_t, const VORN_SendDescriptor*, uint32_t) { return 0; }
int32_t VORN_SendToMsg(uint32_t, const VORN_SendDescriptor*, uint32_t, uint64_t) { return 0; }
}

int main() {
    std::vector<Nac_UserDataFlowInfo> flows(3);
    for (std::uint32_t i = 0; i < flows.size(); ++i) flows[i].f0 = 100 + i;
    const Nac_UserDataFlowMsg message = {static_cast<std::uint32_t>(flows.size()), flows.data()};

    std::vector<std::uint8_t> packed(4096);
    std::uint32_t length = static_cast<std::uint32_t>(packed.size());
    if (Nac_UserDataFlowMsg__pack(&message, packed.data(), &length) != 0) return 1;

    Nac_UserDataFlowMsg whole = {};
    Nac_UserDataFlowMsg__unpack(packed.data(), length, &whole);
    Nac_UserDataFlowMsg cut = {};
    Nac_UserDataFlowMsg__unpack(packed.data(), 3, &cut);
    const bool same = whole.f0_count == 3 && whole.f0[2].f0 == 102;
    std::printf("%u bytes: %u flows, %s; cut short: %u flows\n", length, whole.f0_count,
                same ? "the same" : "different", cut.f0_count);
    Nac_UserDataFlowMsg_free__unpacked(&whole);
    Nac_UserDataFlowMsg_free__unpacked(&cut);
    return same && cut.f0_count == 0 ? 0 : 1;
}
