// SPDX-License-Identifier: Apache-2.0
#include "tool/io/message_files.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>
#include <system_error>

#include "tool/io/capture.h"
#include "tool/io/json_lines.h"
#include "tool/message/record_text.h"

namespace tool {
namespace {

using Use = std::function<void(const Message&)>;

constexpr std::size_t kChunk = 1 << 20;

// Messages that are bytes, from a stream.
class ByteStream {
  public:
    ByteStream(std::istream& stream, std::string name) : stream_(stream), name_(std::move(name)) {}

    // Reads up to `count` bytes; room is made as they come, not as they are announced.
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
        const std::vector<std::uint8_t> bytes = read(kaplo::kLongestBuffer);
        if (!read(1).empty()) throw bad(fmt::format("more than {} bytes are no message", bytes.size()));
        use({name_, type, bytes});
    }

    // Messages behind their lengths, and those behind their ids too where no type is given.
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
            if (length > kaplo::kLongestBuffer) {
                throw CommandError(kBadData, fmt::format("{}: {} bytes are no message", origin, length));
            }
            const std::vector<std::uint8_t> bytes = read(length);
            if (bytes.size() < length) throw cut();
            use({origin, *own, bytes});
        }
    }

    void read_hex(const MessageType& type, const Use& use) {
        std::string line;
        for (std::size_t number = 1; std::getline(stream_, line); ++number) {
            line.erase(std::remove_if(line.begin(), line.end(),
                                      [](unsigned char c) { return std::isspace(c) != 0; }),
                       line.end());
            if (line.empty()) continue;
            const std::string origin = fmt::format("{}:{}", name_, number);
            try {
                use({origin, type, from_hex(line)});
            } catch (const std::invalid_argument& error) {
                throw CommandError(kBadData, fmt::format("{}: {}", origin, error.what()));
            }
        }
        if (stream_.bad()) throw CommandError(kTrouble, fmt::format("{}: cannot be read", name_));
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

// A capture, from its first byte or behind those that were read to recognise it.
void read_capture(CaptureReader& reader, const MessageType* type, const Use& use) {
    CapturedMessage captured;
    std::uint64_t bad = 0;
    const auto complain = [&bad](const std::string& what) {
        ++bad;
        fmt::print(stderr, "nac: {}\n", what);
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
    if (bad != 0)
        throw CommandError(kBadData, fmt::format("{}: {} messages could not be read", reader.name(), bad));
}

// Whether a file that is given holds a capture. Standard input is not asked: it can be read only once.
bool holds_capture(const std::string& file) {
    std::array<char, 4> first = {};
    std::ifstream stream(file, std::ios::binary);
    stream.read(first.data(), first.size());
    return stream.gcount() == first.size() &&
           is_capture({reinterpret_cast<const std::uint8_t*>(first.data()), first.size()});
}

void read_lines(const MessageOptions& options, const MessageType* type, const Use& use) {
    for_each_line(
        options.files,
        [&](const JsonLine& line) {
            std::vector<std::uint8_t> bytes;
            try {
                bytes = from_hex(text_from_json(line.member("hex"), "hex"));
            } catch (const RecordError& error) {
                throw line.bad(error.what());
            } catch (const std::invalid_argument& error) {
                throw line.bad(error.what());
            }
            use({line.origin, line.type, bytes});
        },
        type);
}

std::array<std::uint8_t, 4> number_bytes(std::uint64_t number) {
    std::array<std::uint8_t, 4> bytes = {};
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(number);
        number >>= 8;
    }
    return bytes;
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
    std::string names;
    for (const char* const name : {"lines", "raw", "hex", "prefixed", "tagged", "pcapng"}) {
        if (formats.contains(name)) names += (names.empty() ? "{" : ",") + std::string(name);
    }
    verb.add_option(
            "--format", format,
            purpose +
                ". lines, if not given: JSON lines with type and hex; raw: one message; hex: lines of "
                "hexadecimal digits; prefixed: each behind its length; tagged: each behind id and "
                "length (u32, little-endian)")
        ->transform(CLI::CheckedTransformer(formats).description(names + "}"));
}

void add_message_options(CLI::App& verb, MessageOptions& options) {
    verb.add_option("FILE", options.files, "Messages; - is standard input")->required();
    add_format_option(verb, options.format, "What FILE holds; captures are recognised", read_formats());
    verb.add_option("--type", options.type, "Name or id of the messages' type, where they do not tell it")
        ->type_name("TYPE");
}

CommandError Message::bad(const std::string& what) const {
    return {kBadData, fmt::format("{}: {}", origin, what)};
}

const MessageType* type_option(const std::string& text) {
    if (text.empty()) return nullptr;
    const MessageType* const type = named_message_type(text);
    if (type == nullptr) {
        throw CommandError(kBadUsage, fmt::format("{} is not a message type; nac types lists them", text));
    }
    return type;
}

void for_each_message(const MessageOptions& options, const Use& use) {
    const MessageType* const type = type_option(options.type);
    const Format format = options.format;
    const auto is_captured = [](const std::string& file) { return file != "-" && holds_capture(file); };
    if (format == Format::pcapng || (format == Format::lines && !options.files.empty() &&
                                     std::all_of(options.files.begin(), options.files.end(), is_captured))) {
        for (const std::string& file : options.files) {
            CaptureReader reader(file);
            read_capture(reader, type, use);
        }
        return;
    }
    if (format == Format::lines) return read_lines(options, type, use);
    if (format != Format::tagged && type == nullptr) {
        throw CommandError(kBadUsage, "messages in this format do not tell their type: give --type");
    }
    for (const std::string& file : options.files) {
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
            case Format::hex:
                stream.read_hex(*type, use);
                break;
            case Format::prefixed:
                stream.read_prefixed(type, use);
                break;
            case Format::tagged:
                stream.read_prefixed(nullptr, use);
                break;
            case Format::lines:
            case Format::pcapng:
                break;
        }
    }
}

