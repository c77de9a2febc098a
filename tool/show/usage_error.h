// SPDX-License-Identifier: Apache-2.0
// What is wrong with a command line, in one sentence.
#ifndef TOOL_USAGE_ERROR_H
#define TOOL_USAGE_ERROR_H

#include <CLI/CLI.hpp>
#include <string>

namespace tool {

// "decode has no option --fromat; did you mean --format?"
std::string usage_text(const CLI::App& app, const CLI::ParseError& error);

}  // namespace tool

#endif
