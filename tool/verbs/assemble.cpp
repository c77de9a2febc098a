// SPDX-License-Identifier: Apache-2.0
// nac assemble: the text of nac hex back into bytes.
#include <fmt/format.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "inspect/byte_text.h"
#include "tool/io/line_reader.h"
#include "tool/io/message_files.h"
#include "tool/show/shown.h"
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

    void read(const std::string& file) {
        LineReader reader(file);
        for (std::string line; reader.next(line);) {
            origin_ = reader.origin();
            read_line(line.substr(0, line.find(';')));
        }
        end_message();
    }

  private:
    CommandError bad(const std::string& what) const {
        return {kBadData, fmt::format("{}: {}", origin_, what)};
    }

    // "message TYPE" starts a message; all else is bytes, perhaps after an offset, which is not used: bytes
    // that are inserted or removed move those after them.
    void read_line(const std::string& line) {
        std::istringstream words(line);
        std::string word;
        bool first = true;
        for (; words >> word; first = false) {
            if (first && word == "message") return start_message(words);
            if (first && word.back() == ':') {
                if (word.find_first_not_of("0123456789abcdefABCDEF") != word.size() - 1) {
                    throw bad(fmt::format("\"{}\" is no offset", shortened(word)));
                }
                continue;
            }
            if (!in_message_) {
                in_message_ = true;
                type_ = usual_type_;
            }
            try {
                const std::vector<std::uint8_t> more = inspect::from_hex(word);
                if (more.size() > VORN_LONGEST_MESSAGE - bytes_.size())
                    throw bad(fmt::format("more than {} bytes are no message", VORN_LONGEST_MESSAGE));
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
            if (type_ == nullptr) throw bad(no_such_type(name));
        }
        if (words >> name) throw bad(fmt::format("\"{}\" after the type", shortened(name)));
    }

    void end_message() {
        if (!in_message_) return;
        if (type_ == nullptr && (format_ == Format::lines || format_ == Format::tagged)) {
            throw CommandError(kBadUsage,
                               fmt::format("{}: no line names the message's type: give --type", origin_));
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
    for (const std::string& file : options.files) assembler.read(file);
    output.finish();
    return kOk;
}

}  // namespace

void add_assemble(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_assemble);
    verb.add_option("FILE", options.files, "Text as nac hex prints it; - is standard input")->required();
    add_format_option(verb, options.format, "What to write");
    verb.add_option("--type", options.type, "Name or id of the type, where no line names it")
        ->type_name("TYPE");
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    verb.add_flag("--json", options.json, "As --format lines");
    verb.footer(
        "A line: an optional offset and a colon, hexadecimal digits, and words after a semicolon.\n"
        "\"message TYPE\" starts a message. Offsets are not used.");
}

}  // namespace tool
