// SPDX-License-Identifier: Apache-2.0
// What each byte of a message means.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/inspect/inspected.h"
#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;

class WalkTest : public MessageTest {};

struct Heard {
    const Bytes& bytes;
    std::vector<std::string> ranges;  // "at bytes: meaning"
    std::vector<bool> covered;
};

void keep_range(const vorn_range* range, void* context) {
    Heard& heard = *static_cast<Heard*>(context);
    std::string text(200, '\0');
    text.resize(vorn_inspect_range_text(range, heard.bytes.data(), 24, text.data(), text.size()));
    heard.ranges.push_back(std::to_string(range->at) + " " + std::to_string(range->bytes) + ": " + text);
    ASSERT_LE(std::size_t{range->at} + range->bytes, heard.bytes.size());
    for (std::uint32_t i = 0; i < range->bytes; ++i) heard.covered[range->at + i] = true;
}

std::vector<std::string> walked(const char* type, const Bytes& bytes, vorn_layout expected) {
    Heard heard = {bytes, {}, std::vector<bool>(bytes.size())};
    vorn_layout layout = VORN_LAYOUT_OTHER;
    vorn_inspect_walk(&inspected_type(type), bytes.data(), bytes.size(), keep_range, nullptr, &heard,
                      &layout);
    EXPECT_EQ(layout, expected);
    return heard.ranges;
}

TEST_F(WalkTest, NamesEachByteOfACompactMessage) {
    EXPECT_EQ(walked("Nac_SetPortMsg", packed(Nac_SetPortMsg{7, 0}), VORN_LAYOUT_COMPACT),
              (Lines{"0 4: root reference: table at 12", "12 4: table Nac_SetPortMsg: vtable at 4",
                     "4 2: vtable of Nac_SetPortMsg: 8 bytes", "6 2: table length 8",
                     "8 2: slot of f0: 4, at 16", "10 2: slot of f1: absent", "16 4: f0 u32 = 7"}));
}

TEST_F(WalkTest, NamesElementsByTheirPath) {
    const Nac_UserDataFlowInfo flow = {1, 2, {}, {5, 0, 0, 0}, {}, {}};
    const Bytes bytes = packed(Nac_UserDataFlowMsg{1, const_cast<Nac_UserDataFlowInfo*>(&flow)});
    const auto ranges = walked("Nac_UserDataFlowMsg", bytes, VORN_LAYOUT_COMPACT);
    for (const char* const expected : {"f0 count 1", "f0[0] Nac_UserDataFlowInfo: at ", "f0[0].f0 u32 = 1",
                                       "f0[0].f3 Nac_UserDataFlowCfg: at ", "f0[0].f3.f0 u64 = 5"}) {
        EXPECT_TRUE(std::any_of(ranges.begin(), ranges.end(), [expected](const std::string& range) {
            return range.find(expected) != std::string::npos;
        })) << expected;
    }
}

TEST_F(WalkTest, ReportsThePaddingOfAnImage) {
    const auto ranges =
        walked("Nac_PortVlanChangeMsg", sent(Nac_PortVlanChangeMsg{1, 2, 3}), VORN_LAYOUT_IMAGE);
    EXPECT_EQ(ranges.back(), "30 2: padding");
    EXPECT_EQ(ranges[ranges.size() - 2], "18 2: padding") << "before the vtable";
}

TEST_F(WalkTest, HasFaultsAndRangesOfADamagedMessage) {
    Bytes damaged = packed(Nac_SetPortMsg{7, 9});
    put16(damaged, 8, 0x100);  // the offset of f0
    const auto ranges = walked("Nac_SetPortMsg", damaged, VORN_LAYOUT_COMPACT);
    EXPECT_EQ(ranges.back(), "20 4: f1 u32 = 9") << "what comes after the fault";
}

TEST_F(WalkTest, CutsLongValuesAndSaysHowLongTheTextWouldBe) {
    const Bytes bytes = packed(Nac_SetPortMsg{1234567, 0});
    struct Cut {
        const Bytes& bytes;
        bool is_seen;
    } cut = {bytes, false};
    const auto look = [](const vorn_range* range, void* context) {
        if (range->part != VORN_PART_SCALAR) return;
        auto& seen = *static_cast<Cut*>(context);
        char text[4] = {};
        EXPECT_EQ(vorn_inspect_value_text(range, seen.bytes.data(), 24, text, sizeof text), 7U);
        EXPECT_STREQ(text, "123");
        seen.is_seen = true;
    };
    vorn_inspect_walk(&inspected_type("Nac_SetPortMsg"), bytes.data(), bytes.size(), look, nullptr, &cut,
                      nullptr);
    EXPECT_TRUE(cut.is_seen);
}

// Every byte of every valid message has a meaning, in both layouts.
class WalkOfAll : public MessageTest, public testing::WithParamInterface<MessageType> {};
NAC_FOR_ALL_MESSAGES(WalkOfAll);

TEST_P(WalkOfAll, CoversEveryByteOfAValidMessage) {
    for (std::uint64_t seed = 0; seed < 40; ++seed) {
        const AnyRecords records = GetParam().random(seed);
        for (const Bytes& bytes : GetParam().in_all_layouts(*records)) {
            Heard heard = {bytes, {}, std::vector<bool>(bytes.size())};
            EXPECT_EQ(vorn_inspect_walk(&inspected_type(GetParam().name), bytes.data(), bytes.size(),
                                        keep_range, nullptr, &heard, nullptr),
                      VORN_VERDICT_VALID);
            // A host that reverses the byte order shortens a table's length: large images are no images then.
            if (kaplo::kByteSwap == 0) {
                EXPECT_EQ(heard.covered, std::vector<bool>(bytes.size(), true)) << "seed " << seed;
            }
        }
    }
}

}  // namespace
