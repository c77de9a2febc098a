// SPDX-License-Identifier: Apache-2.0
// nats:// where its streams hold what no sender of the bus would store: batches twice, out of turn, damaged,
// forged.
#include <gtest/gtest.h>
#include <nats/nats.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/bus/fixture.h"
#include "tests/bus/nats_server.h"

namespace {

using namespace tests;

constexpr std::uint32_t kSender = 1;
constexpr std::uint32_t kReceiver = 2;

// A client that is no bus, and stores what it likes in the receiver's stream.
class BareClient {
  public:
    explicit BareClient(const NatsServer& server) {
        const std::string url = "nats://127.0.0.1:" + std::to_string(server.port());
        EXPECT_EQ(natsConnection_ConnectTo(&connection_, url.c_str()), NATS_OK);
        EXPECT_EQ(natsConnection_JetStream(&jetstream_, connection_, nullptr), NATS_OK);
    }
    ~BareClient() {
        jsCtx_Destroy(jetstream_);
        natsConnection_Destroy(connection_);
    }
    BareClient(const BareClient&) = delete;
    BareClient& operator=(const BareClient&) = delete;

    void store(const std::vector<std::uint8_t>& packet) {
        EXPECT_EQ(js_Publish(nullptr, jetstream_, "vorn.batches.2", packet.data(),
                             static_cast<int>(packet.size()), nullptr, nullptr),
                  NATS_OK);
    }
    std::uint64_t stored() {
        jsStreamInfo* info = nullptr;
        EXPECT_EQ(js_GetStreamInfo(&info, jetstream_, "vorn-2", nullptr, nullptr), NATS_OK);
        const std::uint64_t messages = info->State.Msgs;
        jsStreamInfo_Destroy(info);
        return messages;
    }
    // As a server that was killed and has forgotten how far the receiver is.
    void forget_the_consumer() {
        EXPECT_EQ(js_DeleteConsumer(jetstream_, "vorn-2", "receiver", nullptr, nullptr), NATS_OK);
    }

  private:
    natsConnection* connection_ = nullptr;
    jsCtx* jetstream_ = nullptr;
};

// A packet with one batch, which holds one Nac_SetPortMsg.
std::vector<std::uint8_t> packet_of(std::uint8_t session, std::uint8_t number, std::uint8_t port) {
    return {0x56,    0x4f, 0x52, 0x4e,
            1,       4,    0,    0,  // "VORN", version 1, data
            session, 0,    0,    0,
            0,       0,    0,    0,  //
            number,  0,    0,    0,
            0,       0,    0,    0,  // of the batch in the session
            1,       0,    0,    0,
            0,       0,    0,    0,  // one batch; those before it are stored
            1,       0,    0,    0,
            0,       0,    0,    0,  // published for the first time
            0x56,    0x4f, 0x52, 0x4e,
            1,       1,    0,    0,  // "VORN", version 1, batch
            2,       0,    0,    0,
            1,       0,    0,    0,  // destination, source
            0,       0,    0,    0,
            0,       0,    0,    0,  // no target
            1,       0,    0,    0,
            64,      0,    0,    0,  // one message, bytes of the batch
            0x55,    0x81, 0xb5, 0x09,
            24,      0,    0,    0,  // Nac_SetPortMsg, its length
            12,      0,    0,    0,
            8,       0,    12,   0,  // root, vtable of 8 bytes for a table of 12
            8,       0,    4,    0,
            8,       0,    0,    0,  // f0 at 8, f1 at 4; the vtable is 8 bytes before the table
            1,       0,    0,    0,
            port,    0,    0,    0};  // f1, f0
}

class NatsStored : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(nac_fwm_port_recv_init(), 0); }
};

// A sender that did not hear that its batch was stored stores it again.
TEST_F(NatsStored, ABatchThatIsStoredTwiceIsHandledOnce) {
    NatsServer server;
    BareClient client(server);
    TestBus receiver(url_of(server), kReceiver);
    for (const std::uint8_t number : std::vector<std::uint8_t>{1, 1, 2, 1, 3, 3, 2})
        client.store(packet_of(7, number, number));
    client.store(packet_of(8, 1, 4));  // another session has numbers of its own
    ASSERT_TRUE(receiver.poll_until(4));
    const auto arrived = receiver.arrived();
    for (std::uint32_t i = 0; i < 4; ++i) EXPECT_EQ(arrived[i].port().f0, i + 1);
    EXPECT_TRUE(eventually([&] { return receiver.counters().redelivered_batches == 4; }));
    vorn_bus_poll(receiver.get(), 100, 0, nullptr);
    EXPECT_EQ(receiver.arrived().size(), 4U);
}

