// SPDX-License-Identifier: Apache-2.0
// What is measured, as function pointers of one type; and the library's own operations in that form.
#ifndef BENCH_OPERATIONS_H
#define BENCH_OPERATIONS_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench/messages.h"
#include "bench/silent_bus.h"
#include "runtime/size.h"

namespace bench {

[[noreturn]] inline void give_up(const std::string& why) {
    std::fprintf(stderr, "bench: %s\n", why.c_str());
    std::exit(1);
}

// What one call works on. Which of it, is the operation's.
struct Sample {
    const void* record = nullptr;
    const std::uint8_t* bytes = nullptr;  // of the record, in the form that the operation reads
    std::uint32_t length = 0;             // of the bytes; of a batch, its records
};

// Writes to `output`, which has `capacity` bytes: the encoded record, or the record that was read, whose
// arrays are released again. Returns the encoded bytes, or what the library returns.
using Run = std::uint32_t (*)(const Sample& sample, void* output, std::uint32_t capacity);

struct Operation {
    std::string name;
    Run run;
    std::vector<Sample> samples;  // the calls take them in turn
};

using Bytes = std::vector<std::uint8_t>;

inline std::vector<Sample> samples_of(const std::vector<Bytes>& messages) {
    std::vector<Sample> samples;
    for (const Bytes& bytes : messages) {
        samples.push_back({nullptr, bytes.data(), static_cast<std::uint32_t>(bytes.size())});
    }
    return samples;
}

// ---- the library's operations, through its exported functions ----------------------------------------

// The size is internal: the template in a function of its own, as pack and send contain it.
template <class Record>
[[gnu::noinline]] std::uint32_t size_of_record(const Sample& sample, void* /*output*/,
                                               std::uint32_t /*capacity*/) {
    return kaplo::message_bytes(static_cast<const Record*>(sample.record));
}

template <class Record>
std::uint32_t pack_record(const Sample& sample, void* output, std::uint32_t capacity) {
    std::uint32_t length = capacity;
    nac::Functions<Record>::pack(static_cast<const Record*>(sample.record),
                                 static_cast<std::uint8_t*>(output), &length);
    return length;
}

template <class Record>
std::uint32_t unpack_and_free(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    auto* const record = static_cast<Record*>(output);
    const std::uint32_t result = nac::Functions<Record>::unpack(sample.bytes, sample.length, record);
    nac::Functions<Record>::free(record);
    return result;
}

template <class Record>
std::uint32_t send_record(const Sample& sample, void* /*output*/, std::uint32_t /*capacity*/) {
    return nac::Functions<Record>::send(1, static_cast<const Record*>(sample.record), 1);
}

template <class Record>
std::uint32_t send_records(const Sample& sample, void* /*output*/, std::uint32_t /*capacity*/) {
    return nac::Functions<Record>::send(1, static_cast<const Record*>(sample.record), sample.length);
}

inline Bytes tapped;

// The bytes in which a single record is sent.
template <class Record>
Bytes sent_bytes(const Record& record) {
    bus_tap = [](const VORN_SendDescriptor* descriptors, std::uint32_t /*count*/) {
        tapped.assign(descriptors->buffer, descriptors->buffer + descriptors->length);
    };
    const std::uint32_t result = nac::Functions<Record>::send(1, &record, 1);
    bus_tap = nullptr;
    if (result != 0) give_up("a record could not be sent");
    return tapped;
}

template <class Record>
Bytes packed_bytes(const Record& record) {
    const Sample sample = {&record, nullptr, 0};
    Bytes bytes(size_of_record<Record>(sample, nullptr, 0));
    if (pack_record<Record>(sample, bytes.data(), static_cast<std::uint32_t>(bytes.size())) != bytes.size()) {
        give_up("a record could not be packed");
    }
    return bytes;
}

// Records of one shape, their bytes in the library's layouts, and the operations on them.
template <class Record>
class Workload {
  public:
    // Records without vectors travel as fixed images, whose bytes the decoder gets to see most.
    static constexpr bool has_image = !kaplo::owns_memory<Record>;

    Workload(const Shape& shape, Content content) : records_(shape, content) {
        const std::size_t distinct = content == Content::same ? 1 : records_.size();
        for (std::size_t i = 0; i < distinct; ++i) {
            compact_.push_back(packed_bytes(records_[i]));
            if constexpr (has_image) images_.push_back(sent_bytes(records_[i]));
        }
    }

    const Records<Record>& records() const { return records_; }
    const std::vector<Bytes>& compact() const { return compact_; }
    const std::vector<Bytes>& images() const { return images_; }

    std::vector<Sample> record_samples() const {
        std::vector<Sample> samples;
        for (std::size_t i = 0; i < compact_.size(); ++i) samples.push_back({&records_[i], nullptr, 0});
        return samples;
    }

    // How many records go into a batch: 100, or what surely fits the 64 KiB of a batch of compact messages.
    std::uint32_t batch() const {
        std::size_t fit = std::min<std::size_t>(kLargestBatch, records_.size());
        if constexpr (!has_image) {
            const auto shorter = [](const Bytes& a, const Bytes& b) { return a.size() < b.size(); };
            const std::size_t longest = std::max_element(compact_.begin(), compact_.end(), shorter)->size();
            fit = std::min(fit, std::size_t{0x10000} / longest);
        }
        return static_cast<std::uint32_t>(fit);
    }

    std::vector<Operation> operations() const {
        std::vector<Operation> all = {{"size", &size_of_record<Record>, record_samples()},
                                      {"pack", &pack_record<Record>, record_samples()},
                                      {"unpack", &unpack_and_free<Record>, samples_of(compact_)},
                                      {"send", &send_record<Record>, record_samples()}};
        if (has_image) all.push_back({"unpack image", &unpack_and_free<Record>, samples_of(images_)});
        if (batch() > 1) {
            std::vector<Sample> batches;
            const std::size_t last = compact_.size() == 1 ? 0 : records_.size() - batch();
            for (std::size_t i = 0; i <= last; i += batch())
                batches.push_back({&records_[i], nullptr, batch()});
            all.push_back({"send " + std::to_string(batch()), &send_records<Record>, batches});
        }
        return all;
    }

  private:
    Records<Record> records_;
    std::vector<Bytes> compact_;
    std::vector<Bytes> images_;  // none for records with vectors
};

// Where operations write: capacity for each message and each record.
class Output {
  public:
    void* start() { return words_.data(); }
    std::uint32_t capacity() const { return static_cast<std::uint32_t>(words_.size() * sizeof words_[0]); }

  private:
    std::vector<std::uint64_t> words_ = std::vector<std::uint64_t>(1 << 19);
};

}  // namespace bench

#endif
