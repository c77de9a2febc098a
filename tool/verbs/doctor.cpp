// SPDX-License-Identifier: Apache-2.0
// nac doctor.
#include <dlfcn.h>
#include <fmt/format.h>

#include <array>
#include <set>
#include <string>

#include "tool/io/open_bus.h"
#include "tool/io/program_symbols.h"
#include "tool/message/record_json.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct DoctorOptions {
    std::string program;  // empty: this one
    std::string bus;
    std::uint32_t as = 0;
    bool json = false;
};

constexpr std::array<const char*, 5> kHooks = {"ZEB_OsalMemUseFlagGet", "ZEB_OsalMemCacheAlloc",
                                               "ZEB_OsalMemAlloc", "ZEB_OsalMemFree", "ZEB_OsalLogWrite"};
constexpr std::array<const char*, 4> kBusFunctions = {
    "VORN_RegIDLFuncHook", "VORN_RegIDLResorceCleanFuncHook", "VORN_SendMsg", "VORN_SendToMsg"};

// The file of the first definition in the order in which the dynamic linker looks; empty: none.
std::string found_in(const char* name) {
    void* const address = dlsym(RTLD_DEFAULT, name);
    Dl_info where = {};
    if (address == nullptr || dladdr(address, &where) == 0 || where.dli_fname == nullptr) return "";
    return where.dli_fname;
}

// What is found, line by line for people, or as one object.
class Report {
  public:
    explicit Report(bool json) : json_(json) {}

    void symbol(const char* kind, const char* name, const std::string& state) {
        object_[kind].push_back({{"name", name}, {"state", state}});
        if (!json_) fmt::print("{:<34} {}\n", name, shown(state));
    }

    // Hooks switch as a pair: allocation from the host and release by the system never meet.
    void memory(bool allocates, bool caches, bool releases) {
        line("arrays", "arrays that arrive: ",
             caches && releases ? "the host's cache, where its use flag is 1" : "malloc");
        line("buffers", "buffers to send:    ", allocates && releases ? "the host's allocator" : "malloc");
    }

    void line(const char* key, const char* label, const Json& value, const std::string& more = "") {
        object_[key] = value;
        if (!json_)
            fmt::print("{}{}{}\n", label,
                       shown(value.is_string() ? value.get<std::string>() : json_text(value)), shown(more));
    }

    void needs(const std::string& library) {
        object_["needs"].push_back(library);
        if (!json_) fmt::print("needs {}\n", shown(library));
    }

    void endpoint(const std::string& endpoint) { object_["endpoint"] = endpoint; }

    void finish() const {
        if (json_) fmt::print("{}\n", json_text(object_));
    }

  private:
    bool json_;
    Json object_ = {{"hooks", Json::array()}, {"bus_functions", Json::array()}, {"needs", Json::array()}};
};

ExitCode look_at_program(const std::string& file, Report& report) {
    std::set<std::string> names(kHooks.begin(), kHooks.end());
    names.insert(kBusFunctions.begin(), kBusFunctions.end());
    const ProgramSymbols symbols = program_symbols(file, names);
    bool hidden = false;
    const auto exported = [&](const char* name) { return symbols.exported.contains(name); };
    for (const char* const name : kHooks) {
        const bool kept = symbols.kept.contains(name);
        hidden |= kept;
        report.symbol("hooks", name,
                      exported(name)     ? "exported"
                      : kept             ? "defined, but not exported: the library does not find it"
                      : symbols.stripped ? "not exported"
                                         : "not defined");
    }
    report.memory(exported("ZEB_OsalMemAlloc"), exported("ZEB_OsalMemCacheAlloc"),
                  exported("ZEB_OsalMemFree"));
    for (const char* const name : kBusFunctions) {
        report.symbol("bus_functions", name, exported(name) ? "the program's own" : "from a library");
    }
    for (const std::string& library : symbols.needed) report.needs(library);
    report.finish();
    if (hidden) {
        throw CommandError(kBadData, fmt::format("{}: link it with -rdynamic, or against vorn_host (in CMake "
                                                 "vorn_nac::host), which exports the host services",
                                                 file));
    }
    return kOk;
}

// The endpoint of an address at which no bus is open, or CommandError. On nats no bus is opened: that would
// make a stream, which accepts what others send from then on.
std::string free_endpoint(const std::string& bus, std::uint32_t address) {
    const char* const url = url_or_null(bus);
    const std::string display = vorn_bus_display_url(url);
    if (display.compare(0, 4, "nats") != 0) return vorn_bus_endpoint(OpenBus(bus, address).get());
    struct Search {
        std::uint32_t address;
        bool is_open;
        std::string endpoint;
    } search = {address, false, "a stream that the first bus there makes"};
    const std::int32_t result = vorn_bus_list(
        url,
        [](const vorn_bus_listed* listed, void* sought) {
            auto& found = *static_cast<Search*>(sought);
            if (listed->address != found.address) return;
            found.is_open = listed->is_open != 0;
            found.endpoint = listed->endpoint;
        },
        &search);
    const std::string looking = fmt::format("looking for address {} on {}", address, display);
    if (result != VORN_BUS_OK) throw bus_error(looking, result);
    if (search.is_open) throw bus_error(looking, VORN_BUS_ADDRESS_TAKEN);
    return search.endpoint;
}

ExitCode run_doctor(const DoctorOptions& options) {
    Report report(options.json);
    if (!options.program.empty()) return look_at_program(options.program, report);
    const auto symbol_origin = [&report](const char* kind, const char* name) {
        const std::string file = found_in(name);
        report.symbol(kind, name, file.empty() ? "not found" : file);
    };
    for (const char* const name : kHooks) symbol_origin("hooks", name);
    const auto there = [](const char* name) { return !found_in(name).empty(); };
    report.memory(there("ZEB_OsalMemAlloc"), there("ZEB_OsalMemCacheAlloc"), there("ZEB_OsalMemFree"));
    for (const char* const name : kBusFunctions) symbol_origin("bus_functions", name);
    report.line("bus", "bus:     ", shown(vorn_bus_display_url(url_or_null(options.bus))),
                options.bus.empty() ? ", from VORN_BUS_URL or by default" : "");
    const std::string endpoint = shown(free_endpoint(options.bus, options.as));
    report.line("address", "address: ", options.as, ", free, at " + endpoint);
    report.endpoint(endpoint);
    report.finish();
    return kOk;
}

}  // namespace

void add_doctor(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_doctor);
    verb.add_option("PROGRAM", options.program, "A program's file; this process if not given");
    verb.add_option("--bus", options.bus, kBusHelp);
    verb.add_option("--as", options.as, "The address, 0 if not given")->transform(bus_address());
    verb.add_flag("--json", options.json, kJsonHelp);
}

}  // namespace tool
