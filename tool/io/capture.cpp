// SPDX-License-Identifier: Apache-2.0
#include "tool/io/capture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <utility>

#include "tool/commands.h"
#include "tool/show/counted.h"
#include "vorn/core/envelope.h"

namespace tool {
namespace {

// Blocks of the format.
constexpr std::uint32_t kSectionBlock = 0x0A0D0D0A;  // the same in either byte order
constexpr std::uint32_t kInterfaceBlock = 1;
constexpr std::uint32_t kStatisticsBlock = 5;
constexpr std::uint32_t kPacketBlock = 6;
constexpr std::uint32_t kByteOrderMark = 0x1A2B3C4D;

constexpr std::uint16_t kEndOfOptions = 0;
constexpr std::uint16_t kSectionApplication = 4;
constexpr std::uint16_t kInterfaceName = 2;
constexpr std::uint16_t kInterfaceResolution = 9;
constexpr std::uint16_t kStatisticsReceived = 4;
constexpr std::uint16_t kStatisticsDropped = 5;

constexpr std::uint32_t kBlockBytes = 12;  // around its content: type, and the length twice
constexpr std::uint32_t kPacketHeadBytes = 20;
constexpr std::uint32_t kLargestBlock = 128U << 20;
constexpr std::uint64_t kNanoseconds = 1'000'000'000;
constexpr std::size_t kBufferBytes = 1U << 18;
constexpr std::size_t kReadBytes = 1U << 20;

using vorn::put;

// Little-endian, or big-endian if `reversed`.
template <std::unsigned_integral T>
T number_at(const std::uint8_t* bytes, bool reversed) {
    std::array<std::uint8_t, sizeof(T)> copy;
    std::copy_n(bytes, sizeof(T), copy.begin());
    if (reversed) std::reverse(copy.begin(), copy.end());
    return vorn::get<T>(copy.data());
}

// A block in the making, little-endian.
class Block {
  public:
    explicit Block(std::vector<std::uint8_t>& bytes, std::uint32_t type) : bytes_(bytes) {
        bytes_.clear();
        add(type);
        add(std::uint32_t{0});
    }

    template <std::unsigned_integral T>
    Block& add(T value) {
        const std::size_t at = bytes_.size();
        bytes_.resize(at + sizeof value);
        put(bytes_.data() + at, value);
        return *this;
    }
    Block& add(std::span<const std::uint8_t> bytes) {
        bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
        return *this;
    }
    Block& pad() {
        bytes_.resize((bytes_.size() + 3) / 4 * 4);
        return *this;
    }
    Block& option(std::uint16_t code, std::span<const std::uint8_t> value) {
        return add(code).add(static_cast<std::uint16_t>(value.size())).add(value).pad();
    }
    Block& option(std::uint16_t code, std::string_view value) {
        return option(code, {reinterpret_cast<const std::uint8_t*>(value.data()), value.size()});
    }
    Block& option(std::uint16_t code, std::uint64_t value) {
        return add(code).add(std::uint16_t{sizeof value}).add(value);
    }
    Block& end_options() { return add(kEndOfOptions).add(std::uint16_t{0}); }

    std::span<const std::uint8_t> finish() {
        const auto length = static_cast<std::uint32_t>(bytes_.size() + 4);
        put(bytes_.data() + 4, length);
        add(length);
        return bytes_;
    }

