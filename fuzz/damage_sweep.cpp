// SPDX-License-Identifier: Apache-2.0
// Promise: a small message with random damage is read as the plain reader reads it, and what inspection says
// of it, asking the decoder or walking through it, is what became of it.
//
// Reads N million of them on all processors, a process each, and prints how many a second: damage_sweep N
// [SEED]. A process that fails prints the number of its block. damage_sweep --write BLOCKS SEED writes the
// messages on standard output instead, for other readers: of each the verdict (as vorn_verdict has it), id
// and length, then the bytes.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <chrono>
#include <cstdlib>
#include <string_view>

#include "fuzz/damaged_blocks.h"
#include "inspect/vorn_inspect.h"

namespace {

// On the wire of this build.
constexpr std::endian kWire = (kaplo::kByteSwap == 0) == (std::endian::native == std::endian::little)
                                  ? std::endian::little
                                  : std::endian::big;

template <class Record>
vorn_verdict verdict_of(const std::uint8_t* bytes, std::uint32_t length) {
    Record record = {};
    tests::PlainReader reader(bytes, length, kWire);
    reader.unpack(&record);
    return static_cast<vorn_verdict>(reader.verdict);
}

template <class Record>
void inspect_and_compare(const std::uint8_t* bytes, std::uint32_t length) {
    static const vorn_type* const type =
        vorn_inspect_type_by_id(vorn_nac_catalogue(), kaplo::message_id<Record>);
    const vorn_verdict expected = verdict_of<Record>(bytes, length);
    fuzz::promise(vorn_inspect_verify(type, bytes, length, nullptr, nullptr) == expected,
                  "verification ends as the plain reader");
    fuzz::promise(vorn_inspect_walk(type, bytes, length, nullptr, nullptr, nullptr, nullptr) == expected,
                  "the walk ends as the plain reader");
}

// Every block whose number is `first` modulo `step`.
void run_blocks(std::uint64_t blocks, std::uint64_t seed, std::uint64_t first, std::uint64_t step) {
    tests::GuardedBuffer guarded(fuzz::kMostBlockBytes);
    for (std::uint64_t block = first; block < blocks; block += step) {
        fuzz::doing = "block " + std::to_string(seed + block);
        fuzz::each_damaged(
            seed + block, guarded,
            []<class Record>(const std::uint8_t* bytes, std::uint32_t length, std::endian order) {
                fuzz::unpack_and_compare<Record>(bytes, length, order);
                if (order == kWire) inspect_and_compare<Record>(bytes, length);
            });
    }
}

int write_blocks(std::uint64_t blocks, std::uint64_t seed) {
    tests::GuardedBuffer guarded(fuzz::kMostBlockBytes);
    for (std::uint64_t block = 0; block < blocks; ++block) {
        fuzz::each_damaged(
            seed + block, guarded,
            []<class Record>(const std::uint8_t* bytes, std::uint32_t length, std::endian order) {
                if (order != std::endian::little) return;
                std::array<std::uint8_t, 9> head = {};
                fuzz::put(head.data(), verdict_of<Record>(bytes, length), 1);
                fuzz::put(head.data() + 1, kaplo::message_id<Record>, 4);
                fuzz::put(head.data() + 5, length, 4);
                static_cast<void>(std::fwrite(head.data(), 1, head.size(), stdout));
                static_cast<void>(std::fwrite(bytes, 1, length, stdout));
            });
    }
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0 ? 0 : 2;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc == 4 && std::string_view(argv[1]) == "--write") {
        return write_blocks(std::strtoull(argv[2], nullptr, 10), std::strtoull(argv[3], nullptr, 10));
    }
    const std::uint64_t millions = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 1;
    const std::uint64_t seed = argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 0;
    const std::uint64_t blocks = millions * 1'000'000 / fuzz::kBlockMessages;
    const auto processes = static_cast<std::uint64_t>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
    const auto begin = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i < processes; ++i) {
        const pid_t child = fork();
        if (child < 0) {
            std::perror("fork");
            return 2;
        }
        if (child == 0) {
            run_blocks(blocks, seed, i, processes);
            _exit(0);
        }
    }
    bool kept = true;
    for (std::uint64_t i = 0; i < processes; ++i) {
        int status = 0;
        if (wait(&status) < 0 || status != 0) kept = false;
    }
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    if (!kept) return 1;
    std::printf(
        "count: %llu randomly damaged messages read and inspected as the plain reader reads them, %.0f a "
        "second\n",
        static_cast<unsigned long long>(blocks * fuzz::kBlockMessages),
        static_cast<double>(blocks * fuzz::kBlockMessages) / seconds.count());
    return 0;
}