Output::Output(const std::string& file)
    : name_(file.empty() || file == "-" ? "standard output" : file),
      file_(file.empty() || file == "-" ? stdout : std::fopen(file.c_str(), "wb")) {
    if (file_ == nullptr) {
        throw CommandError(kTrouble, fmt::format("{}: {}", name_, std::generic_category().message(errno)));
    }
}

Output::~Output() {
    if (file_ != nullptr && file_ != stdout) static_cast<void>(std::fclose(file_));
}

void Output::write(const std::string& text) {
    write(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

void Output::write(std::span<const std::uint8_t> bytes) {
    if (std::fwrite(bytes.data(), 1, bytes.size(), file_) != bytes.size()) {
        throw CommandError(kTrouble, fmt::format("{}: {}", name_, std::generic_category().message(errno)));
    }
}

void Output::write(Format format, const MessageType* type, std::span<const std::uint8_t> bytes) {
    switch (format) {
        case Format::lines:
            return write(Json{{"type", type->name}, {"hex", to_hex(bytes)}}.dump() + "\n");
        case Format::hex:
            return write(to_hex(bytes) + "\n");
        case Format::tagged:
            write(number_bytes(type->id));
            [[fallthrough]];
        case Format::prefixed:
            write(number_bytes(bytes.size()));
            [[fallthrough]];
        case Format::raw:
            return write(bytes);
        case Format::pcapng:
            break;
    }
}

void Output::finish() {
    std::FILE* const file = file_;
    if (file != stdout) file_ = nullptr;
    const bool written = std::fflush(file) == 0 && std::ferror(file) == 0;
    const bool closed = file == stdout || std::fclose(file) == 0;
    if (!written || !closed) throw CommandError(kTrouble, fmt::format("{}: cannot be written", name_));
}

}  // namespace tool
