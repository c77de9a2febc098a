// SPDX-License-Identifier: Apache-2.0
// The Nac package's catalogue.
#include "nac/catalogue.h"

#include "inspect/description_tables.h"

namespace {

#define NAC_AFTER_COMMA(Message) , Message
#define NAC_MODULE(module, prefix, MESSAGES)                              \
    struct module##_module {                                              \
        static constexpr const char* name = #module;                      \
        static constexpr auto recv_init = &prefix##_recv_init;            \
        static constexpr auto send_init = &prefix##_send_init;            \
        using Messages = inspect::Listed<void MESSAGES(NAC_AFTER_COMMA)>; \
    };
#define NAC_MODULE_AFTER_COMMA(module, prefix, MESSAGES) , module##_module

NAC_ALL_MODULES(NAC_MODULE)

struct NacPackage {
    static constexpr const char* name = "Nac";
    template <class Record>
    using Functions = nac::Functions<Record>;
    using Modules = inspect::Listed<void NAC_ALL_MODULES(NAC_MODULE_AFTER_COMMA)>;
};

}  // namespace

const vorn_catalogue* vorn_nac_catalogue(void) { return &inspect::catalogue_of<NacPackage>; }

std::int32_t vorn_nac_verify(std::uint32_t message_id, const std::uint8_t* bytes, std::uint32_t length,
                             vorn_fault_handler on_fault, void* context) {
    const vorn_type* const type = vorn_inspect_type_by_id(vorn_nac_catalogue(), message_id);
    if (type == nullptr) return -1;
    return vorn_inspect_verify(type, bytes, length, on_fault, context) == VORN_VERDICT_VALID ? 0 : 1;
}