TEST_F(NatsStored, ABatchThatIsStoredTwiceIsKnownToTheNextReceiverToo) {
    NatsServer server;
    BareClient client(server);
    {
        TestBus receiver(url_of(server), kReceiver);
        client.store(packet_of(7, 1, 1));
        ASSERT_TRUE(receiver.poll_until(1));
    }
    client.store(packet_of(7, 1, 1));
    client.store(packet_of(7, 2, 2));
    TestBus receiver(url_of(server), kReceiver);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.arrived()[0].port().f0, 2U);
    EXPECT_EQ(receiver.counters().redelivered_batches, 1U);
}

TEST_F(NatsStored, WhatIsNoPacketIsCountedAndLeavesTheStream) {
    NatsServer server;
    BareClient client(server);
    TestBus receiver(url_of(server), kReceiver);
    std::vector<std::uint8_t> no_batch = packet_of(7, 1, 1);
    no_batch[24] = 0;
    std::vector<std::uint8_t> cut = packet_of(9, 1, 2);
    cut.pop_back();
    for (const auto& packet : {std::vector<std::uint8_t>(31, 0xff), no_batch, cut}) client.store(packet);
    client.store(packet_of(8, 1, 3));
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.arrived()[0].port().f0, 3U);
    EXPECT_EQ(receiver.counters().damaged, 3U);
    EXPECT_TRUE(eventually([&] { return client.stored() == 0; }));
}

// Its sender stores it again, once it does not hear that all before it are stored.
TEST_F(NatsStored, ABatchThatIsStoredBeforeItsTurnIsLeftOut) {
    NatsServer server;
    BareClient client(server);
    TestBus receiver(url_of(server), kReceiver);
    for (const std::uint8_t number : std::vector<std::uint8_t>{1, 3, 2, 3})
        client.store(packet_of(7, number, number));
    ASSERT_TRUE(receiver.poll_until(3));
    const auto arrived = receiver.arrived();
    for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(arrived[i].port().f0, i + 1);
}

TEST_F(NatsStored, AForgedNumberDoesNotSilenceASender) {
    NatsServer server;
    BareClient client(server);
    TestBus receiver(url_of(server), kReceiver);
    client.store(packet_of(7, 1, 1));
    std::vector<std::uint8_t> forged = packet_of(7, 0xfe, 99);
    std::fill(forged.begin() + 17, forged.begin() + 24, std::uint8_t{0xff});  // 2^64 - 2
    client.store(forged);
    forged[16] = 0xff;  // 2^64 - 1: after it there is no number
    client.store(forged);
    client.store(packet_of(7, 2, 2));
    ASSERT_TRUE(receiver.poll_until(2));
    const auto arrived = receiver.arrived();
    EXPECT_EQ(arrived[0].port().f0, 1U);
    EXPECT_EQ(arrived[1].port().f0, 2U);
    EXPECT_EQ(receiver.counters().damaged, 1U);
}

// Batches come and go although the server delivers nothing, and forgets what it was sent.
TEST_F(NatsStored, WhatTheServerForgetsTheReceiverFinds) {
    NatsServer server;
    BareClient client(server);
    TestBus receiver(url_of(server), kReceiver);
    TestBus sender(url_of(server), kSender);
    client.forget_the_consumer();
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(5));
    for (std::uint32_t i = 0; i < 5; ++i) EXPECT_EQ(receiver.arrived()[i].port().f0, i);
    EXPECT_TRUE(eventually([&] { return client.stored() == 0; }));
    EXPECT_TRUE(eventually([&] {
        const auto log = receiver.log();
        return !log.empty() && log[0].find("had forgotten the consumer of stream vorn-2; it is made again") !=
                                   std::string::npos;
    }));
}

TEST_F(NatsStored, ASendReturnsBeforeTheStreamAnswersAndAFlushAfterIt) {
    NatsServer server;
    BareClient client(server);
    TestBus receiver(url_of(server), kReceiver);
    TestBus sender(url_of(server), kSender);
    for (std::uint32_t i = 0; i < 500; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    EXPECT_EQ(sender.counters().unhandled_batches, 0U);
    EXPECT_LE(client.stored(), 500U);  // several share a message
    ASSERT_TRUE(receiver.poll_until(500));
    for (std::uint32_t i = 0; i < 500; ++i) ASSERT_EQ(receiver.arrived()[i].port().f0, i);
}

}  // namespace
