// SPDX-License-Identifier: Apache-2.0
// nac completion: a script for a shell, made from the command line's own description.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tool/io/message_files.h"
#include "tool/message/message_type.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct CompletionOptions {
    const CLI::App* app = nullptr;
    std::string shell;
    std::string output;
    bool json = false;
};

struct Word {
    std::vector<std::string> names;  // "-o", "--output"; none: a positional
    std::string purpose;             // one line
    bool takes_value = false;
    bool takes_file = false;
    std::vector<std::string> values;  // all that it can be, where that is known
};

struct Command {
    std::vector<std::string> path;  // "nac", "bus", "stats"
    std::string purpose;
    std::vector<Word> words;
    std::vector<Command> commands;

    std::string joined(const char* separator) const { return fmt::format("{}", fmt::join(path, separator)); }
    // After the tool's own name: "bus stats".
    std::string verb() const { return fmt::format("{}", fmt::join(path.begin() + 1, path.end(), " ")); }
};

std::string first_line(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    // What shells' scripts would have to quote.
    std::erase_if(text, [](char c) { return c == '\'' || c == '[' || c == ']' || c == '"' || c == '`'; });
    return text;
}

// A type name lists what a value can be: "{a,b}", FILE, TYPE.
std::vector<std::string> values_of(const std::string& type_name) {
    std::vector<std::string> values;
    if (type_name.find("TYPE") != std::string::npos) {
        for (const auto& type : message_types()) values.emplace_back(type->name);
    }
    const std::size_t open = type_name.find('{');
    const std::size_t close = type_name.find('}');
    if (open == std::string::npos || close == std::string::npos) return values;
    std::string value;
    for (const char c : type_name.substr(open + 1, close - open - 1) + ",") {
        if (c == ',') {
            values.push_back(std::exchange(value, ""));
        } else {
            value += c;
        }
    }
    return values;
}

Word word_of(const CLI::Option& option) {
    Word word;
    for (const std::string& name : option.get_snames()) word.names.push_back("-" + name);
    for (const std::string& name : option.get_lnames()) word.names.push_back("--" + name);
    word.purpose = first_line(option.get_description());
    word.takes_value = option.get_items_expected_max() > 0;
    const std::string type_name = option.get_type_name();
    const std::string positional = option.get_name(true);
    word.takes_file = type_name == "FILE" || positional == "FILE" || positional == "PROGRAM";
    word.values = values_of(positional == "TYPE" ? positional : type_name);
    return word;
}

Command command_of(const CLI::App& app, std::vector<std::string> path) {
    path.push_back(app.get_name());
    Command command = {path, first_line(app.get_description()), {}, {}};
    for (const CLI::Option* const option : app.get_options()) command.words.push_back(word_of(*option));
    for (const CLI::App* const part : app.get_subcommands([](const CLI::App*) { return true; })) {
        command.commands.push_back(command_of(*part, path));
    }
    return command;
}

template <class Visit>
void each_command(const Command& command, const Visit& visit) {
    visit(command);
    for (const Command& part : command.commands) each_command(part, visit);
}

std::string bash_script(const Command& root) {
    std::string known;   // cases: a word that goes on from a verb to one in it
    std::string values;  // cases: an option before the word
    std::string words;   // cases: what may come in a verb
    each_command(root, [&](const Command& command) {
        const std::string verb = command.verb();
        std::vector<std::string> choices;
        for (const Command& part : command.commands) {
            choices.push_back(part.path.back());
            known += fmt::format("            '{} {}') verb='{}' ;;\n", verb, part.path.back(), part.verb());
        }
        bool files = false;
        for (const Word& word : command.words) {
            choices.insert(choices.end(), word.names.begin(), word.names.end());
            if (word.names.empty()) {
                files |= word.takes_file;
                choices.insert(choices.end(), word.values.begin(), word.values.end());
            } else if (word.takes_value) {
                std::vector<std::string> cases;
                for (const std::string& name : word.names)
                    cases.push_back(fmt::format("'{} {}'", verb, name));
                values += fmt::format("        {}) choices='{}' files={} ;;\n", fmt::join(cases, " | "),
                                      fmt::join(word.values, " "), word.takes_file ? 1 : 0);
            }
        }
        words += fmt::format("            '{}') choices='{}' files={} ;;\n", verb, fmt::join(choices, " "),
                             files ? 1 : 0);
    });
    return fmt::format(R"(# bash completion of nac: source this, or put it into /etc/bash_completion.d.
_nac() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} before=${{COMP_WORDS[COMP_CWORD - 1]}} verb='' choices='' files=0 i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        case "$verb ${{COMP_WORDS[i]}}" in
{}        esac
    done
    case "$verb $before" in
{}        *)
            case "$verb" in
{}            esac
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$word")
    if ((files)); then
        compopt -o filenames 2>/dev/null
        mapfile -t -O ${{#COMPREPLY[@]}} COMPREPLY < <(compgen -f -- "$word")
    fi
}}
complete -F _nac nac
)",
                       known, values, words);
}

