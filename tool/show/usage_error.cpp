// SPDX-License-Identifier: Apache-2.0
#include "tool/show/usage_error.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <vector>

#include "tool/show/nearest.h"
#include "tool/show/shown.h"

namespace tool {
namespace {

// The verb that was reached, and its words: "bus stats".
struct Reached {
    const CLI::App* verb;
    std::string words;
};

Reached reached_by(const CLI::App& app) {
    Reached reached = {&app, ""};
    while (!reached.verb->get_subcommands().empty()) {
        reached.verb = reached.verb->get_subcommands().back();
        reached.words += (reached.words.empty() ? "" : " ") + reached.verb->get_name();
    }
    return reached;
}

std::string help_of(const Reached& reached) {
    return reached.words.empty() ? "nac --help" : fmt::format("nac {} --help", reached.words);
}

std::vector<std::string> options_of(const CLI::App& verb) {
    std::vector<std::string> names;
    for (const CLI::Option* const option : verb.get_options()) {
        for (const std::string& name : option->get_lnames()) names.push_back("--" + name);
    }
    return names;
}

std::vector<std::string> verbs_of(const CLI::App& app) {
    std::vector<std::string> names;
    for (const CLI::App* const verb : app.get_subcommands([](const CLI::App*) { return true; })) {
        names.push_back(verb->get_name());
    }
    return names;
}

std::string unexpected(const Reached& reached, const std::string& word) {
    const std::string who = reached.words.empty() ? "nac" : reached.words;
    if (!word.starts_with('-') || word == "-") {
        return fmt::format("{} takes no argument {}; see {}", who, shortened(word), help_of(reached));
    }
    const std::string name = word.substr(0, word.find('='));
    const std::string nearest = did_you_mean(name, options_of(*reached.verb));
    return fmt::format("{} has no option {}{}", who, shortened(name),
                       nearest.empty() ? "; see " + help_of(reached) : nearest);
}

}  // namespace

std::string usage_text(const CLI::App& app, const CLI::ParseError& error) {
    const Reached reached = reached_by(app);
    const std::string help =
        reached.words.empty() ? "nac --help" : fmt::format("nac {} --help", reached.words);
    const std::vector<std::string> rest = reached.verb->remaining();
    const std::string_view what = error.what();
    const std::vector<std::string> verbs = verbs_of(*reached.verb);
    if (!verbs.empty()) {
        const std::string of = reached.words.empty() ? "" : " of " + reached.words;
        if (rest.empty()) return fmt::format("a verb{} is missing; {} lists them", of, help);
        if (rest.front().starts_with('-')) return unexpected(reached, rest.front());
        const std::string nearest = did_you_mean(rest.front(), verbs);
        return fmt::format("{} is no verb{}{}", shortened(rest.front()), of,
                           nearest.empty() ? fmt::format("; {} lists them", help) : nearest);
    }
    if (!rest.empty()) return unexpected(reached, rest.front());
    constexpr std::string_view kRequired = " is required";
    if (what.ends_with(kRequired)) {
        const std::string_view missing = what.substr(0, what.size() - kRequired.size());
        return fmt::format("{} needs {}; see {}", reached.words, missing, help);
    }
    if (what.find(" required ") != std::string_view::npos) {
        return fmt::format("{} {} needs a value; see {}", reached.words, what.substr(0, what.find(':')),
                           help);
    }
    const bool asks = what.ends_with('?');
    return fmt::format("{} {}{}", reached.words, what, asks ? "" : "; see " + help);
}

}  // namespace tool
