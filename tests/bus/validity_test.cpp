// SPDX-License-Identifier: Apache-2.0
// Whether a message is valid, as its handler sees it. The bus asks functions that it is given; those here
// take bytes that begin with FF for damage. What is registered stays for the process: each test has one of
// its own.
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

#include "inspect/vorn_inspect.h"
#include "tests/bus/fixture.h"

namespace tests {
namespace {

constexpr std::uint32_t kReceiver = 2;
constexpr std::uint32_t kSender = 1;

int asked = 0;

using OnFault = std::int32_t (*)(const vorn_fault*, void*);

const std::string kLongPath(600, 'p');

vorn_type named(const char* name) {
    vorn_type type = {};
    type.name = name;
    return type;
}

std::int32_t verify_ports(std::uint32_t id, const std::uint8_t* bytes, std::uint32_t length, OnFault on_fault,
                          void* context) {
    if (id != Nac_SetPortMsg_ID) return -1;
    ++asked;
    if (length != 0 && bytes[0] != 0xFF) return 0;
    const vorn_type table = named("Nac_SetPortMsg");
    const vorn_field field = {};
    const vorn_fault faults[] = {{0, 1, &table, &field, "f0", "a wrong beginning"},
                                 {9, 1, &table, &field, "f1", "which unpack would not reach"}};
    for (const vorn_fault& fault : faults) {
        if (on_fault(&fault, context) != 0) break;
    }
    return 1;
}

std::int32_t find_headers_damaged(std::uint32_t /*id*/, const std::uint8_t* bytes, std::uint32_t length,
                                  OnFault on_fault, void* context) {
    const vorn_type table = named("Nac_SrvCar");
    const vorn_fault fault = {length,     0, &table, nullptr, bytes[0] == 0xFF ? "" : kLongPath.c_str(),
                              "not there"};
    on_fault(&fault, context);
    return 1;
}

std::int32_t know_nothing(std::uint32_t /*id*/, const std::uint8_t* /*bytes*/, std::uint32_t /*length*/,
                          OnFault /*on_fault*/, void* /*context*/) {
    ++asked;
    return -1;
}

std::int32_t throw_instead(std::uint32_t /*id*/, const std::uint8_t* /*bytes*/, std::uint32_t /*length*/,
                           OnFault /*on_fault*/, void* /*context*/) {
    throw std::runtime_error("thrown by a verifier");
}

// 16 bytes: f0 = 7 and no f1. The first is of the reference to the root table.
constexpr std::array<std::uint8_t, 20> kValid = {0x0C, 0, 0, 0, 0x08, 0, 0x0C, 0, 0x04, 0,
                                                 0x08, 0, 8, 0, 0,    0, 7,    0, 0,    0};
constexpr std::array<std::uint8_t, 4> kDamaged = {0xFF, 0, 0, 0};

// One batch: a damaged message, and a valid one.
void send_both(TestBus& sender, std::uint32_t id = Nac_SetPortMsg_ID) {
    const std::array<VORN_SendDescriptor, 2> descriptors = {
        {{kDamaged.data(), id, kDamaged.size()}, {kValid.data(), id, kValid.size()}}};
    ASSERT_EQ(vorn_bus_send(sender.get(), kReceiver, descriptors.data(), 2, 0), VORN_BUS_OK);
}

class Validity : public BusTest {};
INSTANTIATE_TEST_SUITE_P(On, Validity, testing::ValuesIn(transports()),
                         [](const auto& of) { return of.param; });

TEST_P(Validity, DamagedMessagesArriveWithAFlagAndWhatIsWrong) {
    ASSERT_EQ(vorn_bus_verify_with(verify_ports), VORN_BUS_OK);
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(2));
    const std::vector<Arrived> arrived = receiver.arrived();
    EXPECT_EQ(arrived[0].flags, VORN_BUS_VERIFIED | VORN_BUS_DAMAGED);
    EXPECT_EQ(arrived[0].fault, "at 0, f0 of Nac_SetPortMsg: a wrong beginning");
    EXPECT_EQ(arrived[0].port().f0, 0U);
    EXPECT_EQ(arrived[1].flags, VORN_BUS_VERIFIED);
    EXPECT_EQ(arrived[1].fault, "");
    EXPECT_EQ(arrived[1].port().f0, 7U);
    EXPECT_EQ(receiver.counters().damaged_messages, 1U);
    EXPECT_EQ(receiver.counters().received_messages, 2U);
    EXPECT_EQ(receiver.counters().damaged, 0U) << "which is for envelopes and packets";
}

TEST_P(Validity, DroppedTheyAreCountedAndLoggedAndTheOthersOfTheBatchArrive) {
    ASSERT_EQ(vorn_bus_verify_with(verify_ports), VORN_BUS_OK);
    TestBus receiver(url(), kReceiver,
                     [](vorn_bus_options& options) { options.check = VORN_BUS_CHECK_DROP; });
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(1));
    ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    ASSERT_EQ(receiver.arrived().size(), 1U);
    EXPECT_EQ(receiver.arrived()[0].port().f0, 7U);
    EXPECT_EQ(receiver.counters().damaged_messages, 1U);
    EXPECT_EQ(receiver.counters().received_messages, 1U);
    EXPECT_EQ(receiver.log(),
              std::vector<std::string>{"vorn 2: warning: a damaged message of id 162890069 was left "
                                       "out: at 0, f0 of Nac_SetPortMsg: a wrong beginning"});
}

