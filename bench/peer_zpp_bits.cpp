// SPDX-License-Identifier: Apache-2.0
// zpp_bits: a record's bytes as they are; of a vector its count and the bytes of its elements.
#include <zpp_bits.h>

#include <span>

#include "bench/codec.h"

namespace bench {
namespace {

template <class Archive, class Value>
void pass(Archive& archive, Value&& value) {
    if (zpp::bits::failure(archive(value))) refuse();
}

template <class Value>
auto bytes_of(Value& value) {
    using Byte = std::conditional_t<std::is_const_v<Value>, const std::byte, std::byte>;
    return zpp::bits::bytes(std::span(reinterpret_cast<Byte*>(&value), sizeof value));
}

template <class Archive, class F>
void write_vector(Archive& archive, const typename F::Record& record) {
    pass(archive, F::count(record));
    pass(archive, zpp::bits::bytes(std::span(F::elements(record), F::count(record))));
}

template <class Archive, class F>
void read_vector(Archive& archive, typename F::Record& record) {
    std::uint32_t count = 0;
    pass(archive, count);
    F::elements(record) = array_of<typename F::Element>(count, F::count(record));
    pass(archive, zpp::bits::bytes(std::span(F::elements(record), count)));
}

// A record with vectors field by field, any other at once.
template <class Record, class Vector>
void each_part(Record& record, auto& archive, Vector&& vector) {
    using Described = std::remove_const_t<Record>;
    if constexpr (!kaplo::owns_memory<Described>) {
        pass(archive, bytes_of(record));
    } else {
        kaplo::each_field<Described>([&]<class F, std::uint32_t id> {
            if constexpr (kaplo::is_one_of<kaplo::Kind::scalar_vector, kaplo::Kind::table_vector>(F::kind)) {
                vector.template operator()<F>();
            } else {
                pass(archive, bytes_of(F::in(record)));
            }
        });
    }
}

template <class Record>
std::uint32_t encode(const Sample& sample, void* output, std::uint32_t capacity) {
    zpp::bits::out out(std::span(static_cast<std::byte*>(output), capacity));
    const auto& record = *static_cast<const Record*>(sample.record);
    each_part(record, out, [&]<class F> { write_vector<decltype(out), F>(out, record); });
    return static_cast<std::uint32_t>(out.position());
}

template <class Record>
std::uint32_t decode(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    zpp::bits::in in(std::span(sample.bytes, sample.length));
    auto& record = *static_cast<Record*>(output);
    each_part(record, in, [&]<class F> { read_vector<decltype(in), F>(in, record); });
    return sample.length;
}

}  // namespace

template <class Record>
Codec zpp_bits_codec() {
    return codec<Record, &encode<Record>, &decode<Record>>("zpp_bits");
}

#define BENCH_INSTANTIATE(Record) template Codec zpp_bits_codec<Record>();
BENCH_RECORDS(BENCH_INSTANTIATE)

}  // namespace bench
