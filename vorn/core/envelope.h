// SPDX-License-Identifier: Apache-2.0
// What the bus puts around messages: the envelope of a batch, and the packets in which processes exchange
// batches.
//
// All numbers are little-endian, nothing is padded; docs/bus.md shows every byte. Reading never looks beyond
// what it is given, and accepts only what the writers here write.
#ifndef VORN_ENVELOPE_H
#define VORN_ENVELOPE_H

#include <bit>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "bus/vorn_bus_api.h"
#include "runtime/wire.h"

namespace vorn {

using Bytes = std::span<const std::uint8_t>;

inline constexpr auto kLittleEndian =
    std::endian::native == std::endian::little ? kaplo::ByteOrder::host : kaplo::ByteOrder::reversed;

template <class T>
T get(const std::uint8_t* at) {
    return kaplo::load<kLittleEndian, T>(at);
}

template <class T>
void put(std::uint8_t* at, T value) {
    kaplo::store<kLittleEndian, T>(at, value);
}

// The first eight bytes of every envelope and packet: "VORN", version, kind, two zero bytes.
inline constexpr std::uint32_t kPreambleBytes = 8;
inline constexpr std::uint8_t kVersion = 1;

enum class Kind : std::uint8_t {
    batch = 1,
    hello = 2,      // sender to receiver: here I am
    welcome = 3,    // receiver to sender: your session
    data = 4,       // sender to receiver: batches
    ping = 5,       // sender to receiver: what has arrived?
    ack = 6,        // receiver to sender: this
    reset = 7,      // receiver to sender: I do not know your session
    goodbye = 8,    // receiver to sender: I close, and got as far as this
    ask = 9,        // anyone to receiver: your counters?
    counters = 10,  // receiver to anyone: these
    watch = 11,     // watcher to receiver: copies of what you take, please
    watching = 12,  // receiver to watcher: the number of batches until now
    copy = 13       // receiver to watcher: a data packet follows that was taken
};
inline constexpr Kind kLastKind = Kind::copy;

void put_preamble(std::uint8_t* at, Kind kind);

// The kind of bytes that begin like an envelope or packet of this version.
std::optional<Kind> kind_of(Bytes bytes);

// ---- a batch ---------------------------------------------------------------------------------------

inline constexpr std::uint32_t kBatchHeaderBytes = 32;
inline constexpr std::uint32_t kEntryBytes = 8;

struct BatchHeader {
    std::uint32_t destination;
    std::uint32_t source;
    std::uint64_t target;
    std::uint32_t count;
    std::uint32_t bytes;  // of the whole batch, this header included
};

struct Message {
    std::uint32_t id;
    Bytes bytes;
};

// A batch that has been read; refers to the bytes that it was read from.
class Batch {
  public:
    const BatchHeader& header() const { return header_; }

    // Calls use(Message) for each message, in order.
    template <class Use>
    void each_message(Use&& use) const {
        const std::uint8_t* entry = start_ + kBatchHeaderBytes;
        const std::uint8_t* message = entry + std::size_t{header_.count} * kEntryBytes;
        for (std::uint32_t i = 0; i < header_.count; ++i, entry += kEntryBytes) {
            const auto length = get<std::uint32_t>(entry + 4);
            use(Message{get<std::uint32_t>(entry), Bytes(message, length)});
            message += length;
        }
    }

