// SPDX-License-Identifier: Apache-2.0
#include "tool/io/capture_writer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string_view>
#include <utility>

#include "tool/io/capture_blocks.h"
#include "vorn/core/envelope.h"

namespace tool {
namespace {

using vorn::put;

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

}  // namespace

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

}  // namespace tool
