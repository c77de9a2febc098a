// SPDX-License-Identifier: Apache-2.0
// Times the library against memcpy and the peers. First every codec must give back every record; with
// --facts, prints sizes and heap calls instead of times, with --instructions, under callgrind, counts what
// the library and SBE take.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <algorithm>
#include <cstring>
#include <deque>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "bench/codec.h"
#include "bench/counted_calls.h"
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

// Messages whose times are taken for each share of zeros, and cold.
bool in_series(const Shape& shape) {
    const std::string_view name = shape.name;
    return name == "Nac_UserDataFlowMsg x 100" || name == "Nac_DaclRuleIpInfo" ||
           name == "Nac_SetUserTableMsg rich";
}

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
    thread_local Output storage;
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

        const std::vector<Codec> codecs = all_codecs<Record>();
        encoded.reserve(codecs.size() + 1);  // samples point into it
        for (const Codec& codec : codecs) {
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

// Messages as they come from elsewhere: 64 MiB of them, read in random order, in nobody's cache.
template <class Record>
class ColdCase : public Case {
  public:
    explicit ColdCase(const Shape& shape) : records_(shape, Content::varied) {
        message = shape.name;
        for (const Codec& codec : all_codecs<Record>()) {
            if (!takes_part(codec.name)) continue;
            std::vector<Bytes>& messages = messages_.emplace_back();
            std::size_t bytes = 0;
            for (std::size_t i = 0; bytes < kColdBytes; i = (i + 1) % records_.size()) {
                const std::uint32_t size =
                    codec.encode({&records_[i], nullptr, 0}, output().start(), output().capacity());
                const auto* const start = static_cast<const std::uint8_t*>(output().start());
                messages.emplace_back(start, start + size);
                bytes += size;
            }
            std::shuffle(messages.begin(), messages.end(), std::mt19937_64(2026));
            operations.push_back(
                {std::string("decode/") + codec.name, codec.decode_and_release, samples_of(messages)});
        }
    }

  private:
    static constexpr std::size_t kColdBytes = std::size_t{64} << 20;

    // Each of them takes that much memory.
    static bool takes_part(const std::string& codec) {
        return codec == "vorn_nac_user" || codec == "SBE" || codec == "zpp_bits" || codec == "protobuf";
    }

    Records<Record> records_;
    std::deque<std::vector<Bytes>> messages_;
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

std::vector<std::unique_ptr<Case>> make_series() {
    std::vector<std::unique_ptr<Case>> cases;
    each_message([&]<class Record>(const Shape& shape) {
        if (!in_series(shape)) return;
        for (const Content content : kSeries)
            cases.push_back(std::make_unique<CaseOf<Record>>(shape, content));
    });
    return cases;
}

std::vector<std::unique_ptr<Case>> make_cold_cases() {
    std::vector<std::unique_ptr<Case>> cases;
    each_message([&]<class Record>(const Shape& shape) {
        if (in_series(shape)) cases.push_back(std::make_unique<ColdCase<Record>>(shape));
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

void register_benchmark(const std::string& message, const std::string& content, const Operation& operation) {
    const std::string name = message + "/" + content + "/" + operation.name;
    benchmark::RegisterBenchmark(name.c_str(), &time, operation);
}

void register_benchmarks(const std::vector<std::unique_ptr<Case>>& cases) {
    for (const auto& one : cases) {
        for (const Operation& operation : one->operations) {
            register_benchmark(one->message, name_of(one->content), operation);
        }
    }
}

bool is_coding(const Operation& operation) { return !operation.name.starts_with("library/"); }

void register_series(const std::vector<std::unique_ptr<Case>>& series,
                     const std::vector<std::unique_ptr<Case>>& cold) {
    for (const auto& one : series) {
        for (const Operation& operation : one->operations) {
            if (is_coding(operation)) register_benchmark(one->message, name_of(one->content), operation);
        }
    }
    for (const auto& one : cold) {
        for (const Operation& operation : one->operations)
            register_benchmark(one->message, "cold", operation);
    }
}

// The same work by two threads at once, of the library and of memcpy: on two cores, which --threads is run
// on.
void register_threads(const std::vector<std::unique_ptr<Case>>& cases) {
    for (const auto& one : cases) {
        if (one->content != Content::varied) continue;
        for (const Operation& operation : one->operations) {
            if (!operation.name.ends_with("vorn_nac_user") && !operation.name.ends_with("memcpy")) continue;
            for (const int threads : {1, 2}) {
                const std::string name =
                    one->message + "/" + std::to_string(threads) + " threads/" + operation.name;
                benchmark::RegisterBenchmark(name.c_str(), &time, operation)->Threads(threads);
            }
        }
    }
}

constexpr std::size_t kCountedCalls = 64;

// Of messages for which there are targets.
void count_instructions() {
    each_message([]<class Record>(const Shape& shape) {
        if (shape.data_flow_elements != 0 && shape.data_flow_elements != 100) return;
        for (const Content content : {Content::same, Content::varied}) {
            const CaseOf<Record> one(shape, content);
            for (const Operation& operation : one.operations) {
                if (!operation.name.ends_with("code/vorn_nac_user") && !operation.name.ends_with("code/SBE"))
                    continue;
                count_calls(one.message + "/" + name_of(content) + "/" + operation.name, operation,
                            kCountedCalls);
            }
        }
    });
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
    if (argc == 2 && std::string_view(argv[1]) == "--instructions") {
        bench::count_instructions();
        return 0;
    }
    const auto cases = bench::make_cases();
    if (argc == 2 && std::string_view(argv[1]) == "--facts") {
        bench::print_facts(cases);
        return 0;
    }
    const bool threads = argc > 1 && std::string_view(argv[1]) == "--threads";
    if (threads) std::swap(argv[0], argv[1]);
    int rest = threads ? argc - 1 : argc;
    char** const arguments = threads ? argv + 1 : argv;
    benchmark::Initialize(&rest, arguments);
    if (benchmark::ReportUnrecognizedArguments(rest, arguments)) return 2;
    std::vector<std::unique_ptr<bench::Case>> series;
    std::vector<std::unique_ptr<bench::Case>> cold;
    if (threads) {
        bench::register_threads(cases);
    } else {
        series = bench::make_series();
        cold = bench::make_cold_cases();
        bench::register_benchmarks(cases);
        bench::register_series(series, cold);
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
