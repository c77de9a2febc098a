// SPDX-License-Identifier: Apache-2.0
// nac compat.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include "tool/message/described_package.h"
#include "tool/message/evolution.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct CompatOptions {
    std::string old_file;
    std::string new_file;  // empty: what this tool knows
    bool json = false;
};

constexpr std::array kVerdicts = {"compatible", "loses", "breaks"};

// Of the old package; a message that it has not is itself.
std::vector<std::string> messages_of(const Change& change, const DescribedPackage& before) {
    return before.find(change.type) != nullptr ? messages_with(before, change.type)
                                               : std::vector<std::string>{change.type};
}

Json change_json(const Change& change, const std::vector<std::string>& messages) {
    const auto text_or_null = [](const std::string& text) {
        return text.empty() ? Json(nullptr) : Json(text);
    };
    return {{"verdict", kVerdicts.at(change.verdict)},
            {"type", change.type},
            {"field", text_or_null(change.field)},
            {"change", change.what},
            {"old", text_or_null(change.before)},
            {"new", text_or_null(change.after)},
            {"messages", messages},
            {"reason", change.reason}};
}

// "breaks      Nac_SrvCar f2: other width, u32 -> u64: ... (in Nac_SetUserTableMsg)".
std::string change_text(const Change& change, const std::vector<std::string>& messages) {
    const std::string both = !change.before.empty() && !change.after.empty()
                                 ? fmt::format("{} -> {}", change.before, change.after)
                                 : change.before + change.after;
    const bool is_message = std::find(messages.begin(), messages.end(), change.type) != messages.end();
    const std::string where =
        is_message || messages.empty()
            ? std::string()
            : fmt::format(" (in {}{})", messages.front(),
                          messages.size() == 1 ? "" : fmt::format(" and {} more", messages.size() - 1));
    return fmt::format("{:<10}  {}{}{}: {}{}{}: {}{}", kVerdicts.at(change.verdict), change.type,
                       change.field.empty() ? "" : " ", change.field, change.what, both.empty() ? "" : ", ",
                       both, change.reason, where);
}

ExitCode run_compat(const CompatOptions& options) {
    const DescribedPackage before(options.old_file);
    const DescribedPackage after =
        options.new_file.empty() ? DescribedPackage() : DescribedPackage(options.new_file);
    const std::vector<Change> changes = changes_between(before, after);
    std::array<std::size_t, kVerdicts.size()> numbers = {};
    for (const Change& change : changes) {
        ++numbers.at(change.verdict);
        const std::vector<std::string> messages = messages_of(change, before);
        fmt::print("{}\n", options.json ? json_text(change_json(change, messages))
                                        : shown(change_text(change, messages)));
    }
    const auto [compatible, loses, breaks] = numbers;
    if (!options.json) {
        fmt::print("{} and {}: {}, of which {} compatible, {} lose data, {} break\n",
                   counted(before.types().size(), "old type"), counted(after.types().size(), "new type"),
                   counted(changes.size(), "change"), compatible, loses, breaks);
    }
    return loses + breaks == 0 ? kOk : kBadData;
}

}  // namespace

void add_compat(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_compat);
    verb.add_option(
            "OLD", options.old_file,
            "The old version: what nac describe --json prints, or a catalogue, .so; - is standard input")
        ->required();
    verb.add_option("NEW", options.new_file, "The new one; what this nac knows if not given");
    verb.add_flag("--json", options.json, "One JSON object a change");
    verb.footer(
        "A change is compatible: old and new processes read each other's messages; or it loses data: they "
        "do, but "
        "for a value; or it breaks: one of them misreads or refuses messages.\n"
        "Exit code 0 if all changes are compatible, 1 if one loses data or breaks, 2 if a file holds no "
        "description.");
}

}  // namespace tool
