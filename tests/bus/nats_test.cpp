// SPDX-License-Identifier: Apache-2.0
// nats:// where its server matters: kills and restarts of it, what a killed receiver leaves, receivers that
// are cut off, what others store.
#include <fcntl.h>
#include <nats/nats.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "tests/bus/fixture.h"
#include "tests/bus/nats_server.h"

namespace {

using namespace tests;
using namespace std::chrono_literals;

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

void patient(vorn_bus_options& options) { options.send_timeout_ms = 30000; }

class Nats : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(nac_fwm_port_recv_init(), 0); }
};

TEST_F(Nats, ASendWaitsForTheServerToComeBackAndNothingIsDoubled) {
    NatsServer server;
    TestBus receiver(url_of(server), kReceiver, patient);
    TestBus sender(url_of(server), kSender, patient);
    std::uint32_t sent = 0;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 20; ++i) ASSERT_EQ(sender.send(kReceiver, {sent++, 0}), 0U);
        server.kill();
        // The server belongs to the thread that starts it.
        std::thread sending([&] {
            for (int i = 0; i < 20; ++i) EXPECT_EQ(sender.send(kReceiver, {sent++, 0}), 0U);
        });
        std::this_thread::sleep_for(300ms);
        server.start();
        sending.join();
    }
    ASSERT_TRUE(receiver.poll_until(sent));
    const auto arrived = receiver.arrived();
    ASSERT_EQ(arrived.size(), sent);
    for (std::uint32_t i = 0; i < sent; ++i) ASSERT_EQ(arrived[i].port().f0, i);
}

TEST_F(Nats, WhileTheServerIsAwayASendEndsInTime) {
    NatsServer server;
    TestBus receiver(url_of(server), kReceiver);
    TestBus sender(url_of(server), kSender,
                   [](vorn_bus_options& options) { options.send_timeout_ms = 1000; });
    ASSERT_EQ(sender.send(kReceiver, {1, 0}), 0U);
    ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    server.kill();
    // A send before the client has noticed is accepted, and waits for the server.
    ASSERT_TRUE(eventually([&] { return !sender.log().empty(); }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.send(kReceiver, {2, 0}), std::uint32_t{VORN_BUS_NO_PEER});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 3s);
    const vorn_bus_counters counters = sender.counters();
    EXPECT_EQ(counters.sent_batches, 1U);
    EXPECT_EQ(counters.refused_batches, 1U);
    server.start();
}

TEST_F(Nats, WhileTheServerIsAwayABusCloses) {
    NatsServer server;
    TestBus bus(url_of(server), kReceiver);
    ASSERT_EQ(bus.opened(), VORN_BUS_OK);
    server.kill();
    const auto begin = std::chrono::steady_clock::now();
    bus.close();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 6s);
    server.start();
}

TEST_F(Nats, WhatIsSentWhileTheReceiverIsAwayWaitsForIt) {
    NatsServer server;
    TestBus sender(url_of(server), kSender);
    { TestBus receiver(url_of(server), kReceiver); }
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    TestBus receiver(url_of(server), kReceiver);
    ASSERT_TRUE(receiver.poll_until(5));
    for (std::uint32_t i = 0; i < 5; ++i) EXPECT_EQ(receiver.arrived()[i].port().f0, i);
}

// A receiver that is killed in its third handler: the next one begins with that batch, marked as repeated.
TEST_F(Nats, TheBatchInWhichAReceiverWasKilledComesAgainWithAMark) {
    NatsServer server;
    std::array<int, 2> pipes = {};
    ASSERT_EQ(pipe2(pipes.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        TestBus receiver(url_of(server), kReceiver);
        static_cast<void>(!write(pipes[1], "o", 1));
        receiver.on_message = [](const vorn_bus_message& message) {
            if (static_cast<const Nac_SetPortMsg*>(message.record)->f0 == 2) raise(SIGKILL);
        };
        receiver.poll_until(100);
        _exit(1);
    }
    char opened = 0;
    ASSERT_EQ(read(pipes[0], &opened, 1), 1);
    TestBus sender(url_of(server), kSender, patient);
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status));
    TestBus receiver(url_of(server), kReceiver);
    ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
    ASSERT_TRUE(receiver.poll_until(3));
    const auto arrived = receiver.arrived();
    EXPECT_EQ(arrived[0].port().f0, 2U);
    EXPECT_EQ(arrived[0].flags, VORN_BUS_REPEATED);
    EXPECT_EQ(arrived[1].port().f0, 3U);
    EXPECT_EQ(arrived[1].flags, 0U);
    EXPECT_EQ(arrived[2].port().f0, 4U);
}

