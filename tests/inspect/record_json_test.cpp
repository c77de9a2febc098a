// SPDX-License-Identifier: Apache-2.0
// Records as JSON and back.
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <string>

#include "tests/inspect/inspected.h"
#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;

// A record made of JSON; released with its scope.
class Made {
  public:
    Made(const std::string& type, const std::string& json) : type_(inspected_type(type)) {
        char why[200] = {};
        result_ = vorn_inspect_from_json(&type_, json.data(), json.size(), record_.data(), why, sizeof why);
        why_ = why;
    }
    ~Made() { vorn_inspect_free_record(&type_, record_.data()); }
    Made(const Made&) = delete;
    Made& operator=(const Made&) = delete;

    bool is_made() const { return result_ == 0; }
    const std::string& why() const { return why_; }
    std::string json() const { return record_json(type_, record_.data()); }
    const void* data() const { return record_.data(); }

  private:
    const vorn_type& type_;
    alignas(std::max_align_t) std::array<std::uint8_t, RecordingBus::kRecordCapacity> record_ = {};
    std::int32_t result_ = -1;
    std::string why_;
};

class RecordJson : public MessageTest {};

TEST_F(RecordJson, HasTheFieldsInTheirOrder) {
    const Nac_PortVlanChangeMsg record = {1, 2, 3};
    EXPECT_EQ(record_json(inspected_type("Nac_PortVlanChangeMsg"), &record), R"({"f0":1,"f1":2,"f2":3})");
}

TEST_F(RecordJson, LeavesFieldsZeroThatAreNotNamed) {
    EXPECT_EQ(Made("Nac_SetPortMsg", R"({"f1": 9})").json(), R"({"f0":0,"f1":9})");
}

TEST_F(RecordJson, WritesALostArrayAsItsCount) {
    const Nac_UserDataFlowMsg record = {3, nullptr};
    EXPECT_EQ(record_json(inspected_type("Nac_UserDataFlowMsg"), &record), R"({"f0":{"lost":3}})");
}

TEST_F(RecordJson, EndsListsAfterTheMostElements) {
    const Made made("Nac_UserDataFlowMsg", R"({"f0": [{"f0": 1}, {"f0": 2}, {"f0": 3}]})");
    const auto elements = [&made](std::size_t most) {
        const std::string json = record_json(inspected_type("Nac_UserDataFlowMsg"), made.data(), most);
        std::size_t count = 0;
        for (std::size_t at = json.find("{\"f0\":");
             (at = json.find("{\"f0\":", at + 1)) != std::string::npos;)
            ++count;
        return count;
    };
    EXPECT_EQ(elements(0), 0U);
    EXPECT_LT(elements(2), elements(3));
}

TEST_F(RecordJson, StopsWhenTheHandlerAsksForIt) {
    const Nac_SetPortMsg record = {1, 2};
    const auto refuse = [](const char*, std::size_t, void*) { return -3; };
    EXPECT_EQ(vorn_inspect_to_json(&inspected_type("Nac_SetPortMsg"), &record, 1, refuse, nullptr), -3);
}

TEST_F(RecordJson, SaysWhatIsWrongAndWhere) {
    EXPECT_EQ(Made("Nac_PortVlanChangeMsg", R"({"f2": 65536})").why(),
              "f2: 65536 is not an integer from 0 to 65535");
    EXPECT_EQ(Made("Nac_SetPortMsg", R"({"f0": -1})").why(), "f0: -1 is not an integer from 0 to 4294967295");
    EXPECT_EQ(Made("Nac_SetPortMsg", R"({"f9": 1})").why(), "f9: Nac_SetPortMsg has no such field");
    EXPECT_EQ(Made("Nac_SetPortMsg", "[]").why(), "record: not an object");
    EXPECT_EQ(Made("Nac_UserDataFlowMsg", R"({"f0": [{}, 7]})").why(), "f0[1]: not an object");
    EXPECT_EQ(Made("Nac_UserDataFlowMsg", R"({"f0": [{"f2": {"f1": "x"}}]})").why(),
              "f0[0].f2.f1: \"x\" is not an integer from 0 to 18446744073709551615");
    EXPECT_EQ(Made("Nac_UserDataFlowMsg", R"({"f0": 1})").why(), "f0: 1 is not an array");
    EXPECT_EQ(Made("Nac_IpsecAuthenAckMsg", R"({"f14": 1})").why(), "f14: 1 is not a text");
    EXPECT_EQ(Made("Nac_IpsecAuthenAckMsg", R"({"f14": "abc"})").why(),
              "f14: \"abc\" has an odd number of digits");
    EXPECT_EQ(Made("Nac_SetPortMsg", R"({"f0": )").why(), "not JSON, at character 8");
    EXPECT_EQ(Made("Nac_SetPortMsg", std::string(1000, '[')).why(),
              "more than 32 levels of arrays and objects, at character 33");
    EXPECT_FALSE(Made("Nac_SetPortMsg", "").is_made());
}

TEST_F(RecordJson, TakesAddressesAsTheyAreWrittenAndAsHexadecimalText) {
    const Made address("Nac_Ipv6Addr", R"({"f0": "2001:db8::1"})");
    EXPECT_EQ(address.json(), R"({"f0":"2001:db8::1"})");
    EXPECT_EQ(Made("Nac_Ipv6Addr", R"({"f0": "20010db8000000000000000000000001"})").json(), address.json());
    EXPECT_EQ(Made("Nac_Ipv6Addr", R"({"f0": "01"})").why(), "f0: \"01\" holds 1 bytes, not 16");
}

TEST_F(RecordJson, ReadsBytesInAnyCase) {
    EXPECT_NE(Made("Nac_IpsecAuthenAckMsg", R"({"f14": "0aFF"})").json().find("\"f14\":\"0aff\""),
              std::string::npos);
}

class RecordJsonOfAll : public MessageTest, public testing::WithParamInterface<MessageType> {};
NAC_FOR_ALL_MESSAGES(RecordJsonOfAll);

TEST_P(RecordJsonOfAll, IsReadAsItWasWritten) {
    for (std::uint64_t seed = 0; seed < 200; ++seed) {
        const AnyRecords records = GetParam().random(seed);
        const Made made(GetParam().name, record_json(inspected_type(GetParam().name), *records));
        ASSERT_TRUE(made.is_made()) << made.why();
        EXPECT_TRUE(GetParam().same_record(made.data(), *records)) << "seed " << seed;
    }
}

}  // namespace
