// SPDX-License-Identifier: Apache-2.0
#include "vorn/core/envelope.h"

#include <algorithm>
#include <cstring>

namespace vorn {
namespace {

constexpr std::uint32_t kMark = 0x4E524F56;  // "VORN"

bool is_packet(Bytes bytes, Kind kind, std::size_t size) {
    return bytes.size() == size && kind_of(bytes) == kind;
}

// The numbers after a preamble, one after the other.
class Writer {
  public:
    Writer(std::uint8_t* at, Kind kind) : at_(at + kPreambleBytes) { put_preamble(at, kind); }

    template <class T>
    Writer& operator<<(T value) {
        put(at_, value);
        at_ += sizeof(T);
        return *this;
    }

  private:
    std::uint8_t* at_;
};

class Reader {
  public:
    explicit Reader(Bytes bytes) : at_(bytes.data() + kPreambleBytes) {}

    template <class T>
    Reader& operator>>(T& value) {
        value = get<T>(at_);
        at_ += sizeof(T);
        return *this;
    }

  private:
    const std::uint8_t* at_;
};

}  // namespace

void put_preamble(std::uint8_t* at, Kind kind) {
    put(at, kMark);
    at[4] = kVersion;
    at[5] = static_cast<std::uint8_t>(kind);
    at[6] = 0;
    at[7] = 0;
}

std::optional<Kind> kind_of(Bytes bytes) {
    if (bytes.size() < kPreambleBytes || get<std::uint32_t>(bytes.data()) != kMark) return std::nullopt;
    if (bytes[4] != kVersion || bytes[6] != 0 || bytes[7] != 0) return std::nullopt;
    if (bytes[5] < static_cast<std::uint8_t>(Kind::batch)) return std::nullopt;
    if (bytes[5] > static_cast<std::uint8_t>(kLastKind)) return std::nullopt;
    return static_cast<Kind>(bytes[5]);
}

std::optional<std::uint32_t> batch_bytes(const VORN_SendDescriptor* descriptors, std::uint32_t count) {
    std::uint64_t bytes = kBatchHeaderBytes + std::uint64_t{count} * kEntryBytes;
    for (std::uint32_t i = 0; i < count; ++i) bytes += descriptors[i].length;
    if (bytes > UINT32_MAX) return std::nullopt;
    return static_cast<std::uint32_t>(bytes);
}

void write_batch(std::uint8_t* at, const BatchHeader& header, const VORN_SendDescriptor* descriptors) {
    Writer(at, Kind::batch) << header.destination << header.source << header.target << header.count
                            << header.bytes;
    std::uint8_t* entry = at + kBatchHeaderBytes;
    std::uint8_t* message = entry + std::size_t{header.count} * kEntryBytes;
    for (std::uint32_t i = 0; i < header.count; ++i, entry += kEntryBytes) {
        const VORN_SendDescriptor& descriptor = descriptors[i];
        put(entry, descriptor.message_id);
        put(entry + 4, descriptor.length);
        if (descriptor.length != 0) std::memcpy(message, descriptor.buffer, descriptor.length);
        message += descriptor.length;
    }
}

std::optional<Batch> read_batch(Bytes bytes) {
    if (bytes.size() < kBatchHeaderBytes || kind_of(bytes) != Kind::batch) return std::nullopt;
    Batch batch;
    BatchHeader& header = batch.header_;
    Reader(bytes) >> header.destination >> header.source >> header.target >> header.count >> header.bytes;
    if (header.bytes > bytes.size() || header.bytes < kBatchHeaderBytes || header.count == 0)
        return std::nullopt;
    std::uint64_t left = header.bytes - kBatchHeaderBytes;
    if (header.count > left / kEntryBytes) return std::nullopt;
    left -= std::uint64_t{header.count} * kEntryBytes;
    const std::uint8_t* entry = bytes.data() + kBatchHeaderBytes;
    for (std::uint32_t i = 0; i < header.count; ++i, entry += kEntryBytes) {
        const auto length = get<std::uint32_t>(entry + 4);
        if (length > left) return std::nullopt;
        left -= length;
    }
    if (left != 0) return std::nullopt;
    batch.start_ = bytes.data();
    return batch;
}

void write_packet(std::uint8_t* at, const Hello& packet) {
    Writer(at, Kind::hello) << packet.source << packet.destination << packet.first << packet.batches
                            << packet.ring_bytes << packet.is_repeated << packet.reserved;
}
void write_packet(std::uint8_t* at, const Welcome& packet) {
    Writer(at, Kind::welcome) << packet.address << packet.batches << packet.batch_bytes << packet.reserved;
}
void write_packet(std::uint8_t* at, const Watch& packet) {
    Writer(at, Kind::watch) << packet.ring_bytes << packet.reserved;
}

std::optional<Hello> read_hello(Bytes bytes) {
    if (!is_packet(bytes, Kind::hello, Hello::kBytes)) return std::nullopt;
    Hello packet = {};
    Reader(bytes) >> packet.source >> packet.destination >> packet.first >> packet.batches >>
        packet.ring_bytes >> packet.is_repeated >> packet.reserved;
    if (packet.first == 0 || packet.batches == 0 || packet.is_repeated > 1 || packet.reserved != 0) {
        return std::nullopt;
    }
    return packet;
}

std::optional<Welcome> read_welcome(Bytes bytes) {
    if (!is_packet(bytes, Kind::welcome, Welcome::kBytes)) return std::nullopt;
    Welcome packet = {};
    Reader(bytes) >> packet.address >> packet.batches >> packet.batch_bytes >> packet.reserved;
    if (packet.batches == 0 || packet.reserved != 0) return std::nullopt;
    return packet;
}

std::optional<Watch> read_watch(Bytes bytes) {
    if (!is_packet(bytes, Kind::watch, Watch::kBytes)) return std::nullopt;
    Watch packet = {};
    Reader(bytes) >> packet.ring_bytes >> packet.reserved;
    if (packet.reserved != 0) return std::nullopt;
    return packet;
}

void write_counters(std::uint8_t* at, std::span<const std::uint64_t> values) {
    Writer writer(at, Kind::counters);
    writer << static_cast<std::uint32_t>(values.size()) << std::uint32_t{0};
    for (const std::uint64_t value : values) writer << value;
}

bool read_counters(Bytes bytes, std::span<std::uint64_t> values) {
    if (bytes.size() < kCountersHeaderBytes || kind_of(bytes) != Kind::counters) return false;
    std::uint32_t count = 0;
    std::uint32_t reserved = 0;
    Reader reader(bytes);
    reader >> count >> reserved;
    if (reserved != 0 || bytes.size() != kCountersHeaderBytes + std::uint64_t{count} * sizeof(std::uint64_t))
        return false;
    for (std::uint32_t i = 0; i < std::min<std::size_t>(count, values.size()); ++i) reader >> values[i];
    return true;
}

}  // namespace vorn