TEST_F(Nats, ASecondProcessAtAnAddressChangesNothingOfTheFirst) {
    NatsServer server;
    TestBus receiver(url_of(server), kReceiver);
    for (const char* const state : {"/state", "/another"}) {  // on this machine, and as on another one
        const std::string url =
            "nats://127.0.0.1:" + std::to_string(server.port()) + "?state=" + server.folder() + state;
        TestBus second(url, kReceiver, [](vorn_bus_options& options) { options.batch_bytes = 100; });
        EXPECT_EQ(second.opened(), VORN_BUS_ADDRESS_TAKEN);
    }
    TestBus sender(url_of(server), kSender);
    EXPECT_EQ(sender.send(kReceiver, std::vector<Nac_SetPortMsg>(20, {1, 2})), 0U);  // of more than 100 bytes
    EXPECT_TRUE(receiver.poll_until(20));
}

// A sender that did not hear that its batch was stored stores it again.
TEST_F(Nats, ABatchThatIsStoredTwiceIsHandledOnce) {
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

TEST_F(Nats, ABatchThatIsStoredTwiceIsKnownToTheNextReceiverToo) {
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

TEST_F(Nats, WhatIsNoPacketIsCountedAndLeavesTheStream) {
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
TEST_F(Nats, ABatchThatIsStoredBeforeItsTurnIsLeftOut) {
    NatsServer server;
    BareClient client(server);
    TestBus receiver(url_of(server), kReceiver);
    for (const std::uint8_t number : std::vector<std::uint8_t>{1, 3, 2, 3})
        client.store(packet_of(7, number, number));
    ASSERT_TRUE(receiver.poll_until(3));
    const auto arrived = receiver.arrived();
    for (std::uint32_t i = 0; i < 3; ++i) EXPECT_EQ(arrived[i].port().f0, i + 1);
}

TEST_F(Nats, AForgedNumberDoesNotSilenceASender) {
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

// A receiver that is stopped, and another one in its stead on another machine: the first handles nothing
// more.
TEST_F(Nats, AReceiverThatWasCutOffIsFenced) {
    NatsServer server;
    std::array<int, 2> pipes = {};
    ASSERT_EQ(pipe2(pipes.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {
        TestBus receiver(url_of(server), kReceiver);
        receiver.on_message = [&](const vorn_bus_message& message) {
            const auto number =
                static_cast<std::uint8_t>(static_cast<const Nac_SetPortMsg*>(message.record)->f0);
            static_cast<void>(!write(pipes[1], &number, 1));
            if (number == 0) raise(SIGSTOP);  // its machine sleeps, with batches in hand
        };
        static_cast<void>(!write(pipes[1], "o", 1));
        receiver.poll_until(100);
        _exit(0);
    }
    std::uint8_t said = 0;
    ASSERT_EQ(read(pipes[0], &said, 1), 1);
    TestBus sender(url_of(server), kSender, patient);
    for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    std::this_thread::sleep_for(1s);  // it writes what it has delivered
    server.kill();                    // it forgets who was connected
    server.start();
    const std::string elsewhere =
        "nats://127.0.0.1:" + std::to_string(server.port()) + "?state=" + server.folder() + "/another";
    TestBus receiver(elsewhere, kReceiver);
    ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
    ASSERT_TRUE(receiver.poll_until(5));
    kill(child, SIGCONT);
    for (std::uint32_t i = 5; i < 10; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(10));
    const auto arrived = receiver.arrived();
    for (std::uint32_t i = 0; i < 10; ++i) {
        EXPECT_EQ(arrived[i].port().f0, i);
        EXPECT_EQ(arrived[i].flags, i < 5 ? VORN_BUS_REPEATED : 0U) << i;  // the first had been given five
    }
    EXPECT_EQ(receiver.log().size(), 1U);  // why it waits
    std::this_thread::sleep_for(1s);
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, &status, 0), child);
    close(pipes[1]);
    ASSERT_EQ(read(pipes[0], &said, 1), 1);
    EXPECT_EQ(said, 0U);
    EXPECT_EQ(read(pipes[0], &said, 1), 0) << "it has handled " << int{said} << " too";
    close(pipes[0]);
}

// What was handled and what was not, only the journal knows.
TEST_F(Nats, WithoutItsJournalAReceiverMarksWhatWasDelivered) {
    NatsServer server;
    TestBus sender(url_of(server), kSender);
    {
        TestBus receiver(url_of(server), kReceiver);
        for (std::uint32_t i = 0; i < 5; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
        ASSERT_TRUE(eventually([&] { return receiver.counters().waiting_batches == 5; }));
    }
    std::filesystem::remove(server.folder() + "/state/vorn-2.handled");
    TestBus receiver(url_of(server), kReceiver);
    ASSERT_EQ(sender.send(kReceiver, {5, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(6));
    for (std::uint32_t i = 0; i < 6; ++i) {
        EXPECT_EQ(receiver.arrived()[i].port().f0, i);
        EXPECT_EQ(receiver.arrived()[i].flags, i < 5 ? VORN_BUS_REPEATED : 0U) << i;
    }
}

TEST_F(Nats, ASendReturnsBeforeTheStreamAnswersAndAFlushAfterIt) {
    NatsServer server;
    BareClient client(server);
    TestBus receiver(url_of(server), kReceiver);
    TestBus sender(url_of(server), kSender, patient);
    for (std::uint32_t i = 0; i < 500; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    ASSERT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    EXPECT_EQ(sender.counters().unhandled_batches, 0U);
    EXPECT_LE(client.stored(), 500U);  // several share a message
    ASSERT_TRUE(receiver.poll_until(500));
    for (std::uint32_t i = 0; i < 500; ++i) ASSERT_EQ(receiver.arrived()[i].port().f0, i);
}

// Nobody can take it any more: it is lost, and a void in its stead lets the next ones arrive.
TEST_F(Nats, ABatchForWhichItsNextReceiverIsTooSmallIsLostAlone) {
    NatsServer server;
    TestBus sender(url_of(server), kSender);
    const std::vector<Nac_SetPortMsg> many(2000, {1, 2});
    {
        TestBus receiver(url_of(server), kReceiver);
        ASSERT_EQ(sender.send(kReceiver, many), 0U);
        ASSERT_TRUE(receiver.poll_until(many.size()));
    }
    TestBus receiver(url_of(server), kReceiver, [](vorn_bus_options& options) { options.batch_bytes = 100; });
    ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
    ASSERT_EQ(sender.send(kReceiver, many), 0U);  // by the limits of before
    ASSERT_EQ(sender.send(kReceiver, {3, 4}), 0U);
    EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_LOST);
    EXPECT_EQ(sender.counters().lost_batches, 1U);
    ASSERT_EQ(sender.log().size(), 1U);
    EXPECT_EQ(sender.log()[0],
              "vorn 1: 1 batches to vorn.batches.2 are lost: the server takes no message of their size");
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.arrived()[0].port().f0, 3U);
}

// It takes no address: so two of one number do not disturb each other, and nobody sends to them.
TEST_F(Nats, SendersWithoutAnAddressNeedNoStream) {
    NatsServer server;
    TestBus receiver(url_of(server), kReceiver);
    const auto only_sends = [](vorn_bus_options& options) { options.send_only = 1; };
    TestBus first(url_of(server), kSender, only_sends);
    TestBus second(url_of(server), kSender, only_sends);
    ASSERT_EQ(first.opened(), VORN_BUS_OK);
    ASSERT_EQ(second.opened(), VORN_BUS_OK);
    ASSERT_EQ(first.send(kReceiver, {1, 0}), 0U);
    ASSERT_EQ(second.send(kReceiver, {2, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived()[0].source, kSender);
    EXPECT_EQ(first.send(kSender, {1, 0}), std::uint32_t{VORN_BUS_NO_PEER});
    EXPECT_FALSE(std::filesystem::exists(server.folder() + "/state/vorn-1.handled"));
}

// Batches come and go although the server delivers nothing, and forgets what it was sent.
TEST_F(Nats, WhatTheServerForgetsTheReceiverFinds) {
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

TEST_F(Nats, AStreamThatIsMadeAnewIsReadFromItsBeginning) {
    std::string url;
    NatsServer first;
    url = "?state=" + first.folder() + "/state";
    const auto at = [&](const NatsServer& server) {
        return "nats://127.0.0.1:" + std::to_string(server.port()) + url;
    };
    {
        TestBus receiver(at(first), kReceiver);
        TestBus sender(at(first), kSender);
        for (std::uint32_t i = 0; i < 10; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        ASSERT_TRUE(receiver.poll_until(10));
    }
    NatsServer second;  // with an empty store, and the same state folder
    TestBus receiver(at(second), kReceiver);
    TestBus sender(at(second), kSender);
    ASSERT_EQ(sender.send(kReceiver, {77, 0}), 0U);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.arrived()[0].port().f0, 77U);
}

}  // namespace
