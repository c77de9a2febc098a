// SPDX-License-Identifier: Apache-2.0
// protobuf-c: messages as C structs that refer to each other.
#include <peer_protobuf_c.pb-c.h>

#include <span>

#include "bench/codec.h"

namespace bench {
namespace {

// Where the structs of a message that is encoded lie: taken in order, all given back at once.
class Scratch {
  public:
    void reset() { used_ = 0; }

    template <class T>
    T* take(std::size_t count) {
        const std::size_t start = used_;
        used_ += (count * sizeof(T) + 15) / 16 * 16;
        if (used_ > block_.size()) refuse();
        return reinterpret_cast<T*>(block_.data() + start);
    }

    template <class T>
    std::uint32_t* widened(const T* numbers, std::uint32_t count) {
        auto* const wide = take<std::uint32_t>(count);
        for (std::uint32_t k = 0; k < count; ++k) wide[k] = numbers[k];
        return wide;
    }

  private:
    std::size_t used_ = 0;
    std::vector<std::uint8_t> block_ = std::vector<std::uint8_t>(std::size_t{32} << 20);
};

template <class Message>
const Message* required(const Message* message) {
    if (message == nullptr) refuse();
    return message;
}

}  // namespace
}  // namespace bench

#include <protobuf_c_mapping.h>

namespace bench {
namespace {

template <class Record>
std::uint32_t encode(const Sample& sample, void* output, std::uint32_t capacity) {
    static Scratch scratch;
    scratch.reset();
    typename Peer<Record>::Message message;
    to_peer(*static_cast<const Record*>(sample.record), message, scratch);
    if (protobuf_c_message_get_packed_size(&message.base) > capacity) refuse();
    return static_cast<std::uint32_t>(
        protobuf_c_message_pack(&message.base, static_cast<std::uint8_t*>(output)));
}

template <class Record>
std::uint32_t decode(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    auto* const message = Peer<Record>::unpack(nullptr, sample.length, sample.bytes);
    if (message == nullptr) refuse();
    from_peer(*message, *static_cast<Record*>(output));
    Peer<Record>::free(message, nullptr);
    return sample.length;
}

}  // namespace

template <class Record>
Codec protobuf_c_codec() {
    return codec<Record, &encode<Record>, &decode<Record>>("protobuf-c");
}

#define BENCH_INSTANTIATE(Record) template Codec protobuf_c_codec<Record>();
BENCH_RECORDS(BENCH_INSTANTIATE)

}  // namespace bench
