// SPDX-License-Identifier: Apache-2.0
// The bus in C++: handlers by type, what they throw, what they see of a message. loop: is enough; what other
// transports promise is tested in tests/bus.
#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "nac/nac.hpp"
#include "tests/support/recording_services.h"

namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kReceiver = 2;
constexpr std::uint32_t kSender = 1;

class TypedBus : public testing::Test {
  protected:
    tests::RecordingServices& services_ = tests::RecordingServices::instance();

    void SetUp() override {
        services_.reset();
        services_.record(false);
        ASSERT_TRUE(receiver_.open(kReceiver, "loop:"));
        ASSERT_TRUE(sender_.open(kSender, "loop:"));
    }
    void TearDown() override { EXPECT_EQ(services_.live_blocks(), 0U); }

    // Bytes as they are, in one batch with a valid message.
    void send_bytes(std::vector<std::uint8_t> bytes) {
        const std::vector<std::uint8_t> valid = nac::pack(Nac_SetPortMsg{24, 1});
        const std::array<VORN_SendDescriptor, 2> descriptors = {
            {{bytes.data(), Nac_SetPortMsg_ID, static_cast<std::uint32_t>(bytes.size())},
             {valid.data(), Nac_SetPortMsg_ID, static_cast<std::uint32_t>(valid.size())}}};
        ASSERT_EQ(vorn_bus_send(sender_.get(), kReceiver, descriptors.data(), 2, 0), VORN_BUS_OK);
    }

    nac::Bus receiver_;
    nac::Bus sender_;
};

TEST_F(TypedBus, AHandlerGetsItsTypeAndWhereItComesFrom) {
    std::vector<std::string> arrived;
    receiver_.on<Nac_SetPortMsg>([&](const Nac_SetPortMsg& record, const nac::Origin& origin) {
        EXPECT_EQ(origin.source, kSender);
        EXPECT_EQ(origin.destination, kReceiver);
        EXPECT_EQ(origin.target, 99U);
        EXPECT_EQ(origin.packed.size(), 24U);
        EXPECT_TRUE(origin.is_valid);
        EXPECT_FALSE(origin.is_repeated);
        EXPECT_EQ(origin.fault, nullptr);
        arrived.push_back("port " + std::to_string(record.f0));
    });
    receiver_.on<Nac_UserDataFlowMsg>([&](const Nac_UserDataFlowMsg& record, const nac::Origin& /*origin*/) {
        arrived.push_back(std::to_string(nac::elements(record.f0, record.f0_count).size()) + " flows");
    });
    std::vector<Nac_UserDataFlowInfo> flows(3);
    Nac_UserDataFlowMsg message = {};
    nac::refer(message.f0, message.f0_count, flows);
    ASSERT_TRUE(sender_.send(kReceiver, Nac_SetPortMsg{24, 1}, 99));
    ASSERT_TRUE(sender_.send(kReceiver, message));
    const nac::Polled polled = receiver_.poll(10s);
    EXPECT_TRUE(polled);
    EXPECT_EQ(polled.batches, 2U);
    EXPECT_EQ(arrived, (std::vector<std::string>{"port 24", "3 flows"}));
}

TEST_F(TypedBus, ARangeOfRecordsIsOneBatch) {
    std::vector<std::uint32_t> ports;
    receiver_.on<Nac_SetPortMsg>(
        [&](const Nac_SetPortMsg& record, const nac::Origin& /*origin*/) { ports.push_back(record.f0); });
    ASSERT_TRUE(sender_.send(kReceiver, std::vector<Nac_SetPortMsg>{{1, 0}, {2, 0}, {3, 0}}));
    EXPECT_EQ(receiver_.poll(10s).batches, 1U);
    EXPECT_EQ(ports, (std::vector<std::uint32_t>{1, 2, 3}));
    EXPECT_TRUE(sender_.flush(10s));
    EXPECT_EQ(sender_.send(kReceiver, std::vector<Nac_SetPortMsg>()).code, VORN_BUS_BAD_ARGUMENT);
}

TEST_F(TypedBus, ADamagedMessageSaysWhatIsWrong) {
    std::vector<std::string> faults;
    receiver_.on<Nac_SetPortMsg>([&](const Nac_SetPortMsg& /*record*/, const nac::Origin& origin) {
        faults.emplace_back(origin.is_valid ? "valid" : origin.fault);
    });
    std::vector<std::uint8_t> cut = nac::pack(Nac_SetPortMsg{7, 1});
    cut.pop_back();
    send_bytes(cut);
    EXPECT_TRUE(receiver_.poll(10s));
    EXPECT_EQ(faults, (std::vector<std::string>{
                          "at 10, f1 of Nac_SetPortMsg: 4 bytes at 20 do not end inside the message of 23",
                          "valid"}));
    EXPECT_EQ(receiver_.counters().damaged_messages, 1U);
}

