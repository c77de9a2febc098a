// SPDX-License-Identifier: Apache-2.0
// nanopb: Protocol Buffers for small machines, messages as flat C structs.
#include <pb_decode.h>
#include <pb_encode.h>
#include <peer_nanopb.pb.h>

#include <span>

#include "bench/codec.h"

namespace bench {
namespace {

pb_size_t fitting(std::uint32_t count, std::uint32_t bound) {
    if (count > bound) refuse();
    return static_cast<pb_size_t>(count);
}

// Doubles the array whenever its count is a power of two.
template <class Element>
Element* grown_for_one_more(Element* array, std::uint32_t count) {
    if ((count & (count - 1)) != 0) return array;
    const std::size_t capacity = count == 0 ? 1 : std::size_t{2} * count;
    void* const block = std::realloc(array, capacity * sizeof(Element));
    if (block == nullptr) refuse();
    return static_cast<Element*>(block);
}

template <class Record, class Message>
void prepare_to_decode(Record& /*record*/, Message& /*message*/) {}

}  // namespace
}  // namespace bench

#include <nanopb_mapping.h>

namespace bench {
namespace {

template <class Record>
std::uint32_t encode(const Sample& sample, void* output, std::uint32_t capacity) {
    static typename Peer<Record>::Message message;
    to_peer(*static_cast<const Record*>(sample.record), message);
    pb_ostream_t stream = pb_ostream_from_buffer(static_cast<pb_byte_t*>(output), capacity);
    if (!pb_encode(&stream, Peer<Record>::fields, &message)) refuse();
    return static_cast<std::uint32_t>(stream.bytes_written);
}

template <class Record>
std::uint32_t decode(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    static typename Peer<Record>::Message message;
    auto& record = *static_cast<Record*>(output);
    prepare_to_decode(record, message);
    pb_istream_t stream = pb_istream_from_buffer(sample.bytes, sample.length);
    if (!pb_decode(&stream, Peer<Record>::fields, &message)) refuse();
    from_peer(message, record);
    return sample.length;
}

}  // namespace

template <class Record>
Codec nanopb_codec() {
    return codec<Record, &encode<Record>, &decode<Record>>("nanopb");
}

#define BENCH_INSTANTIATE(Record) template Codec nanopb_codec<Record>();
BENCH_RECORDS(BENCH_INSTANTIATE)

}  // namespace bench