  private:
    friend std::optional<Batch> read_batch(Bytes bytes);
    BatchHeader header_ = {};
    const std::uint8_t* start_ = nullptr;
};

// The size of a batch; none where it exceeds 32 bits.
std::optional<std::uint32_t> batch_bytes(const VORN_SendDescriptor* descriptors, std::uint32_t count);

// Writes header.bytes bytes.
void write_batch(std::uint8_t* at, const BatchHeader& header, const VORN_SendDescriptor* descriptors);

// Reads the batch at the beginning of `bytes`; others may follow it. None: the envelope is damaged.
std::optional<Batch> read_batch(Bytes bytes);

// ---- packets --------------------------------------------------------------------------------------

struct Hello {
    static constexpr std::uint32_t kBytes = 24;
    std::uint32_t source;
    std::uint32_t destination;
    std::uint64_t incarnation;  // of the sender: another number each time that it opens the bus
};

struct Welcome {
    static constexpr std::uint32_t kBytes = 40;
    std::uint32_t batches;      // that the sender may have on their way
    std::uint32_t batch_bytes;  // of the largest batch that is taken
    std::uint64_t session;      // names sender and receiver in one incarnation of both
    std::uint64_t received;     // number of the last batch that has arrived, and all before it; 0: none yet
    std::uint64_t handled;      // the same for batches that have been handled
};

struct Data {
    static constexpr std::uint32_t kBytes = 32;  // and the batches
    std::uint64_t session;
    std::uint64_t first;  // number of the first batch; they are numbered from 1 within the session
    std::uint32_t count;
    std::uint32_t reserved;  // 0
};

struct Ping {
    static constexpr std::uint32_t kBytes = 24;
    std::uint64_t session;
    std::uint64_t sent;  // number of the last batch sent before this packet
};

struct Ack {
    static constexpr std::uint32_t kBytes = 40;
    std::uint64_t session;
    std::uint64_t received;
    std::uint64_t handled;
    std::uint64_t
        sent;  // of the ping that is answered; all-ones: the batch after `received` is missing; 0: neither
};

struct Reset {
    static constexpr std::uint32_t kBytes = 16;
    std::uint64_t session;
};

struct Goodbye {
    static constexpr std::uint32_t kBytes = 32;
    std::uint64_t session;
    std::uint64_t received;  // no batch after it was taken, or ever will be
    std::uint64_t handled;   // those between this one and `received` are lost
};

struct Watch {
    static constexpr std::uint32_t kBytes = 40;
    std::uint64_t watcher;   // another number for each watcher and receiver
    std::uint64_t session;   // of the last answer; 0: none yet
    std::uint64_t seen;      // number of the last batch that is known of, copied or lost
    std::uint32_t window;    // bytes of copies that may be on their way; 0: no more copies
    std::uint32_t reserved;  // 0
};

struct Watching {
    static constexpr std::uint32_t kBytes = 32;
    std::uint64_t watcher;
    std::uint64_t session;  // begins with the first watch
    std::uint64_t taken;    // batches since then, copied or not
};

struct Copy {
    static constexpr std::uint32_t kBytes = 40;  // and the data packet as a second part
    std::uint64_t watcher;
    std::uint64_t session;
    std::uint64_t first;  // number of the first batch, from 1 within the session
    std::uint64_t time;   // nanoseconds since 1970 by the receiver's clock
};

inline constexpr std::uint64_t kBatchIsMissing = UINT64_MAX;

// Each writes kBytes, preamble included.
void write_packet(std::uint8_t* at, const Hello& packet);
void write_packet(std::uint8_t* at, const Welcome& packet);
void write_packet(std::uint8_t* at, const Data& packet);
void write_packet(std::uint8_t* at, const Ping& packet);
void write_packet(std::uint8_t* at, const Ack& packet);
void write_packet(std::uint8_t* at, const Reset& packet);
void write_packet(std::uint8_t* at, const Goodbye& packet);
void write_packet(std::uint8_t* at, const Watch& packet);
void write_packet(std::uint8_t* at, const Watching& packet);
void write_packet(std::uint8_t* at, const Copy& packet);

// Each reads a packet of its kind and of just its size, Data of at least that. None: it is damaged.
std::optional<Hello> read_hello(Bytes bytes);
std::optional<Welcome> read_welcome(Bytes bytes);
std::optional<Data> read_data(Bytes bytes);
std::optional<Ping> read_ping(Bytes bytes);
std::optional<Ack> read_ack(Bytes bytes);
std::optional<Reset> read_reset(Bytes bytes);
std::optional<Goodbye> read_goodbye(Bytes bytes);
std::optional<Watch> read_watch(Bytes bytes);
std::optional<Watching> read_watching(Bytes bytes);
std::optional<Copy> read_copy(Bytes bytes);

// Counters travel as preamble, count (u32), a zero u32, and that many u64. A reader takes those it knows.
inline constexpr std::uint32_t kCountersHeaderBytes = 16;
void write_counters(std::uint8_t* at, std::span<const std::uint64_t> values);
bool read_counters(Bytes bytes, std::span<std::uint64_t> values);

}  // namespace vorn

#endif
