// SPDX-License-Identifier: Apache-2.0
// Pack and unpack in C++: records that free themselves and know whether their bytes were valid.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include "nac/owned_records.hpp"
#include "tests/support/recording_services.h"

namespace {

// f0 = 7, f1 = 1.
const std::vector<std::uint8_t> kPort = {0x0c, 0, 0, 0, 8, 0, 0x0c, 0, 4, 0, 8, 0,
                                         8,    0, 0, 0, 7, 0, 0,    0, 1, 0, 0, 0};

Nac_UserDataFlowMsg flows_of(std::vector<Nac_UserDataFlowInfo>& flows) {
    Nac_UserDataFlowMsg message = {};
    nac::refer(message.f0, message.f0_count, flows);
    return message;
}

class OwnedRecords : public testing::Test {
  protected:
    tests::RecordingServices& services_ = tests::RecordingServices::instance();

    void SetUp() override { services_.reset(); }
    void TearDown() override {
        EXPECT_EQ(services_.live_blocks(), 0U);
        EXPECT_EQ(services_.foreign_releases(), 0U);
    }
};

TEST_F(OwnedRecords, PackReturnsTheBytesAndLogsNothing) {
    EXPECT_EQ(nac::pack(Nac_SetPortMsg{7, 1}), kPort);
    EXPECT_EQ(services_.log_lines().size(), 0U);
}

TEST_F(OwnedRecords, PackIntoABufferReturnsWhatItWroteOrNothing) {
    std::array<std::uint8_t, 30> buffer = {};
    const nac::Bytes packed = nac::pack(Nac_SetPortMsg{7, 1}, buffer);
    EXPECT_EQ(packed.data(), buffer.data());
    EXPECT_EQ(std::vector(packed.begin(), packed.end()), kPort);
    EXPECT_TRUE(nac::pack(Nac_SetPortMsg{7, 1}, std::span(buffer).first(23)).empty());
}

TEST_F(OwnedRecords, ValidBytesAreTheRecord) {
    const auto port = nac::unpack<Nac_SetPortMsg>(kPort);
    EXPECT_TRUE(port);
    EXPECT_EQ(port.verdict(), VORN_VERDICT_VALID);
    EXPECT_EQ(port.fault(), "");
    EXPECT_EQ(port->f0, 7U);
    EXPECT_EQ((*port).f1, 1U);
}

TEST_F(OwnedRecords, DamagedBytesAreTheRecordBeforeTheFaultAndSayWhatIsWrong) {
    const auto port = nac::unpack<Nac_SetPortMsg>(nac::Bytes(kPort).first(23));
    EXPECT_FALSE(port);
    EXPECT_EQ(port.verdict(), VORN_VERDICT_FIELD);
    EXPECT_EQ(port.fault(), "at 10, f1 of Nac_SetPortMsg: 4 bytes at 20 do not end inside the message of 23");
    EXPECT_EQ(port->f0, 7U);
    EXPECT_EQ(port->f1, 0U);
}

TEST_F(OwnedRecords, BytesThatAreNoMessageAreAnEmptyRecord) {
    const auto port = nac::unpack<Nac_SetPortMsg>({});
    EXPECT_FALSE(port);
    EXPECT_EQ(port.verdict(), VORN_VERDICT_ARGUMENT);
    EXPECT_NE(port.fault(), "");
    EXPECT_EQ(port->f0, 0U);
}

TEST_F(OwnedRecords, VectorsAreSpansAndFreedOnce) {
    std::vector<Nac_UserDataFlowInfo> flows(3);
    flows[2].f0 = 102;
    auto first = nac::unpack<Nac_UserDataFlowMsg>(nac::pack(flows_of(flows)));
    const auto received = nac::elements(first->f0, first->f0_count);
    ASSERT_EQ(received.size(), 3U);
    EXPECT_EQ(received[2].f0, 102U);
    EXPECT_EQ(services_.live_blocks(), 1U);

    auto second = std::move(first);
    EXPECT_EQ(second->f0_count, 3U);
    second = nac::unpack<Nac_UserDataFlowMsg>(nac::pack(flows_of(flows)));
    EXPECT_EQ(nac::elements(second->f0, second->f0_count)[2].f0, 102U);
    static_assert(!std::is_copy_constructible_v<decltype(second)>);
}

TEST_F(OwnedRecords, AVectorWithoutElementsHasNoPointer) {
    std::vector<Nac_UserDataFlowInfo> none;
    none.reserve(1);
    const Nac_UserDataFlowMsg message = flows_of(none);
    EXPECT_EQ(message.f0, nullptr);
    EXPECT_EQ(nac::pack(message).size(), 14U);
    EXPECT_TRUE(nac::elements<Nac_UserDataFlowInfo>(nullptr, 7).empty()) << "as a fault leaves it";
}

TEST_F(OwnedRecords, TypesHaveNamesIdsAndTables) {
    EXPECT_STREQ(nac::name<Nac_SetPortMsg>, "Nac_SetPortMsg");
    EXPECT_EQ(nac::Functions<Nac_SetPortMsg>::id, Nac_SetPortMsg_ID);
    EXPECT_STREQ(nac::type<Nac_SetPortMsg>()->name, "Nac_SetPortMsg");
    static_assert(nac::Message<Nac_SetPortMsg>);
    static_assert(!nac::Message<Nac_SrvCar>, "travels only inside others");
    EXPECT_EQ(nac::to_json(Nac_SetPortMsg{7, 1}), R"({"f0":7,"f1":1})");
}

}  // namespace
