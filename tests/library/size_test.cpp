// SPDX-License-Identifier: Apache-2.0
// The size of a record is the length of what a plain writer writes for it, whatever the compiler makes of the
// sum. This program is compiled at every level of optimisation that makes vectors of sums.
#include <gtest/gtest.h>

#include <bit>

#include "nac/catalogue.h"
#include "runtime/size.h"
#include "tests/support/plain_writer.h"
#include "tests/support/random_record.h"

namespace {

using namespace tests;

constexpr std::uint64_t kRecords = 400;  // of each filling

template <class Record>
void expect_sizes_of_plain_writer() {
    for (std::uint64_t seed = 0; seed < 4 * kRecords; ++seed) {
        const RandomRecords<Record> records(seed);
        PlainWriter writer(std::endian::native);
        ASSERT_EQ(kaplo::message_bytes(&*records), writer.compact(*records).size())
            << kaplo::Description<Record>::name.c_str() << ", seed " << seed;
    }
}

#define NAC_SIZE_TEST(Message) \
    TEST(Size, Of##Message) { expect_sizes_of_plain_writer<Message>(); }
NAC_ALL_MESSAGES(NAC_SIZE_TEST)
#undef NAC_SIZE_TEST

}  // namespace
