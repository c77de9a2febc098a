// SPDX-License-Identifier: Apache-2.0
// nac hex: the bytes of messages beside their meanings.
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

#include "inspect/byte_text.h"
#include "tool/io/message_files.h"
#include "tool/message/finding.h"
#include "tool/show/hex_page.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

enum class Colour { automatic, always, never };

struct HexOptions {
    MessageOptions messages;
    std::string output;
    Colour colour = Colour::automatic;
    Octets octets = Octets::automatic;
    bool html = false;
    bool json = false;
};

constexpr std::size_t kRowBytes = 8;
constexpr std::size_t kMostPageBytes = 1'000'000;

class HexText {
  public:
    HexText(bool coloured, Octets octets) : coloured_(coloured), octets_(octets) {}

    std::string of(const Message& message, const Finding& finding) {
        text_ = fmt::format("message {}  ; {}, {} bytes, {}\n", message.type.name, shown(message.context()),
                            message.bytes.size(), summary_of(finding));
        for (const Fault& fault : finding.walk.faults) note("! " + fault_text(fault), kRed);
        if (finding.walk.more_faults != 0) note(fmt::format("! and {} more", finding.walk.more_faults), kRed);
        for (const std::string& line : finding.logged) note("logged: " + line, kRed);
        if (!finding.is_buffer()) {
            rows(0, message.wire_bytes(), "", "");
            return text_;
        }
        const Annotated annotated = annotate(message.type, message.bytes);
        for (const Piece& piece : annotated.pieces) add(piece, annotated, message);
        if (annotated.cut)
            note(fmt::format("more than {} meanings: the rest is not shown", kMostRanges), kRed);
        return text_;
    }

  private:
    static constexpr const char* kRed = "\033[31m";
    static constexpr const char* kGrey = "\033[90m";

    std::string coloured(const char* colour, const std::string& text) const {
        return coloured_ && *colour != '\0' ? fmt::format("{}{}\033[0m", colour, text) : text;
    }

    void note(const std::string& text, const char* colour) { text_ += coloured(colour, "; " + text) + "\n"; }

    void add(const Piece& piece, const Annotated& annotated, const Message& message) {
        bool first = true;
        for (const std::size_t k : piece.meanings) {
            const Range& range = annotated.ranges[k];
            const bool whole = range.at == piece.at && range.bytes == piece.bytes;
            std::string words = std::string(std::size_t{2} * range.depth, ' ') + (range.faulty ? "! " : "");
            if (!whole) words += fmt::format("in {} to {}: ", range.at, range.at + range.bytes - 1);
            words += meaning(range, message.bytes, octets_);
            const char* const colour = range.faulty                      ? kRed
                                       : range.part == VORN_PART_UNREAD  ? kGrey
                                       : range.part == VORN_PART_PADDING ? kGrey
                                                                         : "";
            if (first) {
                rows(piece.at, message.wire_bytes().subspan(piece.at, piece.bytes), words, colour);
            } else {
                text_ += fmt::format("{:35}; {}\n", "", coloured(colour, words));
            }
            first = false;
        }
    }

    void rows(std::size_t at, std::span<const std::uint8_t> bytes, const std::string& words,
              const char* colour) {
        for (std::size_t done = 0; done < bytes.size(); done += kRowBytes) {
            const auto row = bytes.subspan(done, std::min(kRowBytes, bytes.size() - done));
            std::string digits;
            for (const std::uint8_t byte : row) digits += fmt::format(" {:02x}", byte);
            const std::string position = coloured(kGrey, fmt::format("{:08x}:", at + done));
            if (done == 0 && !words.empty()) {
                text_ += fmt::format("{}{:<25} ; {}\n", position, digits, coloured(colour, words));
            } else {
                text_ += fmt::format("{}{}\n", position, digits);
            }
        }
    }

    bool coloured_;
    Octets octets_;
    std::string text_;
};

template <class T>
Json name_or_null(const T* thing) {
    return thing != nullptr ? Json(thing->name) : Json(nullptr);
}

