// SPDX-License-Identifier: Apache-2.0
#include "tool/io/message_files.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cctype>
#include <stdexcept>

#include "inspect/byte_text.h"
#include "tool/io/byte_formats.h"
#include "tool/io/capture.h"
#include "tool/io/json_lines.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "tool/show/time_text.h"
#include "tool/verb.h"

namespace tool {
namespace {

// How a message passes to its verb: through the filter, and counted.
class Passing {
  public:
    Passing(const MessageOptions& options, const MessageType* type, const UseMessage& use)
        : options_(options), filter_(filter_options(options)), type_(type), use_(use) {}

    const MessageFilter& filter() const { return filter_; }
    const MessageType* type() const { return type_; }

    void operator()(const Message& message) {
        ++read_;
        if (type_ != nullptr && &message.type != type_) return;
        if (!is_foreign(options_.byte_order)) return use(message);
        const std::vector<std::uint8_t> bytes = reordered(message.type, message.bytes);
        use({message.origin, message.type, bytes, message.packet, message.bytes});
    }
    void leave_out() { ++read_; }
    void use(const Message& message) {
        if (!filter_.fits(message.type, message.bytes)) return;
        ++passed_;
        use_(message);
    }

    // For the options that only captures can satisfy.
    void require_capture(const std::string& file) const {
        const FilterOptions& filter = options_.filter;
        if (filter.from.empty() && filter.to.empty() && filter.packets.empty()) return;
        throw CommandError(
            kBadUsage,
            fmt::format("{}: no capture, and only of captures --packet, --from and --to choose", file));
    }

    void finish() const {
        if (passed_ == 0 && read_ != 0)
            report("nac: none of {} is what the options ask for", counted(read_, "message"));
    }

  private:
    static FilterOptions filter_options(const MessageOptions& options) {
        FilterOptions filter = options.filter;
        if (!options.type.empty()) filter.types = {options.type};
        return filter;
    }

    const MessageOptions& options_;
    const MessageFilter filter_;
    const MessageType* type_;
    const UseMessage& use_;
    std::uint64_t read_ = 0;
    std::uint64_t passed_ = 0;
};

void read_capture(CaptureReader& reader, Passing& pass) {
    const MessageFilter& filter = pass.filter();
    CapturedMessage captured;
    std::uint64_t bad = 0;
    const auto complain = [&bad](const std::string& what) {
        ++bad;
        report("nac: {}", what);
    };
    while (!filter.is_after_last_packet(reader.packets() + 1) && reader.next(captured)) {
        const Packet packet = {reader.packets(), captured.time, captured.source, captured.destination};
        if (!filter.takes_packet(packet.number) ||
            !filter.passes_header(captured.id, captured.source, captured.destination)) {
            pass.leave_out();
            continue;
        }
        const MessageType* const own = find_message_type(captured.id);
        const std::string origin = fmt::format("{}: packet {}", reader.name(), packet.number);
        if (own == nullptr) {
            complain(fmt::format("{}: 0x{:08X} is not the id of a message type", origin, captured.id));
        } else if (captured.is_cut()) {
            complain(fmt::format("{}: {} was cut from {} bytes to {} when it was recorded", origin, own->name,
                                 captured.bytes_on_bus, captured.bytes.size()));
        } else {
            try {
                pass({origin, *own, captured.bytes, packet});
            } catch (const CommandError& error) {
                if (error.code() != kBadData) throw;
                complain(error.what());
            }
        }
    }
    if (!reader.complaint().empty())
        throw CommandError(kBadData, fmt::format("{}: {}", reader.name(), reader.complaint()));
    report_foreign_packets(reader);
    if (bad != 0)
        throw CommandError(kBadData,
                           fmt::format("{}: {} could not be read", reader.name(), counted(bad, "message")));
}

// Of a file for which no other format is given: a capture, a dump or JSON lines.
Format recognised(Input& input) {
    constexpr std::size_t kEnough = 32;
    const std::span<const std::uint8_t> bytes = input.beginning(kEnough);
    if (is_capture(bytes)) return Format::pcapng;
    const auto is_blank = [](std::uint8_t byte) { return std::isspace(byte) != 0; };
    if (bytes.empty() || bytes[0] == '{' || bytes[0] == '[' || is_blank(bytes[0])) return Format::lines;
    if (is_dump(bytes)) return Format::dump;
    const auto is_digit = [&](std::uint8_t byte) { return is_blank(byte) || std::isxdigit(byte) != 0; };
    throw CommandError(kBadData, fmt::format("{}:1: not JSON; {}", input.name(),
                                             std::all_of(bytes.begin(), bytes.end(), is_digit)
                                                 ? "for lines of hexadecimal digits give --format hex"
                                                 : "for bytes give --format raw, prefixed or tagged"));
}

void read_lines(Input& input, Passing& pass) {
    const auto read = [&pass](const JsonLine& line) {
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
        pass({line.origin, line.type, bytes, std::nullopt});
    };
    for_each_line(input, read, pass.type());
}

void read_file(const std::string& file, Format format, Passing& pass) {
    Input input(file);
    if (format == Format::lines) format = recognised(input);
    if (format == Format::pcapng) {
        CaptureReader reader(input);
        return read_capture(reader, pass);
    }
    pass.require_capture(input.name());
    if (format == Format::lines) return read_lines(input, pass);
    const auto use = [&pass](const Message& message) { pass(message); };
    if (format == Format::tagged) return read_prefixed(input, nullptr, use);
    if (pass.type() == nullptr) {
        throw CommandError(
            kBadUsage,
            fmt::format("{}: messages in this format do not name their type: give --type", input.name()));
    }
    switch (format) {
        case Format::raw:
            return read_raw(input, *pass.type(), use);
        case Format::prefixed:
            return read_prefixed(input, pass.type(), use);
        case Format::hex:
            return read_hex(input, *pass.type(), use);
        case Format::dump:
            return read_dump(input, *pass.type(), use);
        default:
            break;
    }
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
        names.emplace("dump", Format::dump);
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
    verb.add_option("FILE", options.files, "Messages, also as gzip; - is standard input")->required();
    add_format_option(verb, options.format,
                      "What FILE holds; captures (pcapng, pcap) and dumps (hexdump -C, xxd) are recognised",
                      read_formats());
    verb.add_option("--type", options.type,
                    "Name or id. Where messages name their types, as in captures, only those of this type;\n"
                    "elsewhere, the type of all messages, or in JSON lines of those that name none")
        ->type_name("TYPE");
    static const std::map<std::string, WireOrder> orders = {{"little", WireOrder::little},
                                                            {"big", WireOrder::big}};
    verb.add_option(
            "--byte-order", options.byte_order,
            "Of the messages: little, if not given, or big: those of big-endian hosts without NAC_BYTE_SWAP")
        ->transform(one_of(orders));
    add_condition_options(verb, options.filter);
    add_packet_option(verb, options.filter);
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

std::string Message::context() const {
    if (!packet) return origin;
    return fmt::format("{}, {}, {} -> {}", origin, time_text(packet->time), packet->source,
                       packet->destination);
}

Json Message::packet_json() const {
    if (!packet) return Json::object();
    return {{"packet", packet->number},
            {"time", time_text(packet->time)},
            {"from", packet->source},
            {"to", packet->destination}};
}

void for_each_message(const MessageOptions& options, const UseMessage& use) {
    Passing pass(options, type_option(options.type), use);
    for (const std::string& file : options.files) read_file(file, options.format, pass);
    pass.finish();
}

}  // namespace tool
