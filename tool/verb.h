// SPDX-License-Identifier: Apache-2.0
// How a verb declares itself.
#ifndef TOOL_VERB_H
#define TOOL_VERB_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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

// Check numbers on the command line: decimal, or hexadecimal with 0x; no sign, and no number outside of the
// range, becomes another number.
CLI::Validator whole_number(std::uint64_t least = 0, std::uint64_t most = UINT64_MAX);
CLI::Validator real_number(double least, double most);
inline CLI::Validator bus_address() { return whole_number(0, UINT32_MAX).description(""); }

enum class Octets;
// Adds --octets.
void add_octets_option(CLI::App& verb, Octets& octets);

// Checks a word for an enumeration.
CLI::Validator one_of(std::vector<std::pair<int, std::string>> values);
template <class Value>
CLI::Validator one_of(const std::map<std::string, Value>& names) {
    std::vector<std::pair<int, std::string>> values;
    values.reserve(names.size());
    for (const auto& [name, value] : names) values.emplace_back(static_cast<int>(value), name);
    return one_of(std::move(values));
}
inline CLI::Validator seconds() { return real_number(0.001, 1e6); }

inline constexpr const char* kJsonHelp = "One JSON object a line";
inline constexpr const char* kAlwaysJsonHelp = "One JSON object a line, as without it";
inline constexpr const char* kOutputHelp = "Where the data goes; standard output if not given, and for -";
inline constexpr const char* kBusHelp = "URL of the bus; else VORN_BUS_URL, else loop:";

}  // namespace tool

#endif
