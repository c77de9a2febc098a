// SPDX-License-Identifier: Apache-2.0
#include "tool/io/capture.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

#include "tool/io/capture_blocks.h"
#include "tool/show/counted.h"
#include "tool/show/shown.h"
#include "vorn/core/envelope.h"

namespace tool {
namespace {

constexpr std::uint64_t kNanoseconds = 1'000'000'000;
constexpr std::size_t kReadBytes = 1U << 20;

// Little-endian, or big-endian if `reversed`.
template <std::unsigned_integral T>
T number_at(const std::uint8_t* bytes, bool reversed) {
    std::array<std::uint8_t, sizeof(T)> copy;
    std::copy_n(bytes, sizeof(T), copy.begin());
    if (reversed) std::reverse(copy.begin(), copy.end());
    return vorn::get<T>(copy.data());
}

// The older format begins with one of two numbers, in the byte order of its writer.
struct PcapForm {
    bool reversed;
    std::uint64_t ticks_a_second;
};
std::optional<PcapForm> pcap_form(const std::uint8_t* first) {
    constexpr std::uint32_t kMicrosecondMark = 0xA1B2C3D4;
    constexpr std::uint32_t kNanosecondMark = 0xA1B23C4D;
    for (const bool reversed : {false, true}) {
        const auto mark = number_at<std::uint32_t>(first, reversed);
        if (mark == kMicrosecondMark) return PcapForm{reversed, 1'000'000};
        if (mark == kNanosecondMark) return PcapForm{reversed, kNanoseconds};
    }
    return std::nullopt;
}

}  // namespace

bool is_capture(std::span<const std::uint8_t> beginning) {
    if (beginning.size() < 4) return false;
    return vorn::get<std::uint32_t>(beginning.data()) == kSectionBlock || pcap_form(beginning.data());
}

CaptureReader::CaptureReader(const std::string& file) : own_(std::make_unique<Input>(file)), input_(*own_) {
    start();
}

CaptureReader::CaptureReader(Input& input) : input_(input) { start(); }

void CaptureReader::start() {
    const std::span<const std::uint8_t> beginning = input_.beginning(4);
    const std::optional<PcapForm> form =
        beginning.size() == 4 ? pcap_form(beginning.data()) : std::optional<PcapForm>();
    if (form) {
        reversed_ = form->reversed;
        return start_pcap(form->ticks_a_second);
    }
    std::uint32_t type = 0;
    const bool is_section = read_block(type) && type == kSectionBlock;
    if (!is_section) {
        const std::string why = position_ == 0 ? "it is empty" : type == kSectionBlock ? complaint_ : "";
        throw CommandError(kBadData, fmt::format("{}: not a capture in the pcapng or pcap format{}{}", name(),
                                                 why.empty() ? "" : ": ", why));
    }
    read_section();
}

void CaptureReader::start_pcap(std::uint64_t ticks_a_second) {
    constexpr std::size_t kHeadBytes = 24;
    constexpr std::size_t kLinkTypeAt = 20;
    is_pcap_ = true;
    block_.clear();
    if (!get_more(kHeadBytes)) {
        throw CommandError(kBadData,
                           fmt::format("{}: a capture in the pcap format that ends in its header", name()));
    }
    interfaces_.push_back({at<std::uint16_t>(kLinkTypeAt + (reversed_ ? 2 : 0)), ticks_a_second});
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
    const std::size_t got = input_.read(to, count);
    position_ += got;
    return got;
}

// Adds to the block. Memory grows with what comes, not with what is claimed.
bool CaptureReader::get_more(std::size_t count) {
    while (count > 0) {
        const std::size_t step = std::min<std::size_t>(count, kReadBytes);
        block_.resize(block_.size() + step);
        if (get(block_.data() + block_.size() - step, step) < step) return false;
        count -= step;
    }
    return true;
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
    if (!get_more(length - kBlockBytes - early)) return cut();
    if (get(head.data() + 4, 4) < 4) return cut();
    if (number(4) != length)
        return fail(
            fmt::format("the block at byte {} ends with another length than it begins with", block_at_));
    return true;
}

void CaptureReader::read_section() {
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
    if (block_.size() < kPacketHeadBytes) return false;
    const auto interface = at<std::uint32_t>(0);
    const PacketHead packet = {std::uint64_t{at<std::uint32_t>(4)} << 32 | at<std::uint32_t>(8),
                               at<std::uint32_t>(12), at<std::uint32_t>(16)};
    if (interface >= interfaces_.size() || packet.bytes > block_.size() - kPacketHeadBytes) return false;
    return read_message(interfaces_[interface], packet, block_.data() + kPacketHeadBytes, message);
}

// `head`: the packet's bytes. What the writer wrote is little-endian, whatever the capture is.
bool CaptureReader::read_message(const Interface& interface, const PacketHead& packet,
                                 const std::uint8_t* head, CapturedMessage& message) {
    if (interface.link_type != kCaptureLinkType || packet.bytes < kCaptureHeaderBytes) return false;
    const std::uint8_t head_bytes = head[1];
    if (head[0] != kCaptureHeaderVersion || head_bytes < kCaptureHeaderBytes || head_bytes > packet.bytes)
        return false;
    const std::uint64_t a_second = interface.ticks_a_second;
    const std::uint64_t rest = packet.ticks % a_second;
    message.time =
        packet.ticks / a_second * kNanoseconds +
        (a_second <= kNanoseconds * 10 ? rest * kNanoseconds / a_second : rest / (a_second / kNanoseconds));
    message.flags = vorn::get<std::uint16_t>(head + 2);
    message.id = vorn::get<std::uint32_t>(head + 4);
    message.source = vorn::get<std::uint32_t>(head + 8);
    message.destination = vorn::get<std::uint32_t>(head + 12);
    message.target = vorn::get<std::uint64_t>(head + 16);
    message.position = vorn::get<std::uint32_t>(head + 24);
    message.count = vorn::get<std::uint32_t>(head + 28);
    message.batch = vorn::get<std::uint64_t>(head + 32);
    message.bytes = {head + head_bytes, packet.bytes - head_bytes};
    message.bytes_on_bus = std::max(packet.original_bytes, packet.bytes) - head_bytes;
    return true;
}

bool CaptureReader::next_pcap(CapturedMessage& message) {
    constexpr std::size_t kHeadBytes = 16;
    while (true) {
        const std::uint64_t begin = position_;
        const auto cut = [this, begin] {
            return fail(fmt::format("ends within the packet at byte {}: its end is missing", begin));
        };
        block_.clear();
        if (!get_more(kHeadBytes)) return position_ == begin ? false : cut();
        const Interface& interface = interfaces_.front();
        const PacketHead packet = {at<std::uint32_t>(0) * interface.ticks_a_second + at<std::uint32_t>(4),
                                   at<std::uint32_t>(8), at<std::uint32_t>(12)};
        if (packet.bytes > kLargestBlock)
            return fail(fmt::format("the packet at byte {} claims {} bytes", begin, packet.bytes));
        block_.clear();
        if (!get_more(packet.bytes)) return cut();
        ++packets_;
        if (read_message(interface, packet, block_.data(), message)) return true;
        ++foreign_packets_;
    }
}

bool CaptureReader::next_pcapng(CapturedMessage& message) {
    std::uint32_t type = 0;
    while (complaint_.empty() && read_block(type)) {
        switch (type) {
            case kSectionBlock:
                read_section();
                break;
            case kInterfaceBlock:
                read_interface();
                break;
            case kStatisticsBlock:
                read_statistics();
                break;
            case kPacketBlock:
                ++packets_;
                if (read_packet(message)) return true;
                ++foreign_packets_;
                break;
            default:
                break;
        }
    }
    return false;
}

bool CaptureReader::next(CapturedMessage& message) {
    if (!complaint_.empty()) return false;
    if (is_pcap_ ? next_pcap(message) : next_pcapng(message)) return true;
    if (complaint_.empty() && packets_ != 0 && packets_ == foreign_packets_)
        return fail(
            fmt::format("{} passed over, and none holds a message of the bus", counted(packets_, "packet")));
    return false;
}

void report_foreign_packets(const CaptureReader& reader) {
    if (reader.foreign_packets() == 0 || !reader.complaint().empty())
        return;  // the complaint has their number
    report("nac: {}: passed over {} without a message of the bus", reader.name(),
           counted(reader.foreign_packets(), "packet"));
}

}  // namespace tool
