// SPDX-License-Identifier: Apache-2.0
// The library itself as a codec: pack, unpack, free.
#include "bench/codec.h"

namespace bench {
namespace {

template <class Record>
std::uint32_t unpack(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    return nac::Functions<Record>::unpack(sample.bytes, sample.length, static_cast<Record*>(output));
}

template <class Record>
void release(void* record) {
    nac::Functions<Record>::free(static_cast<Record*>(record));
}

}  // namespace

template <class Record>
Codec library_codec() {
    return {"vorn_nac_user", &pack_record<Record>, &unpack_and_free<Record>, &unpack<Record>,
            &release<Record>};
}

#define BENCH_INSTANTIATE(Record) template Codec library_codec<Record>();
BENCH_RECORDS(BENCH_INSTANTIATE)

}  // namespace bench
