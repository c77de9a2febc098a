// SPDX-License-Identifier: Apache-2.0
// Runs a fuzzer's promise over the stored inputs in the files that it is given, then over N random inputs:
// --random N.
//
// A file whose name ends with .hex holds one input a line, and comments after #; any other file is one input.
#include <charconv>
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

std::uint64_t run_lines(std::istream& lines) {
    std::uint64_t inputs = 0;
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('#')) continue;
        std::vector<std::uint8_t> bytes(line.size() / 2);
        for (std::size_t i = 0; i < bytes.size(); ++i) {
            const char* const digits = line.data() + 2 * i;
            if (std::from_chars(digits, digits + 2, bytes[i], 16).ptr != digits + 2) return 0;
        }
        if (line.size() % 2 != 0) return 0;
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
        ++inputs;
    }
    return inputs;
}

// The number of inputs; 0 if the file holds none, or what is no input.
std::uint64_t run_file(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) return 0;
    if (path.extension() == ".hex") return run_lines(stream);
    const std::string text((std::istreambuf_iterator<char>(stream)), std::istreambuf_iterator<char>());
    const std::vector<std::uint8_t> bytes(text.begin(), text.end());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    return 1;
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
    std::uint64_t stored = 0;
    std::uint64_t random = 0;
    for (int i = 1; i < argc; ++i) {
        const std::string_view argument = argv[i];
        if (argument == "--random" && i + 1 < argc) {
            random = std::strtoull(argv[++i], nullptr, 10);
            continue;
        }
        const std::uint64_t inputs = run_file(argument);
        if (inputs == 0) {
            static_cast<void>(
                std::fprintf(stderr, "%s: cannot be read, or is no list of inputs in hex\n", argv[i]));
            return 2;
        }
        stored += inputs;
    }
    run_random(random);
    std::printf("count: %llu stored and %llu random inputs keep the promise of %s\n",
                static_cast<unsigned long long>(stored), static_cast<unsigned long long>(random),
                std::filesystem::path(argv[0]).filename().c_str());
    return 0;
}
