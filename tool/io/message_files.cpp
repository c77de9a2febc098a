// SPDX-License-Identifier: Apache-2.0
#include "tool/io/message_files.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <system_error>

#include "inspect/byte_text.h"
#include "tool/io/capture.h"
#include "tool/io/json_lines.h"
#include "tool/io/line_reader.h"
#include "tool/io/opened_file.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/verb.h"

namespace tool {
namespace {

using Use = std::function<void(const Message&)>;

constexpr std::size_t kChunk = 1 << 20;

// Messages that are bytes, from a stream.
class ByteStream {
  public:
    ByteStream(std::istream& stream, std::string name) : stream_(stream), name_(std::move(name)) {}

    // Reads up to `count` bytes; memory grows with what comes, not with what is announced.
    std::vector<std::uint8_t> read(std::size_t count) {
        std::vector<std::uint8_t> bytes;
        while (bytes.size() < count && stream_) {
            const std::size_t before = bytes.size();
            bytes.resize(std::min(count, before + kChunk));
            stream_.read(reinterpret_cast<char*>(bytes.data() + before),
                         static_cast<std::streamsize>(bytes.size() - before));
            bytes.resize(before + static_cast<std::size_t>(stream_.gcount()));
        }
        if (stream_.bad()) throw CommandError(kTrouble, fmt::format("{}: cannot be read", name_));
        return bytes;
    }

    CommandError bad(const std::string& what) const { return {kBadData, fmt::format("{}: {}", name_, what)}; }

    void read_raw(const MessageType& type, const Use& use) {
        const std::vector<std::uint8_t> bytes = read(VORN_LONGEST_MESSAGE);
        if (!read(1).empty()) throw bad(fmt::format("more than {} bytes are no message", bytes.size()));
        use({name_, type, bytes});
    }

    // Messages after their lengths, and after their ids too where no type is given.
    void read_prefixed(const MessageType* type, const Use& use) {
        const std::size_t head_bytes = type == nullptr ? 8 : 4;
        for (std::size_t number = 1;; ++number) {
            const std::vector<std::uint8_t> head = read(head_bytes);
            if (head.empty()) return;
            const std::string origin = fmt::format("{}: message {}", name_, number);
            const auto cut = [&] { return CommandError(kBadData, origin + " is cut short"); };
            if (head.size() < head_bytes) throw cut();
            const MessageType* own = type;
            if (own == nullptr) {
                const std::uint32_t id = number_at(head, 0);
                own = find_message_type(id);
                if (own == nullptr) {
                    throw CommandError(
                        kBadData, fmt::format("{}: 0x{:08X} is not the id of a message type", origin, id));
                }
            }
            const std::uint32_t length = number_at(head, head_bytes - 4);
            if (length > VORN_LONGEST_MESSAGE) {
                throw CommandError(kBadData, fmt::format("{}: {} bytes are no message", origin, length));
            }
            const std::vector<std::uint8_t> bytes = read(length);
            if (bytes.size() < length) throw cut();
            use({origin, *own, bytes});
        }
    }

  private:
    static std::uint32_t number_at(const std::vector<std::uint8_t>& bytes, std::size_t at) {
        std::uint32_t number = 0;
        for (std::size_t i = 4; i-- > 0;) number = number << 8 | bytes[at + i];
        return number;
    }

