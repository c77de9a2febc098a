// SPDX-License-Identifier: Apache-2.0
// What a program's file offers to the dynamic linker, and what it needs.
#ifndef TOOL_PROGRAM_SYMBOLS_H
#define TOOL_PROGRAM_SYMBOLS_H

#include <set>
#include <string>
#include <vector>

namespace tool {

struct ProgramSymbols {
    std::set<std::string> exported;
    std::set<std::string> kept;       // defined, and not exported: nobody finds them by name
    std::vector<std::string> needed;  // libraries
    bool stripped = true;             // no list of what is kept
};

// Looks for symbols of these names in a 64-bit ELF file of this machine's byte order. Throws CommandError if
// it is none.
ProgramSymbols program_symbols(const std::string& file, const std::set<std::string>& names);

}  // namespace tool

#endif
