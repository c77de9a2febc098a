// SPDX-License-Identifier: Apache-2.0
// nac: command line and exit codes.
#include <CLI/CLI.hpp>
#include <cstddef>
#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <vector>

#include "tool/commands.h"
#include "tool/io/output.h"
#include "tool/message/message_type.h"
#include "tool/show/shown.h"
#include "tool/show/usage_error.h"

namespace tool {
namespace {

struct ListedVerb {
    const char* words;
    const char* heading;
    const char* purpose;
    void (*add)(CLI::App& verb, Chosen& chosen);
};

#define NAC_LIST_VERB(function, words, heading, purpose) ListedVerb{words, heading, purpose, add_##function},
constexpr auto kVerbs = {NAC_VERBS(NAC_LIST_VERB)};
#undef NAC_LIST_VERB

// "bus stats" is a verb of "bus", which is listed before it.
void add(CLI::App& app, Chosen& chosen, const ListedVerb& verb) {
    const std::string words = verb.words;
    const std::size_t blank = words.find(' ');
    CLI::App* const parent = blank == std::string::npos ? &app : app.get_subcommand(words.substr(0, blank));
    CLI::App* const command = parent->add_subcommand(words.substr(blank + 1), verb.purpose);
    if (parent == &app) command->group(verb.heading);
    verb.add(*command, chosen);
}

// Of nlohmann's values the destructor allocates, and cannot throw: lack of memory comes here.
[[noreturn]] void end_without_memory() noexcept {
    try {
        if (std::current_exception() != nullptr) throw;
    } catch (const std::bad_alloc&) {
        report_lack_of_memory();
        std::_Exit(kTrouble);
    } catch (...) {  // ends as it would have
    }
    std::abort();
}

ExitCode run(int argc, char** argv) {
    std::set_terminate(end_without_memory);
    CLI::App app("Messages of the Nac package on the VORN bus.", "nac");
    app.set_version_flag("--version", "nac " NAC_VERSION);
    app.require_subcommand(1);
    app.footer(
        "Exit codes: 0 all is well, 1 data found bad or different, 2 wrong usage, 3 file or bus trouble.");
    std::vector<std::string> files;
    app.add_option(
           "--catalogue", files,
           "Messages of another package: its libvorn_NAME_catalogue.so, or NAME where it is installed; "
           "several times for several, and nac for Nac's own")
        ->type_name("FILE")
        ->envname("NAC_CATALOGUE")
        ->allow_extra_args(false);
    Chosen chosen;
    for (const ListedVerb& verb : kVerbs) add(app, chosen, verb);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error) == 0 ? kOk : kTrouble;  // --help, --version
        report("nac: {}", usage_text(app, error));
        return kBadUsage;
    }
    if (!files.empty()) load_catalogues(files);
    const ExitCode code = chosen();
    flush_standard_output();
    return code;
}

}  // namespace
}  // namespace tool

int main(int argc, char** argv) try {
    return tool::run(argc, argv);
} catch (const tool::CommandError& error) {
    tool::report("nac: {}", error.what());
    return error.code();
} catch (const std::exception& error) {
    tool::report("nac: {}", error.what());
    return tool::kTrouble;
}
