// SPDX-License-Identifier: Apache-2.0
// nac bench: how long this machine takes to pack and unpack given records.
#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tool/io/json_lines.h"
#include "tool/io/message_files.h"
#include "tool/verb.h"

namespace tool {
namespace {

using Clock = std::chrono::steady_clock;

struct BenchOptions {
    std::vector<std::string> files;  // "-" is standard input
    std::string output;
    double milliseconds = 20;  // of one run
    std::uint32_t runs = 11;
    bool json = false;
};

// The records of one type, with what they pack to.
struct Load {
    explicit Load(const MessageType& type) : records(type) {}
    Records records;
    std::vector<std::vector<std::uint8_t>> messages;
    std::size_t message_bytes = 0;  // of all
};

struct Times {
    double median_ns;  // for one record
    double least_ns;
    double most_ns;
};

// Times passes over all records, several in a run where one is too short.
template <class Pass>
Times time_passes(const BenchOptions& options, std::size_t records, Pass pass) {
    const auto run = [&pass](std::uint64_t passes) {
        const auto start = Clock::now();
        for (std::uint64_t n = 0; n < passes; ++n) pass();
        return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
    };
    std::uint64_t passes = 1;
    const double wanted = options.milliseconds * 1e6;
    while (true) {
        const double took = run(passes);
        if (took >= wanted) break;
        const double factor = took > 0 ? wanted / took * 1.1 : 10;
        passes = std::max(passes + 1, static_cast<std::uint64_t>(static_cast<double>(passes) * factor));
    }
    std::vector<double> runs(options.runs);
    for (double& took : runs) {
        took = run(passes) / static_cast<double>(passes) / static_cast<double>(records);
    }
    std::sort(runs.begin(), runs.end());
    return {runs[runs.size() / 2], runs.front(), runs.back()};
}

Json times_to_json(const Times& times) {
    return {{"median_ns", times.median_ns}, {"least_ns", times.least_ns}, {"most_ns", times.most_ns}};
}

ExitCode run_bench(const BenchOptions& options) {
    std::map<const MessageType*, Load> loads;
    for_each_line(options.files, [&](const JsonLine& line) {
        Load& load = loads.try_emplace(&line.type, line.type).first->second;
        add_record(line, line.member("record"), load.records);
        try {
            load.messages.push_back(packed(line.type, load.records[load.records.size() - 1]));
        } catch (const RecordError& error) {
            throw line.bad(fmt::format("{}.{}", line.type.name, error.what()));
        }
        load.message_bytes += load.messages.back().size();
    });
    Output output(options.output);
    if (!options.json) {
        output.write(fmt::format("{:<37} {:>7} {:>9} {:>9} {:>9}\n", "median ns for one record", "records",
                                 "bytes", "pack", "unpack"));
    }
    for (const auto& type : message_types()) {
        const auto found = loads.find(type);
        if (found == loads.end()) continue;
        const Load& load = found->second;
        std::size_t longest = 0;
        for (const auto& message : load.messages) longest = std::max(longest, message.size());
        std::vector<std::uint8_t> buffer(longest);
        std::vector<std::byte> record(type->record_bytes);
        const Times pack = time_passes(options, load.records.size(), [&] {
            for (std::size_t n = 0; n < load.records.size(); ++n) {
                auto length = static_cast<std::uint32_t>(buffer.size());
                type->pack(load.records[n], buffer.data(), &length);
            }
        });
        const Times unpack = time_passes(options, load.records.size(), [&] {
            for (const auto& message : load.messages) {
                type->unpack(message.data(), static_cast<std::uint32_t>(message.size()), record.data());
                type->free_unpacked(record.data());
            }
        });
        const double bytes =
            static_cast<double>(load.message_bytes) / static_cast<double>(load.records.size());
        if (options.json) {
            output.write_line({{"type", type->name},
                               {"records", load.records.size()},
                               {"message_bytes", bytes},
                               {"runs", options.runs},
                               {"pack", times_to_json(pack)},
                               {"unpack", times_to_json(unpack)}});
        } else {
            output.write(fmt::format("{:<37} {:>7} {:>9.1f} {:>9.1f} {:>9.1f}\n", type->name,
                                     load.records.size(), bytes, pack.median_ns, unpack.median_ns));
        }
    }
    output.finish();
    return kOk;
}

}  // namespace

void add_bench(CLI::App& command, Chosen& chosen) {
    auto [verb, options] = add_verb(command, chosen, run_bench);
    verb.add_option("FILE", options.files, "Records as JSON lines; - is standard input")->required();
    verb.add_option("--runs", options.runs, "Runs of which the median is printed, 11 if not given")
        ->transform(whole_number(1, 10001));
    verb.add_option("--time", options.milliseconds, "Milliseconds of a run, 20 if not given")
        ->transform(real_number(0.001, 60000));
    verb.add_option("-o,--output", options.output, kOutputHelp)->type_name("FILE");
    verb.add_flag("--json", options.json, kJsonHelp);
    verb.footer(
        "The compact layout, through the exported functions; unpack with its free. nac random makes "
        "records.");
}

}  // namespace tool