  private:
    std::vector<std::uint8_t>& bytes_;
};

std::uint32_t high(std::uint64_t value) { return static_cast<std::uint32_t>(value >> 32); }
std::uint32_t low(std::uint64_t value) { return static_cast<std::uint32_t>(value); }

CommandError file_error(const std::string& file) {
    return {kTrouble, fmt::format("{}: {}", file, std::generic_category().message(errno))};
}

}  // namespace

// ---- writing --------------------------------------------------------------------------------------

CaptureWriter::CaptureWriter(std::string file, std::uint64_t split_bytes, std::uint32_t snapshot_bytes)
    : file_(std::move(file)), split_bytes_(split_bytes), snapshot_bytes_(snapshot_bytes) {
    open();
}

void CaptureWriter::open() {
    std::string name = file_;
    if (!files_.empty()) {
        const std::filesystem::path path(file_);
        const std::string next =
            fmt::format("{}-{}{}", path.stem().string(), files_.size() + 1, path.extension().string());
        name = (path.parent_path() / next).string();
    }
    out_.emplace(name);
    files_.push_back(name);
    in_file_ = 0;
    put(Block(packet_, kSectionBlock)
            .add(kByteOrderMark)
            .add(std::uint16_t{1})
            .add(std::uint16_t{0})
            .add(UINT64_MAX)  // the section's length is not known
            .option(kSectionApplication, "nac " NAC_VERSION)
            .end_options()
            .finish());
    const std::array<std::uint8_t, 1> nanoseconds = {9};
    put(Block(packet_, kInterfaceBlock)
            .add(kCaptureLinkType)
            .add(std::uint16_t{0})
            .add(snapshot_bytes_)
            .option(kInterfaceName, "VORN bus")
            .option(kInterfaceResolution, nanoseconds)
            .end_options()
            .finish());
}

void CaptureWriter::write(const CapturedMessage& message) {
    const auto whole = static_cast<std::uint32_t>(
        std::min<std::size_t>(kCaptureHeaderBytes + message.bytes.size(), kLargestBlock / 2));
    const std::uint32_t kept = std::min(whole, std::max(snapshot_bytes_, kCaptureHeaderBytes));
    const std::uint64_t block = kBlockBytes + kPacketHeadBytes + kept;
    if (split_bytes_ != 0 && message.batch != batch_ && batch_ != 0 && in_file_ + block > split_bytes_) {
        out_->finish();
        open();
    }
    batch_ = message.batch;
    last_time_ = message.time;
    if (kept < whole) ++cut_messages_;
    put(Block(packet_, kPacketBlock)
            .add(std::uint32_t{0})
            .add(high(message.time))
            .add(low(message.time))
            .add(kept)
            .add(static_cast<std::uint32_t>(
                kCaptureHeaderBytes + std::max<std::size_t>(message.bytes.size(), message.bytes_on_bus)))
            .add(kCaptureHeaderVersion)
            .add(static_cast<std::uint8_t>(kCaptureHeaderBytes))
            .add(static_cast<std::uint16_t>(message.flags))
            .add(message.id)
            .add(message.source)
            .add(message.destination)
            .add(message.target)
            .add(message.position)
            .add(message.count)
            .add(message.batch)
            .add(message.bytes.first(kept - kCaptureHeaderBytes))
            .pad()
            .finish());
    ++messages_;
}

void CaptureWriter::put(std::span<const std::uint8_t> bytes) {
    out_->write(bytes);
    in_file_ += bytes.size();
    bytes_ += bytes.size();
}

void CaptureWriter::flush() { out_->flush(); }

void CaptureWriter::finish(std::uint64_t lost_batches) {
    put(Block(packet_, kStatisticsBlock)
            .add(std::uint32_t{0})
            .add(high(last_time_))
            .add(low(last_time_))
            .option(kStatisticsReceived, messages_)
            .option(kStatisticsDropped, lost_batches)
            .end_options()
            .finish());
    out_->finish();
}

// ---- reading --------------------------------------------------------------------------------------

bool is_capture(std::span<const std::uint8_t> beginning) {
    return beginning.size() >= 4 && vorn::get<std::uint32_t>(beginning.data()) == kSectionBlock;
}

CaptureReader::CaptureReader(const std::string& file)
    : name_(file == "-" ? "standard input" : file), in_(stdin) {
    if (file != "-") {
        opened_ = open_file(file);
        if (opened_ == nullptr) throw file_error(file);
        in_ = opened_.get();
        static_cast<void>(std::setvbuf(in_, nullptr, _IOFBF, kBufferBytes));
    }
    read_section(true);
}

CaptureReader::CaptureReader(std::FILE* in, std::span<const std::uint8_t> beginning, std::string name)
    : name_(std::move(name)), in_(in), beginning_(beginning.begin(), beginning.end()) {
    read_section(true);
}

template <class T>
T CaptureReader::at(std::size_t offset) const {
    return number_at<T>(block_.data() + offset, reversed_);
}

// Calls use(code, offset, length) for each option from there to the block's end.
template <class Use>
void CaptureReader::each_option(std::size_t from, Use&& use) const {
    while (from + 4 <= block_.size()) {
        const auto code = at<std::uint16_t>(from);
        const auto length = at<std::uint16_t>(from + 2);
        if (code == kEndOfOptions || length > block_.size() - from - 4) return;
        use(code, from + 4, length);
        from += 4 + (std::size_t{length} + 3) / 4 * 4;
    }
}

std::size_t CaptureReader::get(std::uint8_t* to, std::size_t count) {
    const std::size_t early = std::min(beginning_.size(), count);
    std::copy_n(beginning_.begin(), early, to);
    beginning_.erase(beginning_.begin(), beginning_.begin() + static_cast<std::ptrdiff_t>(early));
    const std::size_t got = early + std::fread(to + early, 1, count - early, in_);
    if (got < count && std::ferror(in_) != 0) throw file_error(name_);
    position_ += got;
    return got;
}

bool CaptureReader::fail(std::string why) {
    complaint_ = std::move(why);
    return false;
}

bool CaptureReader::read_block(std::uint32_t& type) {
    block_at_ = position_;
    const auto cut = [this] {
        return fail(fmt::format("ends within the block at byte {}: its end is missing", block_at_));
    };
    std::array<std::uint8_t, 12> head;  // of a section: its byte order too
    const std::size_t got = get(head.data(), 8);
    if (got == 0) return false;
    if (got < 8) return cut();
    const auto number = [&](std::size_t from) {
        return number_at<std::uint32_t>(head.data() + from, reversed_);
    };
    type = number(0);
    std::size_t early = 0;
    if (type == kSectionBlock) {
        if (get(head.data() + 8, 4) < 4) return cut();
        early = 4;
        reversed_ = false;
        if (number(8) != kByteOrderMark) {
            reversed_ = true;
            if (number(8) != kByteOrderMark)
                return fail(fmt::format("the section at byte {} has no byte order", block_at_));
        }
    }
    const std::uint32_t length = number(4);
    if (length < kBlockBytes + early || length % 4 != 0 || length > kLargestBlock)
        return fail(fmt::format("the block at byte {} claims {} bytes", block_at_, length));
    block_.assign(head.begin() + 8, head.begin() + 8 + static_cast<std::ptrdiff_t>(early));
    // Memory grows with what comes, not with what is claimed.
    for (std::size_t left = length - kBlockBytes - early; left > 0;) {
        const std::size_t step = std::min<std::size_t>(left, kReadBytes);
        block_.resize(block_.size() + step);
        if (get(block_.data() + block_.size() - step, step) < step) return cut();
        left -= step;
    }
    if (get(head.data() + 4, 4) < 4) return cut();
    if (number(4) != length)
        return fail(
            fmt::format("the block at byte {} ends with another length than it begins with", block_at_));
    return true;
}

void CaptureReader::read_section(bool first) {
    if (first) {
        std::uint32_t type = 0;
        const bool read = read_block(type);
        if (!read || type != kSectionBlock) {
            const std::string why = position_ == 0 ? "empty" : type == kSectionBlock ? complaint_ : "";
            throw CommandError(kBadData, fmt::format("{}: not a capture in the pcapng format{}{}", name_,
                                                     why.empty() ? "" : ": ", why));
        }
    }
    interfaces_.clear();
    if (block_.size() < 16) return;
    each_option(16, [this](std::uint16_t code, std::size_t from, std::size_t length) {
        if (code == kSectionApplication)
            recorder_.assign(reinterpret_cast<const char*>(block_.data() + from), length);
    });
}

void CaptureReader::read_interface() {
    Interface made = {0, 1'000'000};
    if (block_.size() >= 8) made.link_type = at<std::uint16_t>(0);
    each_option(8, [this, &made](std::uint16_t code, std::size_t from, std::size_t length) {
        if (code != kInterfaceResolution || length != 1) return;
        const std::uint32_t power = block_[from] & 0x7FU;
        const std::uint64_t base = (block_[from] & 0x80U) != 0 ? 2 : 10;
        if (power > (base == 2 ? 63U : 19U)) return;
        made.ticks_a_second = 1;
        for (std::uint32_t i = 0; i < power; ++i) made.ticks_a_second *= base;
    });
    interfaces_.push_back(made);
}

void CaptureReader::read_statistics() {
    each_option(12, [this](std::uint16_t code, std::size_t from, std::size_t length) {
        if (code == kStatisticsDropped && length == 8) lost_batches_ += at<std::uint64_t>(from);
    });
}

// False: holds no message of the bus.
bool CaptureReader::read_packet(CapturedMessage& message) {
    ++packets_;
    if (block_.size() < kPacketHeadBytes) return false;
    const auto interface = at<std::uint32_t>(0);
    const auto captured = at<std::uint32_t>(12);
    const auto original = at<std::uint32_t>(16);
    if (interface >= interfaces_.size() || interfaces_[interface].link_type != kCaptureLinkType) return false;
    if (captured > block_.size() - kPacketHeadBytes || captured < kCaptureHeaderBytes) return false;
    // What the writer wrote is little-endian, whatever the section is.
    const std::uint8_t* const head = block_.data() + kPacketHeadBytes;
    const std::uint8_t head_bytes = head[1];
    if (head[0] != kCaptureHeaderVersion || head_bytes < kCaptureHeaderBytes || head_bytes > captured)
        return false;
    const std::uint64_t ticks = std::uint64_t{at<std::uint32_t>(4)} << 32 | at<std::uint32_t>(8);
    const std::uint64_t a_second = interfaces_[interface].ticks_a_second;
    const std::uint64_t rest = ticks % a_second;
    message.time =
        ticks / a_second * kNanoseconds +
        (a_second <= kNanoseconds * 10 ? rest * kNanoseconds / a_second : rest / (a_second / kNanoseconds));
    message.flags = vorn::get<std::uint16_t>(head + 2);
    message.id = vorn::get<std::uint32_t>(head + 4);
    message.source = vorn::get<std::uint32_t>(head + 8);
    message.destination = vorn::get<std::uint32_t>(head + 12);
    message.target = vorn::get<std::uint64_t>(head + 16);
    message.position = vorn::get<std::uint32_t>(head + 24);
    message.count = vorn::get<std::uint32_t>(head + 28);
    message.batch = vorn::get<std::uint64_t>(head + 32);
    message.bytes = {head + head_bytes, captured - head_bytes};
    message.bytes_on_bus = std::max(original, captured) - head_bytes;
    return true;
}

bool CaptureReader::next(CapturedMessage& message) {
    std::uint32_t type = 0;
    while (complaint_.empty() && read_block(type)) {
        switch (type) {
            case kSectionBlock:
                read_section(false);
                break;
            case kInterfaceBlock:
                read_interface();
                break;
            case kStatisticsBlock:
                read_statistics();
                break;
            case kPacketBlock:
                if (read_packet(message)) return true;
                ++foreign_packets_;
                break;
            default:
                break;
        }
    }
    if (complaint_.empty() && packets_ != 0 && packets_ == foreign_packets_)
        return fail(
            fmt::format("{} passed over, and none holds a message of the bus", counted(packets_, "packet")));
    return false;
}

}  // namespace tool