class ValidityOnLoop : public Validity {};
INSTANTIATE_TEST_SUITE_P(On, ValidityOnLoop, testing::Values("loop"),
                         [](const auto& of) { return of.param; });

TEST_P(ValidityOnLoop, WithoutAVerifierNobodyKnows) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(2));
    for (const Arrived& arrived : receiver.arrived()) {
        EXPECT_EQ(arrived.flags, 0U);
        EXPECT_EQ(arrived.fault, "");
    }
    EXPECT_EQ(receiver.counters().damaged_messages, 0U);
}

TEST_P(ValidityOnLoop, ABusThatChecksNothingAsksNobody) {
    ASSERT_EQ(vorn_bus_verify_with(verify_ports), VORN_BUS_OK);
    TestBus receiver(url(), kReceiver,
                     [](vorn_bus_options& options) { options.check = VORN_BUS_CHECK_NONE; });
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(receiver.arrived()[0].flags, 0U);
}

TEST_P(ValidityOnLoop, VerifiersAreAskedInTheirOrderOnceEachUntilOneKnowsTheId) {
    for (const vorn_bus_verify verify : {know_nothing, verify_ports, know_nothing, find_headers_damaged})
        ASSERT_EQ(vorn_bus_verify_with(verify), VORN_BUS_OK);
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(asked, 4);
    EXPECT_EQ(receiver.arrived()[0].fault, "at 0, f0 of Nac_SetPortMsg: a wrong beginning");
    EXPECT_EQ(receiver.arrived()[1].flags, VORN_BUS_VERIFIED);
    EXPECT_EQ(receiver.arrived()[1].fault, "");
}

TEST_P(ValidityOnLoop, AVerifierMayBeRegisteredWhileTheBusIsOpen) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(2));
    ASSERT_EQ(vorn_bus_verify_with(verify_ports), VORN_BUS_OK);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(4));
    EXPECT_EQ(receiver.arrived()[1].flags, 0U);
    EXPECT_EQ(receiver.arrived()[3].flags, VORN_BUS_VERIFIED);
}

TEST_P(ValidityOnLoop, AVerifierThatThrowsKnowsNothing) {
    ASSERT_EQ(vorn_bus_verify_with(throw_instead), VORN_BUS_OK);
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived()[1].flags, 0U);
    EXPECT_EQ(receiver.arrived()[1].port().f0, 7U);
    EXPECT_EQ(receiver.log().at(0),
              "vorn 2: warning: a verifier threw an exception on a message of id 162890069");
}

TEST_P(ValidityOnLoop, WhatIsWrongWithAHeaderIsNamedSoAndLongSentencesAreCut) {
    ASSERT_EQ(vorn_bus_verify_with(find_headers_damaged), VORN_BUS_OK);
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived()[0].fault, "at 4, header of Nac_SrvCar: not there");
    EXPECT_EQ(receiver.arrived()[1].fault, ("at 20, " + kLongPath).substr(0, 511));
}

TEST_P(ValidityOnLoop, MessagesWithoutAHandlerAreNotVerified) {
    ASSERT_EQ(vorn_bus_verify_with(verify_ports), VORN_BUS_OK);
    TestBus receiver(url(), kReceiver);
    vorn_bus_handle_all(receiver.get(), nullptr, nullptr);
    TestBus sender(url(), kSender);
    send_both(sender);
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 10000, 1, nullptr), VORN_BUS_OK);
    EXPECT_EQ(asked, 0);
    EXPECT_EQ(receiver.counters().ignored_messages, 2U);
    EXPECT_EQ(receiver.counters().damaged_messages, 0U);
}

TEST_P(ValidityOnLoop, NoVerifierAndOtherChecksAreWrongArguments) {
    EXPECT_EQ(vorn_bus_verify_with(nullptr), VORN_BUS_BAD_ARGUMENT);
    const TestBus bus(url(), kReceiver,
                      [](vorn_bus_options& options) { options.check = VORN_BUS_CHECK_NONE + 1; });
    EXPECT_EQ(bus.opened(), VORN_BUS_BAD_ARGUMENT);
}

}  // namespace
}  // namespace tests