TEST_F(TypedBus, WhatAHandlerThrowsComesOutOfPollAfterItsBatch) {
    int arrived = 0;
    receiver_.on<Nac_SetPortMsg>([&](const Nac_SetPortMsg& record, const nac::Origin& /*origin*/) {
        ++arrived;
        if (record.f0 < 3) throw std::runtime_error("port " + std::to_string(record.f0));
    });
    ASSERT_TRUE(sender_.send(kReceiver, std::vector<Nac_SetPortMsg>{{1, 0}, {2, 0}, {3, 0}}));
    ASSERT_TRUE(sender_.send(kReceiver, Nac_SetPortMsg{4, 0}));
    try {
        receiver_.poll(10s);
        FAIL() << "it threw";
    } catch (const std::runtime_error& thrown) {
        EXPECT_STREQ(thrown.what(), "port 1") << "the first";
    }
    EXPECT_EQ(arrived, 3);
    EXPECT_EQ(receiver_.poll(10s).batches, 1U) << "nothing is thrown twice";
    EXPECT_EQ(arrived, 4);
}

TEST_F(TypedBus, WhatAHandlerThrowsInTheReceivingThreadComesOutOfTheNextPoll) {
    receiver_.on<Nac_SetPortMsg>([](const Nac_SetPortMsg& /*record*/, const nac::Origin& /*origin*/) {
        throw std::runtime_error("in another thread");
    });
    ASSERT_EQ(vorn_bus_start(receiver_.get()), VORN_BUS_OK);
    ASSERT_TRUE(sender_.send(kReceiver, Nac_SetPortMsg{}));
    ASSERT_TRUE(sender_.flush(10s));
    ASSERT_EQ(vorn_bus_stop(receiver_.get()), VORN_BUS_OK);
    EXPECT_THROW(receiver_.poll(0ms), std::runtime_error);
}

TEST_F(TypedBus, AHandlerIsReplacedAlsoFromItself) {
    std::string called;
    receiver_.on<Nac_SetPortMsg>([&](const Nac_SetPortMsg& /*record*/, const nac::Origin& /*origin*/) {
        called += "a";
        receiver_.on<Nac_SetPortMsg>(
            [&](const Nac_SetPortMsg& /*record*/, const nac::Origin& /*origin*/) { called += "b"; });
        called += "a";
    });
    ASSERT_TRUE(sender_.send(kReceiver, std::vector<Nac_SetPortMsg>(2)));
    EXPECT_TRUE(receiver_.poll(10s));
    EXPECT_EQ(called, "aab");
}

TEST_F(TypedBus, ResultsAreValues) {
    nac::Bus bus;
    EXPECT_EQ(bus.open(kReceiver, "loop:").code, VORN_BUS_ADDRESS_TAKEN);
    EXPECT_STREQ(bus.open(kReceiver, "loop:").text(), "another bus is open at this address");
    EXPECT_EQ(bus.get(), nullptr);
    EXPECT_EQ(bus.poll(0ms).code, VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(bus.send(kReceiver, Nac_SetPortMsg{}).code, VORN_BUS_BAD_ARGUMENT);
    const auto handler = [](const Nac_SetPortMsg& /*record*/, const nac::Origin& /*origin*/) {};
    EXPECT_EQ(bus.on<Nac_SetPortMsg>(handler).code, VORN_BUS_BAD_ARGUMENT);
    EXPECT_EQ(receiver_.poll(0ms).batches, 0U);
    receiver_.close();
    EXPECT_TRUE(bus.open(kReceiver, "loop:"));
}

TEST_F(TypedBus, OptionsAreThoseOfTheCFunctions) {
    vorn_bus_options options = vorn_bus_options_init();
    options.address = 3;
    options.url = "loop:";
    options.check = VORN_BUS_CHECK_NONE;
    nac::Bus unchecked;
    ASSERT_TRUE(unchecked.open(options));
    bool is_valid = true;
    unchecked.on<Nac_SetPortMsg>(
        [&](const Nac_SetPortMsg& /*record*/, const nac::Origin& origin) { is_valid = origin.is_valid; });
    ASSERT_TRUE(sender_.send(3, Nac_SetPortMsg{}));
    EXPECT_TRUE(unchecked.poll(10s));
    EXPECT_FALSE(is_valid) << "nobody knows";
}

}  // namespace
