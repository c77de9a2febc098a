// SPDX-License-Identifier: Apache-2.0
// Simple Binary Encoding: all fields of a message at fixed offsets, then its groups and its data.
#include <nacs/Dacl.h>
#include <nacs/Info.h>
#include <nacs/Msg.h>
#include <nacs/SetPort.h>
#include <nacs/UserTable.h>

#include "bench/codec.h"

namespace bench {
namespace {

template <class Element>
Element* copy_of_data(const char* bytes, std::size_t size, std::uint32_t& count) {
    auto* const array = array_of<Element>(size / sizeof(Element), count);
    if (size != 0) std::memcpy(array, bytes, size);
    return array;
}

}  // namespace
}  // namespace bench

#include <sbe_mapping.h>

namespace bench {
namespace {

template <class Record>
std::uint32_t encode(const Sample& sample, void* output, std::uint32_t capacity) {
    typename Peer<Record>::Message message(static_cast<char*>(output), capacity);
    to_peer(*static_cast<const Record*>(sample.record), message);
    return static_cast<std::uint32_t>(message.encodedLength());
}

template <class Record>
std::uint32_t decode(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    using Message = typename Peer<Record>::Message;
    // Its reader takes bytes that could be written, and does not write them.
    auto* const bytes = const_cast<char*>(reinterpret_cast<const char*>(sample.bytes));
    Message message(bytes, sample.length, Message::sbeBlockLength(), Message::sbeSchemaVersion());
    from_peer(message, *static_cast<Record*>(output));
    return sample.length;
}

}  // namespace

template <class Record>
Codec sbe_codec() {
    return codec<Record, &encode<Record>, &decode<Record>>("SBE");
}

#define BENCH_INSTANTIATE(Record) template Codec sbe_codec<Record>();
BENCH_RECORDS(BENCH_INSTANTIATE)

}  // namespace bench
