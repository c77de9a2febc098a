// SPDX-License-Identifier: Apache-2.0
// The source of a package's catalogue is one line after its descriptions: VORN_CATALOGUE(Lease, lease,
// LEASE_ALL_MODULES), with a row MODULE(name, prefix of its functions, list of its messages) for each module.
// It defines what VORN_CATALOGUE_FUNCTIONS(lease) declares (inspect/vorn_inspect.h).
#ifndef INSPECT_PACKAGE_CATALOGUE_H
#define INSPECT_PACKAGE_CATALOGUE_H

#include <cstdint>
#include <string_view>

#include "bus/message_functions.h"
#include "bus/typed_functions.hpp"
#include "inspect/description_tables.h"

namespace inspect {

// Whether all messages of a catalogue have names of its package, of which their ids are made.
constexpr bool has_names_of_package(const vorn_catalogue& catalogue) {
    const std::string_view package = catalogue.package;
    for (std::uint32_t i = 0; i < catalogue.type_count; ++i) {
        const std::string_view name = catalogue.types[i]->name;
        if (!name.starts_with(package) || name.substr(package.size(), 1) != "_") return false;
    }
    return true;
}

}  // namespace inspect

#define VORN_AFTER_COMMA(Message) , Message
#define VORN_MODULE_AFTER_COMMA(module, prefix, MESSAGES) , module##_module
#define VORN_TYPED_MODULE(module, prefix, MESSAGES) MESSAGES(VORN_TYPED_FUNCTIONS)
#define VORN_MODULE(module, prefix, MESSAGES)                              \
    struct module##_module {                                               \
        static constexpr const char* name = #module;                       \
        static constexpr auto recv_init = &prefix##_recv_init;             \
        static constexpr auto send_init = &prefix##_send_init;             \
        using Messages = inspect::Listed<void MESSAGES(VORN_AFTER_COMMA)>; \
    };

#define VORN_CATALOGUE(Package, package, MODULES)                                                        \
    namespace {                                                                                          \
    MODULES(VORN_MODULE)                                                                                 \
    struct ThisPackage {                                                                                 \
        static constexpr const char* name = #Package;                                                    \
        template <class Record>                                                                          \
        using Functions = kaplo::TypedFunctions<Record>;                                                 \
        using Modules = inspect::Listed<void MODULES(VORN_MODULE_AFTER_COMMA)>;                          \
    };                                                                                                   \
    static_assert(inspect::has_names_of_package(inspect::catalogue_of<ThisPackage>),                     \
                  "a record has a name that does not begin with " #Package "_");                         \
    }                                                                                                    \
    extern "C" const vorn_catalogue* vorn_##package##_catalogue(void) {                                  \
        return &inspect::catalogue_of<ThisPackage>;                                                      \
    }                                                                                                    \
    extern "C" std::int32_t vorn_##package##_verify(std::uint32_t message_id, const std::uint8_t* bytes, \
                                                    std::uint32_t length, vorn_fault_handler on_fault,   \
                                                    void* context) {                                     \
        return inspect::verify_message<ThisPackage>(message_id, bytes, length, on_fault, context);       \
    }

// The same of a catalogue that is a file of its own, with the function by which vorn_inspect_load finds it.
#define VORN_LOADED_CATALOGUE(Package, package, MODULES)         \
    MODULES(VORN_TYPED_MODULE)                                   \
    extern "C" {                                                 \
    VORN_CATALOGUE_FUNCTIONS(package);                           \
    VORN_API const vorn_catalogue* vorn_package_catalogue(void); \
    }                                                            \
    VORN_CATALOGUE(Package, package, MODULES)                    \
    extern "C" const vorn_catalogue* vorn_package_catalogue(void) { return vorn_##package##_catalogue(); }

#endif
