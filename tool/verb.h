// SPDX-License-Identifier: Apache-2.0
// How a verb declares itself.
#ifndef TOOL_VERB_H
#define TOOL_VERB_H

#include <CLI/CLI.hpp>
#include <memory>
#include <string>

#include "tool/commands.h"

namespace tool {

// A verb on the command line, and the options that it fills.
template <class Options>
struct Verb {
    CLI::App& command;
    Options& options;
};

// Gives a verb its options; once parsed, it makes `run` the chosen one.
template <class Options>
Verb<Options> add_verb(CLI::App& command, Chosen& chosen, ExitCode (*run)(const Options&)) {
    const auto options = std::make_shared<Options>();
    command.callback([&chosen, run, options] { chosen = [run, options] { return run(*options); }; });
    return {command, *options};
}

inline constexpr const char* kJsonHelp = "One JSON object a line";
inline constexpr const char* kAlwaysJsonHelp = "One JSON object a line, as without it";
inline constexpr const char* kOutputHelp = "Where the data goes; standard output if not given, and for -";
inline constexpr const char* kBusHelp = "URL of the bus; else VORN_BUS_URL, else loop:";

}  // namespace tool

#endif
