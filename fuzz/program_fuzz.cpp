// SPDX-License-Identifier: Apache-2.0
// Promise: no file makes the reader of programs' symbols misbehave, and it finds only what it was asked for.
//
// Input: a program's file, or anything.
#include <cstdint>

#include "fuzz/input_file.h"
#include "tool/commands.h"
#include "tool/io/program_symbols.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const fuzz::InputFile file(std::span(data, size));
    const std::set<std::string> names = {"ZEB_OsalMemAlloc", "VORN_SendMsg", "a"};
    try {
        const tool::ProgramSymbols found = tool::program_symbols(file.path(), names);
        for (const auto* list : {&found.exported, &found.kept}) {
            for (const std::string& name : *list)
                fuzz::promise(names.contains(name), "only what was asked for");
        }
        for (const std::string& name : found.kept) {
            fuzz::promise(!found.exported.contains(name), "what is exported is not kept back");
        }
    } catch (const tool::CommandError& error) {
        fuzz::promise(error.code() == tool::kBadData, "a file that is read is no trouble");
    }
    return 0;
}
