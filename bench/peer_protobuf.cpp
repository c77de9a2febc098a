// SPDX-License-Identifier: Apache-2.0
// Protocol Buffers, the C++ library, in the two ways that its documentation recommends for speed.
#include <peer_protobuf.pb.h>

#include "bench/codec.h"

#include <protobuf_mapping.h>

namespace bench {
namespace {

template <class Message>
std::uint32_t serialise(const Message& message, void* output, std::uint32_t capacity) {
    const std::size_t size = message.ByteSizeLong();
    if (size > capacity) refuse();
    message.SerializeWithCachedSizesToArray(static_cast<std::uint8_t*>(output));
    return static_cast<std::uint32_t>(size);
}

// The objects are made once and keep the memory that they have.
template <class Record>
std::uint32_t encode_reused(const Sample& sample, void* output, std::uint32_t capacity) {
    static typename Peer<Record>::Message message;
    message.Clear();
    to_peer(*static_cast<const Record*>(sample.record), message);
    return serialise(message, output, capacity);
}

template <class Record>
std::uint32_t decode_reused(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    static typename Peer<Record>::Message message;
    if (!message.ParseFromArray(sample.bytes, static_cast<int>(sample.length))) refuse();
    from_peer(message, *static_cast<Record*>(output));
    return sample.length;
}

// Large enough for every message, so that the arena never asks the heap for more.
google::protobuf::Arena& arena() {
    static std::vector<char> block(std::size_t{32} << 20);
    static google::protobuf::Arena arena(block.data(), block.size());
    return arena;
}

template <class Record>
std::uint32_t encode_on_arena(const Sample& sample, void* output, std::uint32_t capacity) {
    using Message = typename Peer<Record>::Message;
    auto* const message = google::protobuf::Arena::CreateMessage<Message>(&arena());
    to_peer(*static_cast<const Record*>(sample.record), *message);
    const std::uint32_t bytes = serialise(*message, output, capacity);
    arena().Reset();
    return bytes;
}

template <class Record>
std::uint32_t decode_on_arena(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    using Message = typename Peer<Record>::Message;
    auto* const message = google::protobuf::Arena::CreateMessage<Message>(&arena());
    if (!message->ParseFromArray(sample.bytes, static_cast<int>(sample.length))) refuse();
    from_peer(*message, *static_cast<Record*>(output));
    arena().Reset();
    return sample.length;
}

}  // namespace

template <class Record>
Codec protobuf_codec() {
    return codec<Record, &encode_reused<Record>, &decode_reused<Record>>("protobuf");
}

template <class Record>
Codec protobuf_arena_codec() {
    return codec<Record, &encode_on_arena<Record>, &decode_on_arena<Record>>("protobuf arena");
}

#define BENCH_INSTANTIATE(Record)            \
    template Codec protobuf_codec<Record>(); \
    template Codec protobuf_arena_codec<Record>();
BENCH_RECORDS(BENCH_INSTANTIATE)

}  // namespace bench