Json range_json(const Range& range, const Message& message, Octets octets) {
    const bool leads = range.part == VORN_PART_ROOT_REFERENCE || range.part == VORN_PART_SOFFSET ||
                       range.part == VORN_PART_REFERENCE ||
                       (range.part == VORN_PART_SLOT && range.number != 0);
    return {{"at", range.at},
            {"bytes", range.bytes},
            {"hex", inspect::to_hex(message.wire_bytes().subspan(range.at, range.bytes))},
            {"part", vorn_inspect_part_text(static_cast<vorn_part>(range.part))},
            {"depth", range.depth},
            {"table", name_or_null(range.table)},
            {"field", name_or_null(range.field)},
            {"path", range.path},
            {"value", range.part == VORN_PART_SCALAR ? Json(range.number) : Json(nullptr)},
            {"target", leads ? Json(range.target) : Json(nullptr)},
            {"text", meaning(range, message.bytes, octets, true)},
            {"faulty", range.faulty}};
}

// Range by range: all of them as Json would take much more memory than the message.
void write_json(Output& output, const Message& message, const Finding& finding, Octets octets) {
    Json object = {{"origin", message.origin}};
    object.update(message.packet_json());
    object.update(finding_to_json(finding, message.type, message.bytes));
    output.write(open_object(object) + R"(,"ranges":[)");
    if (finding.is_buffer()) {
        const char* separator = "";
        const Annotated annotated = annotate(message.type, message.bytes);
        for (const Range& range : annotated.ranges) {
            output.write(separator + json_text(range_json(range, message, octets)));
            separator = ",";
        }
    }
    output.write("]}\n");
}

bool is_coloured(const HexOptions& options) {
    if (options.colour != Colour::automatic) return options.colour == Colour::always;
    const char* const no_color = std::getenv("NO_COLOR");  // NOLINT(concurrency-mt-unsafe): nobody sets it
    const bool to_terminal = (options.output.empty() || options.output == "-") && isatty(STDOUT_FILENO) == 1;
    return to_terminal && (no_color == nullptr || *no_color == '\0');
}

// A page is held as a whole, and so are its messages: a browser has to do the same.
ExitCode write_page(const HexOptions& options) {
    std::string page = hex_page_start();
    std::size_t messages = 0;
    std::size_t bytes = 0;
    bool whole = true;
    for_each_message(options.messages, [&](const Message& message) {
        bytes += message.bytes.size();
        if (bytes > kMostPageBytes) {
            throw CommandError(kBadUsage,
                               fmt::format("{}: more than {} bytes of messages are too many for one page; "
                                           "choose some with --packet, --type or --where",
                                           message.origin, kMostPageBytes));
        }
        const Finding finding = find_faults(message.type, message.bytes);
        whole &= finding.is_whole();
        page += hex_page_section(++messages, message.context(), message.type, message.bytes,
                                 message.wire_bytes(), finding, options.octets);
    });
    Output output(options.output);
    output.write(page + hex_page_end());
    output.finish();
    return whole ? kOk : kBadData;
}

ExitCode run_hex(const HexOptions& options) {
    if (options.html) return write_page(options);
    bool whole = true;
    Output output(options.output);
    HexText text(is_coloured(options), options.octets);
    for_each_message(options.messages, [&](const Message& message) {
        const Finding finding = find_faults(message.type, message.bytes);
        whole &= finding.is_whole();
        if (options.json) {
            write_json(output, message, finding, options.octets);
        } else {
            output.write(text.of(message, finding));
        }
    });
    output.finish();
    return whole ? kOk : kBadData;
}

const std::map<std::string, Colour>& colours() {
    static const std::map<std::string, Colour> names = {
        {"auto", Colour::automatic}, {"always", Colour::always}, {"never", Colour::never}};
    return names;
}

}  // namespace

void add_hex(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_hex);
    add_message_options(verb, options.messages);
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    CLI::Option* const html = verb.add_flag(
        "--html", options.html,
        "One page, for a browser, in which bytes and meanings select each other; up to 1 MB of messages");
    verb.add_flag("--json", options.json, kJsonHelp)->excludes(html);
    add_octets_option(verb, options.octets);
    verb.add_option("--color", options.colour, "auto, if not given: on a terminal, unless NO_COLOR is set")
        ->transform(one_of(colours()));
    verb.footer("nac assemble reads the text back. Exit code 1 if a message is damaged.");
}

}  // namespace tool
