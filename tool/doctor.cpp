// SPDX-License-Identifier: Apache-2.0
// nac doctor.
#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tool/open_bus.h"
#include "tool/program_symbols.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DoctorOptions {
    std::string program;  // empty: this one
    std::string bus;
    std::uint32_t as = 0;
};

const std::vector<const char*> kHooks = {"ZEB_OsalMemUseFlagGet", "ZEB_OsalMemCacheAlloc", "ZEB_OsalMemAlloc",
                                         "ZEB_OsalMemFree", "ZEB_OsalLogWrite"};
const std::vector<const char*> kBusFunctions = {"VORN_RegIDLFuncHook", "VORN_RegIDLResorceCleanFuncHook",
                                                "VORN_SendMsg", "VORN_SendToMsg"};

// The file of the first definition in the order in which the dynamic linker looks; empty: none.
std::string found_in(const char* name) {
    void* const address = dlsym(RTLD_DEFAULT, name);
    Dl_info where = {};
    if (address == nullptr || dladdr(address, &where) == 0 || where.dli_fname == nullptr) return "";
    return where.dli_fname;
}

// Hooks switch as a pair: allocation from the host and release by the system never meet.
void print_memory(bool allocates, bool caches, bool releases) {
    fmt::print("arrays that arrive: {}\n",
               caches && releases ? "the host's cache, where its use flag is 1" : "malloc");
    fmt::print("buffers to send:    {}\n", allocates && releases ? "the host's allocator" : "malloc");
}

ExitCode look_at_program(const std::string& file) {
    const ProgramSymbols symbols = program_symbols(file);
    bool hidden = false;
    const auto exported = [&](const char* name) { return symbols.exported.contains(name); };
    for (const char* const name : kHooks) {
        const bool kept = symbols.kept.contains(name);
        hidden |= kept;
        fmt::print("{:<34} {}\n", name,
                   exported(name)     ? "exported"
                   : kept             ? "defined, but not exported: the library does not find it"
                   : symbols.stripped ? "not exported"
                                      : "not defined");
    }
    print_memory(exported("ZEB_OsalMemAlloc"), exported("ZEB_OsalMemCacheAlloc"),
                 exported("ZEB_OsalMemFree"));
    for (const char* const name : kBusFunctions) {
        fmt::print("{:<34} {}\n", name, exported(name) ? "the program's own" : "from a library");
    }
    for (const std::string& library : symbols.needed) fmt::print("needs {}\n", library);
    if (hidden) {
        throw CommandError(kBadData,
                           fmt::format("{}: link it with -rdynamic, or against vorn_host, which exports "
                                       "the host services",
                                       file));
    }
    return kOk;
}

ExitCode run_doctor(const DoctorOptions& options) {
    if (!options.program.empty()) return look_at_program(options.program);
    const auto print_origin = [](const char* name) {
        const std::string file = found_in(name);
        fmt::print("{:<34} {}\n", name, file.empty() ? "not found" : file);
    };
    std::for_each(kHooks.begin(), kHooks.end(), print_origin);
    const auto there = [](const char* name) { return !found_in(name).empty(); };
    print_memory(there("ZEB_OsalMemAlloc"), there("ZEB_OsalMemCacheAlloc"), there("ZEB_OsalMemFree"));
    std::for_each(kBusFunctions.begin(), kBusFunctions.end(), print_origin);
    fmt::print("bus:     {}{}\n", vorn_bus_chosen_url(url_or_null(options.bus)),
               options.bus.empty() ? ", by VORN_BUS_URL or for lack of it" : "");
    const OpenBus bus(options.bus, options.as);
    fmt::print("address: {}, free, at {}\n", options.as, vorn_bus_place(bus.get()));
    return kOk;
}

}  // namespace

void add_doctor(CLI::App& app, Chosen& chosen) {
    auto [verb, options] = add_verb(
        app, chosen, "doctor",
        "Tell which host services and which bus a process gets, and whether an address is free", run_doctor);
    verb.add_option("PROGRAM", options.program, "A program's file; this process if not given");
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_option("--as", options.as, "The address, 0 if not given");
}

}  // namespace tool