    std::istream& stream_;
    std::string name_;
};

void read_hex(const std::string& file, const MessageType& type, const Use& use) {
    LineReader reader(file);
    for (std::string line; reader.next(line);) {
        std::erase_if(line, [](unsigned char c) { return std::isspace(c) != 0; });
        if (line.empty()) continue;
        std::vector<std::uint8_t> bytes;
        try {
            bytes = inspect::from_hex(line);
        } catch (const std::invalid_argument& error) {
            throw reader.bad(error.what());
        }
        use({reader.origin(), type, bytes});
    }
}

void read_capture(CaptureReader& reader, const MessageType* type, const Use& use) {
    CapturedMessage captured;
    std::uint64_t bad = 0;
    const auto complain = [&bad](const std::string& what) {
        ++bad;
        report("nac: {}", what);
    };
    while (reader.next(captured)) {
        const MessageType* const own = find_message_type(captured.id);
        if (type != nullptr && own != type) continue;
        const std::string origin = fmt::format("{}: packet {}", reader.name(), reader.packets());
        if (own == nullptr) {
            complain(fmt::format("{}: 0x{:08X} is not the id of a message type", origin, captured.id));
        } else if (captured.is_cut()) {
            complain(fmt::format("{}: {} was cut from {} bytes to {} when it was recorded", origin, own->name,
                                 captured.bytes_on_bus, captured.bytes.size()));
        } else {
            try {
                use({origin, *own, captured.bytes});
            } catch (const CommandError& error) {
                if (error.code() != kBadData) throw;
                complain(error.what());
            }
        }
    }
    if (!reader.complaint().empty())
        throw CommandError(kBadData, fmt::format("{}: {}", reader.name(), reader.complaint()));
    if (reader.foreign_packets() != 0)
        report("nac: {}: passed over {} without a message of the bus", reader.name(),
               counted(reader.foreign_packets(), "packet"));
    if (bad != 0)
        throw CommandError(kBadData,
                           fmt::format("{}: {} could not be read", reader.name(), counted(bad, "message")));
}

enum class Beginning { capture, json, digits, other };

// How a file begins. What can be read only once, as standard input, is taken for JSON.
Beginning beginning_of(const std::string& file) {
    std::error_code ignored;  // the file's reader has the same trouble
    if (!std::filesystem::is_regular_file(file, ignored)) return Beginning::json;
    const OpenedFile in = open_file(file);
    std::array<std::uint8_t, 4> first = {};
    const std::size_t got = in != nullptr ? std::fread(first.data(), 1, first.size(), in.get()) : 0;
    if (in == nullptr || (got == 0 && std::ferror(in.get()) != 0)) {
        throw CommandError(kTrouble, fmt::format("{}: {}", file, std::generic_category().message(errno)));
    }
    const std::span bytes = std::span(first).first(got);
    if (is_capture(bytes)) return Beginning::capture;
    const auto is_blank = [](std::uint8_t byte) { return std::isspace(byte) != 0; };
    if (bytes.empty() || bytes[0] == '{' || is_blank(bytes[0])) return Beginning::json;
    const auto is_digit = [&](std::uint8_t byte) { return is_blank(byte) || std::isxdigit(byte) != 0; };
    return std::all_of(bytes.begin(), bytes.end(), is_digit) ? Beginning::digits : Beginning::other;
}

// Whether all files are captures; of those that are neither captures nor JSON, says so.
bool are_captures(const std::vector<std::string>& files) {
    std::size_t captures = 0;
    for (const std::string& file : files) {
        const Beginning beginning = file == "-" ? Beginning::json : beginning_of(file);
        if (beginning == Beginning::capture) ++captures;
        if (beginning == Beginning::digits || beginning == Beginning::other) {
            throw CommandError(kBadData,
                               fmt::format("{}:1: not JSON; {}", file,
                                           beginning == Beginning::digits
                                               ? "for lines of hexadecimal digits give --format hex"
                                               : "for bytes give --format raw, prefixed or tagged"));
        }
    }
    return captures != 0 && captures == files.size();
}

void read_lines(const MessageOptions& options, const MessageType* type, const Use& use) {
    for_each_line(
        options.files,
        [&](const JsonLine& line) {
            const Json& digits = line.member("hex");
            if (!digits.is_string()) {
                throw line.bad(fmt::format("hex: {} is not a text", shortened(json_text(digits))));
            }
            std::vector<std::uint8_t> bytes;
            try {
                bytes = inspect::from_hex(digits.get_ref<const std::string&>());
            } catch (const std::invalid_argument& error) {
                throw line.bad(error.what());
            }
            use({line.origin, line.type, bytes});
        },
        type);
}

}  // namespace

const Formats& write_formats() {
    static const Formats formats = {{"lines", Format::lines},
                                    {"raw", Format::raw},
                                    {"hex", Format::hex},
                                    {"prefixed", Format::prefixed},
                                    {"tagged", Format::tagged}};
    return formats;
}

const Formats& read_formats() {
    static const Formats formats = [] {
        Formats names = write_formats();
        names.emplace("pcapng", Format::pcapng);
        return names;
    }();
    return formats;
}

void add_format_option(CLI::App& verb, Format& format, const std::string& purpose, const Formats& formats) {
    verb.add_option(
            "--format", format,
            purpose +
                ". lines, if not given: JSON lines with type and hex; raw: one message; hex: lines of "
                "hexadecimal digits; prefixed: each after its length; tagged: each after id and "
                "length (u32, little-endian)")
        ->transform(one_of(formats));
}

void add_message_options(CLI::App& verb, MessageOptions& options) {
    verb.add_option("FILE", options.files, "Messages; - is standard input")->required();
    add_format_option(verb, options.format, "What FILE holds; captures are recognised", read_formats());
    verb.add_option("--type", options.type, "Name or id of the messages' type, where they do not name it")
        ->type_name("TYPE");
}

CommandError Message::bad(const std::string& what) const {
    return {kBadData, fmt::format("{}: {}", origin, what)};
}

const MessageType* type_option(const std::string& text) {
    if (text.empty()) return nullptr;
    const MessageType* const type = named_message_type(text);
    if (type == nullptr) {
        throw CommandError(kBadUsage, no_such_type(text));
    }
    return type;
}

void for_each_message(const MessageOptions& options, const Use& use) {
    const MessageType* const type = type_option(options.type);
    const Format format = options.format;
    if (format == Format::pcapng || (format == Format::lines && are_captures(options.files))) {
        for (const std::string& file : options.files) {
            CaptureReader reader(file);
            read_capture(reader, type, use);
        }
        return;
    }
    if (format == Format::lines) return read_lines(options, type, use);
    if (format != Format::tagged && type == nullptr) {
        throw CommandError(kBadUsage, "messages in this format do not name their type: give --type");
    }
    for (const std::string& file : options.files) {
        if (format == Format::hex) {
            read_hex(file, *type, use);
            continue;
        }
        std::ifstream opened;
        if (file != "-") {
            opened.open(file, std::ios::binary);
            if (!opened) {
                throw CommandError(kTrouble,
                                   fmt::format("{}: {}", file, std::generic_category().message(errno)));
            }
            // A folder opens, and fails only when it is read.
            opened.peek();
            if (opened.bad()) throw CommandError(kTrouble, fmt::format("{}: cannot be read", file));
            opened.clear();
        }
        ByteStream stream(file == "-" ? std::cin : opened, file == "-" ? "standard input" : file);
        switch (format) {
            case Format::raw:
                stream.read_raw(*type, use);
                break;
            case Format::prefixed:
                stream.read_prefixed(type, use);
                break;
            case Format::tagged:
                stream.read_prefixed(nullptr, use);
                break;
            case Format::hex:
            case Format::lines:
            case Format::pcapng:
                break;
        }
    }
}

}  // namespace tool
