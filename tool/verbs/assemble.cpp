// SPDX-License-Identifier: Apache-2.0
// nac assemble: the text of nac hex back into bytes.
#include <fmt/format.h>

#include <cctype>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "tool/io/message_files.h"
#include "tool/message/record_text.h"
#include "tool/verb.h"

namespace tool {
namespace {

struct AssembleOptions {
    std::vector<std::string> files;  // "-" is standard input
    std::string type;
    std::string output;
    Format format = Format::lines;
    bool json = false;
};

class Assembler {
  public:
    Assembler(const AssembleOptions& options, Output& output)
        : usual_type_(type_option(options.type)),
          format_(options.json ? Format::lines : options.format),
          output_(output) {}

    void read(std::istream& stream, const std::string& name) {
        std::string line;
        for (std::size_t number = 1; std::getline(stream, line); ++number) {
            origin_ = fmt::format("{}:{}", name, number);
            read_line(line.substr(0, line.find(';')));
        }
        if (stream.bad()) throw CommandError(kTrouble, fmt::format("{}: cannot be read", name));
        end_message();
    }

  private:
    CommandError bad(const std::string& what) const {
        return {kBadData, fmt::format("{}: {}", origin_, what)};
    }

    // "message TYPE" starts a message; all else is bytes, perhaps behind a position, which says nothing:
    // bytes that are put in or taken out move those behind them.
    void read_line(const std::string& line) {
        std::istringstream words(line);
        std::string word;
        bool first = true;
        for (; words >> word; first = false) {
            if (first && word == "message") return start_message(words);
            if (first && word.back() == ':') {
                if (word.find_first_not_of("0123456789abcdefABCDEF") != word.size() - 1) {
                    throw bad(fmt::format("\"{}\" is no position", word));
                }
                continue;
            }
            if (!in_message_) {
                in_message_ = true;
                type_ = usual_type_;
            }
            try {
                const std::vector<std::uint8_t> more = from_hex(word);
                bytes_.insert(bytes_.end(), more.begin(), more.end());
            } catch (const std::invalid_argument& error) {
                throw bad(error.what());
            }
        }
    }

    void start_message(std::istringstream& words) {
        end_message();
        in_message_ = true;
        type_ = usual_type_;
        std::string name;
        if (words >> name) {
            type_ = named_message_type(name);
            if (type_ == nullptr) throw bad(fmt::format("{} is not a message type", name));
        }
        if (words >> name) throw bad(fmt::format("\"{}\" behind the type", name));
    }

    void end_message() {
        if (!in_message_) return;
        if (type_ == nullptr && (format_ == Format::lines || format_ == Format::tagged)) {
            throw CommandError(kBadUsage,
                               fmt::format("{}: no line tells the message's type: give --type", origin_));
        }
        if (format_ == Format::raw && written_)
            throw bad("a second message; a raw file is one, see --format");
        output_.write(format_, type_, bytes_);
        written_ = true;
        in_message_ = false;
        bytes_.clear();
    }

    const MessageType* usual_type_;
    Format format_;
    Output& output_;
    std::string origin_;
    const MessageType* type_ = nullptr;  // of the message that is read
    std::vector<std::uint8_t> bytes_;
    bool in_message_ = false;
    bool written_ = false;
};

ExitCode run_assemble(const AssembleOptions& options) {
    Output output(options.output);
    Assembler assembler(options, output);
    for (const std::string& file : options.files) {
        if (file == "-") {
            assembler.read(std::cin, "standard input");
            continue;
        }
        std::ifstream stream(file);
        if (!stream) {
            throw CommandError(kTrouble, fmt::format("{}: {}", file, std::generic_category().message(errno)));
        }
        assembler.read(stream, file);
    }
    output.finish();
    return kOk;
}

}  // namespace

void add_assemble(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_assemble);
    verb.add_option("FILE", options.files, "Text as nac hex prints it; - is standard input")->required();
    add_format_option(verb, options.format, "What to write");
    verb.add_option("--type", options.type, "Name or id of the type, where no line tells it")
        ->type_name("TYPE");
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    verb.add_flag("--json", options.json, "As --format lines");
    verb.footer(
        "A line: an optional position and a colon, hexadecimal digits, and words behind a semicolon.\n"
        "\"message TYPE\" starts a message. Positions are not used.");
}

}  // namespace tool
