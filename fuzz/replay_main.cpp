// SPDX-License-Identifier: Apache-2.0
// Runs a fuzzer's promise over stored inputs: the files, and the files of the folders, that it is given; then
// over random inputs, so many as --random says.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/random_record.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

void run_file(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
}

void run_random(std::uint64_t count) {
    tests::Random random(2024);
    for (std::uint64_t i = 0; i < count; ++i) {
        std::vector<std::uint8_t> bytes(random.below(512));
        for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random.next());
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::size_t stored = 0;
    std::uint64_t random = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--random" && i + 1 < argc) {
            random = std::strtoull(argv[++i], nullptr, 10);
        } else if (std::filesystem::is_directory(argument)) {
            for (const auto& entry : std::filesystem::directory_iterator(argument)) {
                run_file(entry.path());
                ++stored;
            }
        } else {
            run_file(argument);
            ++stored;
        }
    }
    run_random(random);
    std::printf("count: %zu stored and %llu random inputs keep the promise of %s\n", stored,
                static_cast<unsigned long long>(random), std::filesystem::path(argv[0]).filename().c_str());
    return 0;
}
