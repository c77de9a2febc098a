// SPDX-License-Identifier: Apache-2.0
// Verification, the walk and the writer of JSON ask for no memory, whatever they find.
#include <gtest/gtest.h>

#include "tests/inspect/inspected.h"
#include "tests/support/message.h"
#include "tests/support/message_types.h"

extern "C" std::uint64_t bench_heap_calls();  // of this process so far

namespace {

using namespace tests;

class NoAllocation : public MessageTest, public testing::WithParamInterface<MessageType> {};
NAC_FOR_ALL_MESSAGES(NoAllocation);

TEST_P(NoAllocation, InVerifyWalkAndWriter) {
    const vorn_type& type = inspected_type(GetParam().name);
    const auto ignore_fault = [](const vorn_fault*, void*) { return 0; };
    const auto ignore_range = [](const vorn_range*, void*) {};
    const auto ignore_text = [](const char*, std::size_t, void*) { return 0; };
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        const AnyRecords records = GetParam().random(seed, Filling::rich);
        for (Bytes bytes : GetParam().in_all_layouts(*records)) {
            for (std::size_t at = 0; at <= bytes.size(); ++at) {
                services.reset();
                const std::uint64_t before = bench_heap_calls();
                vorn_inspect_verify(&type, bytes.data(), bytes.size(), ignore_fault, nullptr);
                vorn_inspect_walk(&type, bytes.data(), bytes.size(), ignore_range, ignore_fault, nullptr,
                                  nullptr);
                vorn_inspect_to_json(&type, *records, SIZE_MAX, ignore_text, nullptr);
                EXPECT_EQ(bench_heap_calls(), before);
                EXPECT_EQ(services.allocations().size(), 0U);
                if (at < bytes.size()) bytes[at] ^= 0x80;  // ever more damage
            }
        }
    }
    EXPECT_GT(bench_heap_calls(), 0U) << "calls of the heap are counted";
}

}  // namespace
