// SPDX-License-Identifier: Apache-2.0
// Cap'n Proto: a message in memory is the message on the wire; here copied from and to the record.
#include <capnp/message.h>
#include <capnp/serialize.h>
#include <peer_capnp.capnp.h>

#include "bench/codec.h"

namespace bench {
namespace {

template <class List, class Element>
void put_numbers(List list, const Element* numbers) {
    for (unsigned k = 0; k < list.size(); ++k) list.set(k, numbers[k]);
}

}  // namespace
}  // namespace bench

#include <capnp_mapping.h>

namespace bench {
namespace {

// The builder's first segment, large enough for every message; the builder zeroes what it has used.
kj::ArrayPtr<capnp::word> segment() {
    static std::vector<capnp::word> words(std::size_t{4} << 20);
    return {words.data(), words.size()};
}

template <class Record>
std::uint32_t encode(const Sample& sample, void* output, std::uint32_t capacity) {
    capnp::MallocMessageBuilder message(segment());
    to_peer(*static_cast<const Record*>(sample.record), message.initRoot<typename Peer<Record>::Message>());
    kj::ArrayOutputStream stream(kj::arrayPtr(static_cast<kj::byte*>(output), capacity));
    capnp::writeMessage(stream, message);
    return static_cast<std::uint32_t>(stream.getArray().size());
}

template <class Record>
std::uint32_t decode(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    const auto* const words = reinterpret_cast<const capnp::word*>(sample.bytes);
    capnp::FlatArrayMessageReader message({words, sample.length / sizeof(capnp::word)});
    from_peer(message.getRoot<typename Peer<Record>::Message>(), *static_cast<Record*>(output));
    return sample.length;
}

}  // namespace

template <class Record>
Codec capnp_codec() {
    return codec<Record, &encode<Record>, &decode<Record>>("Cap'n Proto");
}

#define BENCH_INSTANTIATE(Record) template Codec capnp_codec<Record>();
BENCH_RECORDS(BENCH_INSTANTIATE)

}  // namespace bench
