// SPDX-License-Identifier: Apache-2.0
// Times the library against memcpy and the peers. First every codec must give back every record; with
// --facts, prints sizes and heap calls instead of times.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "bench/codec.h"
#include "bench/heap_counter.h"
#include "tests/support/same_record.h"

namespace bench {
namespace {

using Json = nlohmann::ordered_json;

std::uint32_t copy_bytes(const Sample& sample, void* output, std::uint32_t /*capacity*/) {
    std::memcpy(output, sample.bytes, sample.length);
    return sample.length;
}

template <class Record>
double bytes_in_memory(const Record& record) {
    double bytes = sizeof record;
    kaplo::each_field<Record>([&]<class F, std::uint32_t id> {
        if constexpr (kaplo::is_one_of<kaplo::Kind::scalar_vector, kaplo::Kind::table_vector>(F::kind)) {
            bytes += static_cast<double>(F::count(record)) * sizeof(typename F::Element);
        }
    });
    return bytes;
}

// One codec's messages, and how long they are.
struct Encoded {
    const char* codec;
    std::vector<Bytes> messages;
};

class Case {
  public:
    virtual ~Case() = default;

    std::string message;  // the shape's name
    Content content = Content::same;
    double memory_bytes = 0;  // of a record with its arrays; of a pool, the mean
    std::vector<Encoded> encoded;
    std::vector<Operation> operations;  // named "encode/<codec>", "decode/<codec>", "library/<operation>"
};

Output& output() {
    static Output storage;
    return storage;
}

template <class Record>
class CaseOf : public Case {
  public:
    CaseOf(const Shape& shape, Content which) : workload_(shape, which) {
        message = shape.name;
        content = which;
        const std::vector<Sample> records = workload_.record_samples();
        for (std::size_t i = 0; i < records.size(); ++i) {
            memory_bytes += bytes_in_memory(workload_.records()[i]) / static_cast<double>(records.size());
        }

        encoded.reserve(8);  // samples point into it
        for (const Codec& codec :
             {library_codec<Record>(), protobuf_codec<Record>(), protobuf_arena_codec<Record>(),
              nanopb_codec<Record>(), protobuf_c_codec<Record>(), capnp_codec<Record>(),
              msgpack_codec<Record>()}) {
            encoded.push_back({codec.name, encode_all(codec, records)});
            check(codec, records, encoded.back().messages);
            operations.push_back({std::string("encode/") + codec.name, codec.encode, records});
            operations.push_back({std::string("decode/") + codec.name, codec.decode_and_release,
                                  samples_of(encoded.back().messages)});
        }
        operations.push_back({"encode/memcpy", &copy_bytes, samples_of(workload_.compact())});
        operations.push_back({"decode/memcpy", &copy_bytes, samples_of(workload_.compact())});
        for (Operation& operation : workload_.operations()) {
            if (operation.name == "pack" || operation.name == "unpack")
                continue;  // timed as encode and decode
            operation.name.insert(0, "library/");
            operations.push_back(std::move(operation));
        }
        if (Workload<Record>::has_image) {
            encoded.push_back({"fixed image", workload_.images()});
            operations.push_back({"library/memcpy image", &copy_bytes, samples_of(workload_.images())});
        }
    }

  private:
    std::vector<Bytes> encode_all(const Codec& codec, const std::vector<Sample>& records) {
        std::vector<Bytes> messages;
        for (const Sample& sample : records) {
            const std::uint32_t size = codec.encode(sample, output().start(), output().capacity());
            const auto* const start = static_cast<const std::uint8_t*>(output().start());
            messages.emplace_back(start, start + size);
        }
        return messages;
    }

    void check(const Codec& codec, const std::vector<Sample>& records, const std::vector<Bytes>& messages) {
        const std::vector<Sample> samples = samples_of(messages);
        for (std::size_t i = 0; i < samples.size(); ++i) {
            Record record = {};
            codec.decode(samples[i], &record, sizeof record);
            const auto same = tests::same_record(record, *static_cast<const Record*>(records[i].record));
            if (!same) give_up(message + ", " + codec.name + ": " + same.message());
            codec.release(&record);
        }
    }

    Workload<Record> workload_;
};

// All of them, in the order of the table.
std::vector<std::unique_ptr<Case>> make_cases() {
    std::vector<std::unique_ptr<Case>> cases;
    each_message([&]<class Record>(const Shape& shape) {
        cases.push_back(std::make_unique<CaseOf<Record>>(shape, Content::same));
        cases.push_back(std::make_unique<CaseOf<Record>>(shape, Content::varied));
    });
    return cases;
}

void time(benchmark::State& state, const Operation& operation) {
    std::memset(output().start(), 0, 4096);  // records are read into zeroed storage
    const Sample* const samples = operation.samples.data();
    const std::size_t count = operation.samples.size();
    const Run run = operation.run;
    void* const start = output().start();
    const std::uint32_t capacity = output().capacity();
    std::size_t next = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(run(samples[next], start, capacity));
        if (++next == count) next = 0;
    }
}

// The calls of the heap by one call of the operation, once it has what it keeps.
double heap_calls(const Operation& operation, HeapCalls counter) {
    std::memset(output().start(), 0, 4096);
    const auto run_all = [&] {
        for (const Sample& sample : operation.samples)
            operation.run(sample, output().start(), output().capacity());
    };
    run_all();
    run_all();
    const std::uint64_t before = counter();
    run_all();
    return static_cast<double>(counter() - before) / static_cast<double>(operation.samples.size());
}

void print_facts(const std::vector<std::unique_ptr<Case>>& cases) {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): dlsym's way
    const auto counter = reinterpret_cast<HeapCalls>(dlsym(RTLD_DEFAULT, kHeapCallsName));
    if (counter == nullptr) give_up("--facts needs heap_counter preloaded");
    Json all = Json::array();
    for (const auto& one : cases) {
        Json sizes = Json::object();
        for (const Encoded& encoded : one->encoded) {
            double sum = 0;
            for (const Bytes& bytes : encoded.messages) sum += static_cast<double>(bytes.size());
            sizes[encoded.codec] = sum / static_cast<double>(encoded.messages.size());
        }
        Json heap = Json::object();
        for (const Operation& operation : one->operations)
            heap[operation.name] = heap_calls(operation, counter);
        all.push_back({{"message", one->message},
                       {"content", name_of(one->content)},
                       {"memory_bytes", one->memory_bytes},
                       {"wire_bytes", sizes},
                       {"heap_calls", heap}});
    }
    std::puts(all.dump(1).c_str());
}

void register_benchmarks(const std::vector<std::unique_ptr<Case>>& cases) {
    for (const auto& one : cases) {
        for (const Operation& operation : one->operations) {
            const std::string name = one->message + "/" + name_of(one->content) + "/" + operation.name;
            benchmark::RegisterBenchmark(name.c_str(), &time, operation);
        }
    }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    const auto cases = bench::make_cases();
    if (argc == 2 && std::string_view(argv[1]) == "--facts") {
        bench::print_facts(cases);
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
    bench::register_benchmarks(cases);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
