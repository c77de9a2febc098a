// SPDX-License-Identifier: Apache-2.0
#include "tool/io/byte_formats.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/byte_text.h"
#include "tool/io/line_reader.h"

namespace tool {
namespace {

constexpr std::size_t kChunk = 1 << 20;

// Memory grows with what comes, not with what is announced.
std::vector<std::uint8_t> read_bytes(Input& input, std::size_t count) {
    std::vector<std::uint8_t> bytes;
    while (bytes.size() < count) {
        const std::size_t before = bytes.size();
        const std::size_t step = std::min(count - before, kChunk);
        bytes.resize(before + step);
        const std::size_t got = input.read(bytes.data() + before, step);
        bytes.resize(before + got);
        if (got < step) break;
    }
    return bytes;
}

std::uint32_t number_at(const std::vector<std::uint8_t>& bytes, std::size_t at) {
    std::uint32_t number = 0;
    for (std::size_t i = 4; i-- > 0;) number = number << 8 | bytes[at + i];
    return number;
}

bool is_digit(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// A line of a dump: "00000010: 0c00 0800  ....", as xxd prints it, or "00000010  0c 00 08 00  |....|", as
// hexdump -C does, whose last line is the length alone.
struct DumpLine {
    std::uint64_t offset;
    std::string_view digits;
};

std::optional<DumpLine> dump_line(std::string_view line) {
    constexpr std::size_t kLeastDigits = 7;
    constexpr std::size_t kMostDigits = 16;
    const auto end =
        static_cast<std::size_t>(std::find_if_not(line.begin(), line.end(), is_digit) - line.begin());
    if (end < kLeastDigits || end > kMostDigits) return std::nullopt;
    const std::string_view rest = line.substr(end);
    DumpLine made = {};
    std::from_chars(line.data(), line.data() + end, made.offset, 16);
    if (rest.starts_with(": ")) {
        made.digits = rest.substr(2, rest.find("  ") - 2);
    } else if (rest.starts_with("  ")) {
        made.digits = rest.substr(2, rest.find('|') - 2);
    } else if (!rest.empty()) {
        return std::nullopt;
    }
    return made;
}

// The messages of a dump, row by row.
class Dump {
  public:
    Dump(LineReader& reader, const MessageType& type, const UseMessage& use)
        : reader_(reader), type_(type), use_(use) {}

    void add(std::string_view line) {
        while (!line.empty() && std::isspace(static_cast<unsigned char>(line.back())) != 0)
            line.remove_suffix(1);
        if (line.empty()) return;
        if (line == "*") {
            repeats_ = true;
            return;
        }
        const std::optional<DumpLine> row = dump_line(line);
        if (!row) throw reader_.bad("no offset, as lines of hexdump -C and xxd have it");
        if (row->offset == 0 && !bytes_.empty()) finish();
        if (repeats_) repeat(row->offset);
        if (row->offset != bytes_.size()) {
            throw reader_.bad(
                fmt::format("offset {:x} after {:x} bytes: lines are missing", row->offset, bytes_.size()));
        }
        if (bytes_.empty()) origin_ = reader_.origin();
        std::string digits(row->digits);
        std::erase(digits, ' ');
        try {
            row_ = inspect::from_hex(digits);
        } catch (const std::invalid_argument& error) {
            throw reader_.bad(error.what());
        }
        bytes_.insert(bytes_.end(), row_.begin(), row_.end());
        check_size(bytes_.size());
    }

    void finish() {
        if (repeats_)
            throw reader_.bad("* as the last line: how often the row before it is repeated is missing");
        if (!bytes_.empty()) use_({origin_, type_, bytes_, std::nullopt});
        bytes_.clear();
    }

  private:
    // "*" stands for rows like the one before it.
    void repeat(std::uint64_t end) {
        repeats_ = false;
        check_size(end);
        while (!row_.empty() && bytes_.size() < end) bytes_.insert(bytes_.end(), row_.begin(), row_.end());
    }

    void check_size(std::uint64_t bytes) const {
        if (bytes > VORN_LONGEST_MESSAGE) throw reader_.bad(fmt::format("{} bytes are no message", bytes));
    }

    LineReader& reader_;
    const MessageType& type_;
    const UseMessage& use_;
    std::string origin_;
    std::vector<std::uint8_t> bytes_;
    std::vector<std::uint8_t> row_;
    bool repeats_ = false;
};

}  // namespace

void read_raw(Input& input, const MessageType& type, const UseMessage& use) {
    const std::vector<std::uint8_t> bytes = read_bytes(input, VORN_LONGEST_MESSAGE);
    if (!read_bytes(input, 1).empty()) {
        throw CommandError(kBadData,
                           fmt::format("{}: more than {} bytes are no message", input.name(), bytes.size()));
    }
    use({input.name(), type, bytes, std::nullopt});
}

void read_prefixed(Input& input, const MessageType* type, const UseMessage& use) {
    const std::size_t head_bytes = type == nullptr ? 8 : 4;
    for (std::size_t number = 1;; ++number) {
        const std::vector<std::uint8_t> head = read_bytes(input, head_bytes);
        if (head.empty()) return;
        const std::string origin = fmt::format("{}: message {}", input.name(), number);
        const auto cut = [&] { return CommandError(kBadData, origin + " is cut short"); };
        if (head.size() < head_bytes) throw cut();
        const MessageType* own = type;
        if (own == nullptr) {
            const std::uint32_t id = number_at(head, 0);
            own = find_message_type(id);
            if (own == nullptr) {
                throw CommandError(kBadData,
                                   fmt::format("{}: 0x{:08X} is not the id of a message type", origin, id));
            }
        }
        const std::uint32_t length = number_at(head, head_bytes - 4);
        if (length > VORN_LONGEST_MESSAGE) {
            throw CommandError(kBadData, fmt::format("{}: {} bytes are no message", origin, length));
        }
        const std::vector<std::uint8_t> bytes = read_bytes(input, length);
        if (bytes.size() < length) throw cut();
        use({origin, *own, bytes, std::nullopt});
    }
}

void read_hex(Input& input, const MessageType& type, const UseMessage& use) {
    LineReader reader(input);
    for (std::string line; reader.next(line);) {
        std::erase_if(line, [](unsigned char c) { return std::isspace(c) != 0; });
        if (line.empty()) continue;
        std::vector<std::uint8_t> bytes;
        try {
            bytes = inspect::from_hex(line);
        } catch (const std::invalid_argument& error) {
            throw reader.bad(error.what());
        }
        use({reader.origin(), type, bytes, std::nullopt});
    }
}

void read_dump(Input& input, const MessageType& type, const UseMessage& use) {
    LineReader reader(input);
    Dump dump(reader, type, use);
    for (std::string line; reader.next(line);) dump.add(line);
    dump.finish();
}

bool is_dump(std::span<const std::uint8_t> beginning) {
    const std::string_view text(reinterpret_cast<const char*>(beginning.data()), beginning.size());
    const std::optional<DumpLine> line = dump_line(text.substr(0, text.find('\n')));
    return line && line->offset == 0 && !line->digits.empty();
}

}  // namespace tool