std::string zsh_value(const Word& word) {
    if (!word.values.empty()) return fmt::format(":value:({})", fmt::join(word.values, " "));
    return word.takes_file ? ":file:_files" : ":value: ";
}

std::string zsh_script(const Command& root) {
    std::string script = "#compdef nac\n# zsh completion of nac: put it into a folder of $fpath as _nac.\n";
    each_command(root, [&script](const Command& command) {
        script += fmt::format("_{}() {{\n", command.joined("_"));
        std::string arguments = "    _arguments";
        for (const Word& word : command.words) {
            for (const std::string& name : word.names) {
                arguments += fmt::format(" \\\n        '{}[{}]{}'", name, word.purpose,
                                         word.takes_value ? zsh_value(word) : std::string());
            }
            if (word.names.empty()) arguments += fmt::format(" \\\n        '*{}'", zsh_value(word));
        }
        if (command.commands.empty()) {
            script += arguments + "\n}\n";
            return;
        }
        script +=
            "    while ((CURRENT > 3)) && [[ $words[2] = --catalogue ]]; do\n"
            "        words[2,3]=()\n        ((CURRENT -= 2))\n    done\n"
            "    if ((CURRENT > 2)) && [[ $words[2] != -* ]]; then\n        local verb=$words[2]\n        "
            "shift words\n"
            "        ((CURRENT--))\n        case $verb in\n";
        for (const Command& part : command.commands) {
            script += fmt::format("            {}) _{} ;;\n", part.path.back(), part.joined("_"));
        }
        script += "        esac\n        return\n    fi\n    local -a verbs=(\n";
        for (const Command& part : command.commands) {
            script += fmt::format("        '{}:{}'\n", part.path.back(), part.purpose);
        }
        script += "    )\n    _describe verb verbs\n" + arguments + "\n}\n";
    });
    return script + "if [ \"$funcstack[1]\" = _nac ]; then _nac \"$@\"; else compdef _nac nac; fi\n";
}

std::string fish_script(const Command& root) {
    std::string script =
        "# fish completion of nac: put it into ~/.config/fish/completions/nac.fish.\ncomplete -c nac -f\n";
    each_command(root, [&script](const Command& command) {
        std::string condition;
        for (std::size_t k = 1; k < command.path.size(); ++k) {
            condition +=
                fmt::format("{}__fish_seen_subcommand_from {}", k == 1 ? "" : "; and ", command.path[k]);
        }
        if (!command.commands.empty()) {
            std::vector<std::string> parts;
            for (const Command& part : command.commands) parts.push_back(part.path.back());
            condition += fmt::format("{}not __fish_seen_subcommand_from {}",
                                     condition.empty() ? "" : "; and ", fmt::join(parts, " "));
        }
        const std::string start = fmt::format("complete -c nac -n '{}'", condition);
        for (const Command& part : command.commands) {
            script += fmt::format("{} -a {} -d '{}'\n", start, part.path.back(), part.purpose);
        }
        for (const Word& word : command.words) {
            std::string line = start;
            for (const std::string& name : word.names) {
                line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
            }
            if (word.takes_file) line += word.names.empty() ? " -F" : " -r -F";
            if (word.takes_value && !word.takes_file && !word.names.empty()) line += " -x";
            if (!word.values.empty()) line += fmt::format(" -a '{}'", fmt::join(word.values, " "));
            if (line == start) continue;
            script += fmt::format("{} -d '{}'\n", line, word.purpose);
        }
    });
    return script;
}

ExitCode run_completion(const CompletionOptions& options) {
    const Command root = command_of(*options.app, {});
    const std::string script = options.shell == "bash"  ? bash_script(root)
                               : options.shell == "zsh" ? zsh_script(root)
                                                        : fish_script(root);
    Output output(options.output);
    if (options.json) {
        output.write_line({{"shell", options.shell}, {"script", script}});
    } else {
        output.write(script);
    }
    output.finish();
    return kOk;
}

}  // namespace

void add_completion(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_completion);
    options.app = command.get_parent();
    verb.add_option("SHELL", options.shell, "bash, zsh or fish")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}).description("{bash,zsh,fish}"));
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    verb.add_flag("--json", options.json, kJsonHelp);
}

}  // namespace tool
