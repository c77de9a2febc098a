// SPDX-License-Identifier: Apache-2.0
// A way to write and read a record; one for each peer. And what the mappings to the peers' objects share.
#ifndef BENCH_CODEC_H
#define BENCH_CODEC_H

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "bench/operations.h"

namespace bench {

struct Codec {
    const char* name;
    Run encode;                     // of Sample::record
    Run decode_and_release;         // of Sample::bytes
    Run decode;                     // the first half of that, for the check
    void (*release)(void* record);  // the second
};

// The codecs of each of BENCH_RECORDS.
template <class Record>
Codec library_codec();
template <class Record>
Codec protobuf_codec();  // one message object, used again and again
template <class Record>
Codec protobuf_arena_codec();  // a message on an arena that is reset between the calls
template <class Record>
Codec nanopb_codec();
template <class Record>
Codec protobuf_c_codec();
template <class Record>
Codec capnp_codec();
template <class Record>
Codec msgpack_codec();
template <class Record>
Codec zpp_bits_codec();  // only with BENCH_ZPP_BITS
template <class Record>
Codec sbe_codec();  // only with BENCH_SBE

template <class Record>
std::vector<Codec> all_codecs() {
    return {library_codec<Record>(),  protobuf_codec<Record>(),   protobuf_arena_codec<Record>(),
            nanopb_codec<Record>(),   protobuf_c_codec<Record>(), capnp_codec<Record>(),
#ifdef BENCH_ZPP_BITS
            zpp_bits_codec<Record>(),
#endif
#ifdef BENCH_SBE
            sbe_codec<Record>(),
#endif
            msgpack_codec<Record>()};
}

// ---- reading into a record: arrays as the library allocates them, by malloc --------------------------

[[noreturn]] inline void refuse() { throw std::runtime_error("a peer's message does not fit the record"); }

template <class Element>
Element* array_of(std::size_t size, std::uint32_t& count) {
    count = static_cast<std::uint32_t>(size);
    if (size == 0) return nullptr;
    void* const block = std::malloc(size * sizeof(Element));
    if (block == nullptr) refuse();
    return static_cast<Element*>(block);
}

template <class Element>
Element* copy_of(const void* bytes, std::size_t size, std::uint32_t& count) {
    auto* const array = array_of<Element>(size, count);
    if (size != 0) std::memcpy(array, bytes, size);
    return array;
}

template <class Element, class Numbers>
Element* copy_of(const Numbers& numbers, std::uint32_t& count) {
    auto* const array = array_of<Element>(static_cast<std::size_t>(numbers.size()), count);
    std::uint32_t next = 0;
    for (const auto number : numbers) array[next++] = static_cast<Element>(number);
    return array;
}

template <std::size_t length>
void take_bytes(const void* bytes, std::size_t size, std::uint8_t (&array)[length]) {
    if (size != length) refuse();
    std::memcpy(array, bytes, length);
}

template <class Element, std::size_t length, class Numbers>
void take_numbers(const Numbers& numbers, Element (&array)[length]) {
    if (static_cast<std::size_t>(numbers.size()) != length) refuse();
    std::size_t next = 0;
    for (const auto number : numbers) array[next++] = static_cast<Element>(number);
}

template <class Record>
void release_arrays(void* storage) {
    auto& record = *static_cast<Record*>(storage);
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (kaplo::is_one_of<kaplo::Kind::scalar_vector, kaplo::Kind::table_vector>(F::kind)) {
            std::free(F::elements(record));
            F::elements(record) = nullptr;
        }
    });
}

template <class Record, Run decode>
std::uint32_t decode_and_release(const Sample& sample, void* output, std::uint32_t capacity) {
    const std::uint32_t result = decode(sample, output, capacity);
    release_arrays<Record>(output);
    return result;
}

template <class Record, Run encode, Run decode>
Codec codec(const char* name) {
    return {name, encode, &decode_and_release<Record, decode>, decode, &release_arrays<Record>};
}

}  // namespace bench

#endif
