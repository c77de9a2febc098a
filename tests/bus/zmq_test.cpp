// SPDX-License-Identifier: Apache-2.0
// ipc:// and tcp:// from outside: other speakers of the protocol, garbage, half-open connections, files and
// ports.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <random>
#include <zmq.hpp>

#include "tests/bus/fixture.h"
#include "vorn/core/envelope.h"
#include "vorn/zmq/zmq_endpoints.h"

namespace {

using namespace tests;
using namespace vorn;
using Buffer = std::vector<std::uint8_t>;

constexpr std::uint32_t kReceiver = 2;

// {7, 1} as a fixed image.
const Buffer kPort = {12, 0, 0, 0, 8, 0, 12, 0, 4, 0, 8, 0, 8, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0};

// Speaks the protocol by hand.
class Speaker {
  public:
    Speaker(const std::string& endpoint, zmq::socket_type type = zmq::socket_type::dealer)
        : socket_(context_, type) {
        socket_.set(zmq::sockopt::linger, 1000);
        socket_.connect(endpoint);
    }
    void say(const Buffer& bytes) { socket_.send(zmq::buffer(bytes)); }
    template <class Packet>
    void say(const Packet& packet) {
        Buffer bytes(Packet::kBytes);
        write_packet(bytes.data(), packet);
        say(bytes);
    }
    // Batches of one message each, with numbers from `first`.
    void say_batches(std::uint64_t session, std::uint64_t first, std::uint32_t batches,
                     std::uint32_t claimed) {
        const VORN_SendDescriptor descriptor = {kPort.data(), Nac_SetPortMsg_ID, 24};
        const std::uint32_t bytes = *batch_bytes(&descriptor, 1);
        Buffer packet(Data::kBytes + std::size_t{batches} * bytes);
        write_packet(packet.data(), Data{session, first, claimed, 0});
        for (std::uint32_t i = 0; i < batches; ++i) {
            write_batch(packet.data() + Data::kBytes + std::size_t{i} * bytes, {kReceiver, 1, 0, 1, bytes},
                        &descriptor);
        }
        say(packet);
    }
    Buffer hear() {
        socket_.set(zmq::sockopt::rcvtimeo, 5000);
        zmq::message_t message;
        if (!socket_.recv(message)) return {};
        const auto* const bytes = message.data<std::uint8_t>();
        return {bytes, bytes + message.size()};
    }
    Welcome greet() {
        say(Hello{1, kReceiver, 4711});
        const auto welcome = read_welcome(hear());
        EXPECT_TRUE(welcome);
        return welcome.value_or(Welcome{});
    }
    // The answer to a ping.
    Ack ask(std::uint64_t session, std::uint64_t sent) {
        say(Ping{session, sent});
        for (;;) {
            const Buffer bytes = hear();
            const auto ack = read_ack(bytes);
            if (bytes.empty() || !ack) {
                ADD_FAILURE() << "no answer to a ping";
                return {};
            }
            if (ack->sent == sent) return *ack;
        }
    }

  private:
    zmq::context_t context_{1};
    zmq::socket_t socket_;
};

class Zmq : public BusTest {
  protected:
    std::string endpoint(std::uint32_t address = kReceiver) const {
        const std::string rest = url().substr(6);
        return *(transport() == "ipc" ? ipc_endpoints(rest) : tcp_endpoints(rest))->endpoint(address);
    }
    // The bus still works for others.
    void expect_alive(TestBus& receiver, std::size_t arrived_before) {
        TestBus sender(url(), 3);
        EXPECT_EQ(sender.send(kReceiver, {5, 6}), 0U);
        EXPECT_TRUE(receiver.poll_until(arrived_before + 1));
    }
};

INSTANTIATE_TEST_SUITE_P(On, Zmq, testing::Values("ipc", "tcp"), [](const auto& of) { return of.param; });

TEST_P(Zmq, AnotherSpeakerOfTheProtocolIsUnderstood) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    const Welcome welcome = speaker.greet();
    EXPECT_EQ(welcome.batches, 1024U);
    EXPECT_EQ(welcome.batch_bytes, 1'000'000U);
    EXPECT_EQ(welcome.received, 0U);
    speaker.say_batches(welcome.session, 1, 3, 3);
    ASSERT_TRUE(receiver.poll_until(3));
    EXPECT_EQ(receiver.arrived()[0].port().f0, 7U);
    EXPECT_TRUE(eventually([&] {
        const Ack ack = speaker.ask(welcome.session, 3);
        return ack.received == 3 && ack.handled == 3;
    }));
}

TEST_P(Zmq, BatchesThatComeAgainAreLeftOut) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    const Welcome welcome = speaker.greet();
    for (int i = 0; i < 3; ++i) speaker.say_batches(welcome.session, 1, 2, 2);
    speaker.say_batches(welcome.session, 3, 1, 1);
    ASSERT_TRUE(receiver.poll_until(3));
    EXPECT_EQ(receiver.arrived().size(), 3U);
    EXPECT_EQ(receiver.counters().redelivered_batches, 4U);
}

TEST_P(Zmq, AGapIsAnsweredAndNothingAfterItTaken) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    const Welcome welcome = speaker.greet();
    speaker.say_batches(welcome.session, 2, 1, 1);
    const auto ack = read_ack(speaker.hear());
    ASSERT_TRUE(ack);
    EXPECT_EQ(ack->received, 0U);
    EXPECT_EQ(ack->sent, kBatchIsMissing);
    speaker.say_batches(welcome.session, 1, 2, 2);
    EXPECT_TRUE(receiver.poll_until(2));
}

TEST_P(Zmq, AReturningSenderGetsTheNumberOfWhatHasArrived) {
    TestBus receiver(url(), kReceiver);
    std::uint64_t session = 0;
    {
        Speaker speaker(endpoint());
        const Welcome welcome = speaker.greet();
        session = welcome.session;
        speaker.say_batches(session, 1, 2, 2);
        ASSERT_TRUE(receiver.poll_until(2));
    }
    Speaker again(endpoint());
    const Welcome welcome = again.greet();
    EXPECT_EQ(welcome.session, session);
    EXPECT_EQ(welcome.received, 2U);
    EXPECT_EQ(welcome.handled, 2U);
}

TEST_P(Zmq, AnUnknownSessionIsReset) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    speaker.say_batches(99, 1, 1, 1);
    const auto reset = read_reset(speaker.hear());
    ASSERT_TRUE(reset);
    EXPECT_EQ(reset->session, 99U);
    EXPECT_EQ(receiver.counters().waiting_batches, 0U);
}

TEST_P(Zmq, MoreBatchesThanThereMayBeAreNotTaken) {
    TestBus receiver(url(), kReceiver, [](vorn_bus_options& options) { options.queue_batches = 4; });
    Speaker speaker(endpoint());
    const Welcome welcome = speaker.greet();
    EXPECT_EQ(welcome.batches, 4U);
    speaker.say_batches(welcome.session, 1, 3, 3);
    speaker.say_batches(welcome.session, 4, 2, 2);        // above the window: they stay with the sender
    speaker.say_batches(welcome.session, 4, 1, 1000000);  // a count that the bytes cannot hold
    EXPECT_EQ(speaker.ask(welcome.session, 5).received, 3U);
    EXPECT_EQ(receiver.counters().damaged, 1U);
    ASSERT_TRUE(receiver.poll_until(3));
    expect_alive(receiver, 3);
}

// It was filled for a receiver that took more.
TEST_P(Zmq, APacketAboveTheWindowIsTakenWhereNothingWaits) {
    TestBus receiver(url(), kReceiver, [](vorn_bus_options& options) { options.queue_batches = 4; });
    Speaker speaker(endpoint());
    const Welcome welcome = speaker.greet();
    speaker.say_batches(welcome.session, 1, 9, 9);
    EXPECT_EQ(speaker.ask(welcome.session, 9).received, 9U);
    ASSERT_TRUE(receiver.poll_until(9));
    EXPECT_EQ(receiver.counters().damaged, 0U);
}

TEST_P(Zmq, WhatWaitsForAReceiverGoesToOneThatTakesLess) {
    TestBus sender(url(), 1);
    auto receiver = std::make_unique<TestBus>(url(), kReceiver);
    for (std::uint32_t i = 0; i < 500; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    receiver.reset();  // some are lost with it, and counted
    TestBus next(url(), kReceiver, [](vorn_bus_options& options) { options.queue_batches = 8; });
    const auto left = [&] { return 500 - sender.counters().lost_batches; };
    EXPECT_TRUE(eventually([&] {
        vorn_bus_poll(next.get(), 10, 0, nullptr);
        return sender.counters().unhandled_batches == 0;
    }));
    EXPECT_EQ(next.arrived().size(), left());
    EXPECT_EQ(next.counters().damaged, 0U);
}

TEST_P(Zmq, SignalsAreLeftToTheHostsThreads) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(sigaction(SIGUSR1, &action, nullptr), 0);
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), 1);
    ASSERT_EQ(vorn_bus_start(receiver.get()), VORN_BUS_OK);
    {
        const BlockedSignals blocked;  // so that the system gives them to another thread, if there is one
        for (std::uint32_t i = 0; i < 200; ++i) {
            kill(getpid(), SIGUSR1);
            ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        }
    }
    EXPECT_TRUE(eventually([&] { return receiver.arrived().size() == 200; }));
}

TEST_P(Zmq, ADamagedEnvelopeEndsItsPacketAndNothingElse) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    const Welcome welcome = speaker.greet();
    Buffer packet(Data::kBytes + 200, 0xEE);
    write_packet(packet.data(), Data{welcome.session, 1, 3, 0});
    speaker.say(packet);
    speaker.say_batches(welcome.session, 4, 1, 1);
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.counters().damaged, 1U);
    EXPECT_EQ(receiver.counters().waiting_batches, 0U);
    EXPECT_TRUE(eventually([&] { return speaker.ask(welcome.session, 4).handled == 4; }));
}

TEST_P(Zmq, MoreBatchesThanWereClaimedAreDamage) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    const Welcome welcome = speaker.greet();
    speaker.say_batches(welcome.session, 1, 3, 1);
    ASSERT_TRUE(receiver.poll_until(1));
    speaker.say_batches(welcome.session, 2, 1, 1);
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived().size(), 2U);
    EXPECT_EQ(receiver.counters().damaged, 1U);
}

TEST_P(Zmq, GarbageInMessagesIsCountedAndAFewLinesAreLogged) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    std::mt19937 random(7);
    for (int i = 0; i < 500; ++i) {
        Buffer bytes(random() % 200);
        for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
        if (i % 2 == 0 && bytes.size() >= kPreambleBytes)
            put_preamble(bytes.data(), static_cast<Kind>(random() % 12));
        if (i % 2 == 0 && kind_of(bytes) == Kind::ask) continue;
        speaker.say(bytes);
    }
    EXPECT_TRUE(eventually([&] { return receiver.counters().damaged > 300; }));
    EXPECT_LT(receiver.log().size(), 100U);
    expect_alive(receiver, 0);
}

TEST_P(Zmq, OtherKindsOfSocketsDoNoHarm) {
    TestBus receiver(url(), kReceiver);
    Speaker request(endpoint(), zmq::socket_type::req);
    request.say(Buffer{1, 2, 3});
    EXPECT_TRUE(eventually([&] { return receiver.counters().damaged == 1; }));
    expect_alive(receiver, 0);
}

TEST_P(Zmq, AnotherSpeakerMayWatch) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    speaker.say(Watch{4711, 0, 0, 1 << 20, 0});
    const auto watching = read_watching(speaker.hear());
    ASSERT_TRUE(watching);
    EXPECT_EQ(watching->watcher, 4711U);
    EXPECT_EQ(watching->taken, 0U);
    TestBus sender(url(), 3);
    ASSERT_EQ(sender.send(kReceiver, {5, 6}), 0U);
    const auto copy = read_copy(speaker.hear());
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->session, watching->session);
    EXPECT_EQ(copy->first, 1U);
    const Buffer data = speaker.hear();
    const auto packet = read_data(data);
    ASSERT_TRUE(packet);
    EXPECT_EQ(packet->count, 1U);
    EXPECT_TRUE(read_batch(Bytes(data).subspan(Data::kBytes)));
    speaker.say(Watch{4711, watching->session, 1, 1 << 20, 0});
    EXPECT_EQ(read_watching(speaker.hear())->taken, 1U);
    EXPECT_TRUE(receiver.poll_until(1));
}

// A window of one byte lets one copy be on its way: the others are numbered, and not sent.
TEST_P(Zmq, CopiesStayWithinTheWatchersWindow) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    speaker.say(Watch{1, 0, 0, 1, 0});
    const auto watching = read_watching(speaker.hear());
    ASSERT_TRUE(watching);
    TestBus sender(url(), 3);
    for (std::uint32_t i = 1; i <= 3; ++i) {
        ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        ASSERT_TRUE(receiver.poll_until(i));
    }
    ASSERT_TRUE(read_copy(speaker.hear()));
    ASSERT_TRUE(read_data(speaker.hear()));
    speaker.say(Watch{1, watching->session, 3, 1, 0});
    const auto answer = read_watching(speaker.hear());
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->taken, 3U);
    ASSERT_EQ(sender.send(kReceiver, {4, 0}), 0U);
    const auto copy = read_copy(speaker.hear());
    ASSERT_TRUE(copy);
    EXPECT_EQ(copy->first, 4U);
    EXPECT_TRUE(receiver.poll_until(4));
}

TEST_P(Zmq, WatchersBeyondTheMostAreNotAnswered) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(endpoint());
    for (std::uint64_t name = 1; name <= 65; ++name) {
        speaker.say(Watch{name, 0, 0, 1000, 0});
        if (name > 64) break;
        ASSERT_TRUE(read_watching(speaker.hear()));
    }
    EXPECT_TRUE(eventually([&] { return receiver.log().size() == 1; }));
    speaker.say(Watch{7, 0, 0, 0, 0});  // ends its watch, for another
    speaker.say(Watch{66, 0, 0, 1000, 0});
    const auto watching = read_watching(speaker.hear());
    ASSERT_TRUE(watching);
    EXPECT_EQ(watching->watcher, 66U);
    expect_alive(receiver, 0);
}

// Receivers are not trusted either.
TEST_P(Zmq, AWatchSurvivesAnswersThatAreNone) {
    zmq::context_t context(1);
    zmq::socket_t router(context, zmq::socket_type::router);
    router.set(zmq::sockopt::linger, 0);
    router.bind(endpoint());
    TestWatch watch(url(), {kReceiver});
    ASSERT_EQ(watch.opened(), VORN_BUS_OK);
    router.set(zmq::sockopt::rcvtimeo, 5000);
    zmq::message_t route;
    zmq::message_t asked;
    ASSERT_TRUE(router.recv(route));
    ASSERT_TRUE(router.recv(asked));
    const auto question = read_watch(Bytes(asked.data<std::uint8_t>(), asked.size()));
    ASSERT_TRUE(question);
    std::mt19937 random(9);
    const auto answer = [&](const std::vector<Buffer>& parts) {
        router.send(zmq::buffer(route.to_string()), zmq::send_flags::sndmore);
        for (std::size_t i = 0; i < parts.size(); ++i) {
            const auto flags = i + 1 < parts.size() ? zmq::send_flags::sndmore : zmq::send_flags::none;
            router.send(zmq::buffer(parts[i]), flags);
        }
    };
    for (int i = 0; i < 300; ++i) {
        Buffer bytes(random() % 100);
        for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
        if (i % 2 == 0 && bytes.size() >= kPreambleBytes)
            put_preamble(bytes.data(), static_cast<Kind>(random() % 15));
        answer(i % 3 == 0 ? std::vector<Buffer>{bytes, bytes} : std::vector<Buffer>{bytes});
    }
    Buffer head(Copy::kBytes);
    write_packet(head.data(), Copy{question->watcher, 5, 1, 1});
    Buffer batches(Data::kBytes + 100, 0xEE);  // no batch
    write_packet(batches.data(), Data{1, 1, 2, 0});
    answer({head, batches});
    EXPECT_TRUE(eventually([&] {
        watch.poll_until(0);
        return watch.counters().damaged > 300;
    }));
    EXPECT_TRUE(watch.seen().empty());
}

TEST(Watch, OfTcpNeedsAddressesAndOfIpcNeedsNoFolder) {
    vorn_bus_watch_options options = vorn_bus_watch_options_init();
    vorn_bus_watch* watch = nullptr;
    options.url = "tcp://127.0.0.1:7000";
    EXPECT_EQ(vorn_bus_watch_open(&options, &watch), VORN_BUS_BAD_ARGUMENT);
    const auto at = make_test_url("ipc");
    TestWatch later(at->url() + "/not/there/yet");
    EXPECT_EQ(later.opened(), VORN_BUS_OK);
    TestBus bus(at->url() + "/not/there/yet", 1);
    EXPECT_TRUE(later.wait_for_receivers(1));
}

TEST(Tcp, GarbageAndSilentConnectionsDoNoHarm) {
    const auto at = make_test_url("tcp");
    ASSERT_EQ(nac_fwm_port_recv_init(), 0);
    TestBus receiver(at->url(), kReceiver);
    const int port = std::stoi(at->url().substr(at->url().rfind(':') + 1)) + 2;
    std::mt19937 random(8);
    std::vector<int> connections;
    for (int i = 0; i < 100; ++i) {
        const int connection = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        ASSERT_EQ(connect(connection, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        if (i % 2 == 0) {  // the others never send a byte
            Buffer bytes(random() % 3000 + 1);
            for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
            if (i % 4 == 0) bytes[0] = 0xFF;  // as a greeting begins
            static_cast<void>(::send(connection, bytes.data(), bytes.size(), MSG_NOSIGNAL));
        }
        connections.push_back(connection);
    }
    TestBus sender(at->url(), 1);
    for (std::uint32_t i = 0; i < 100; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    EXPECT_TRUE(receiver.poll_until(100));
    for (const int connection : connections) close(connection);
}

TEST(Tcp, AddressesArePortsAfterTheFirstOrHaveEntries) {
    const auto endpoints = tcp_endpoints("127.0.0.1:7000,2=10.0.0.2:7100,9=[::1]:7200");
    ASSERT_NE(endpoints, nullptr);
    EXPECT_EQ(endpoints->endpoint(0), "tcp://127.0.0.1:7000");
    EXPECT_EQ(endpoints->endpoint(1), "tcp://127.0.0.1:7001");
    EXPECT_EQ(endpoints->endpoint(2), "tcp://10.0.0.2:7100");
    EXPECT_EQ(endpoints->endpoint(9), "tcp://[::1]:7200");
    EXPECT_EQ(endpoints->endpoint(58535), "tcp://127.0.0.1:65535");
    EXPECT_EQ(endpoints->endpoint(58536), std::nullopt);
    EXPECT_EQ(endpoints->endpoint(0xFFFFFFFF), std::nullopt);
}

TEST(Tcp, WhatIsNoListOfEndpointsIsRefused) {
    for (const char* const rest : {"", "host", ":7000", "host:", "host:0", "host:65536", "host:7000,",
                                   "host:7000,x=h:1", "host:7000,2=h", "host:7000,2=h:1,2=h:2", "2=host:7000",
                                   "host:7000x", "host:7000,4294967296=h:1", "host:7000,h:1"}) {
        EXPECT_EQ(tcp_endpoints(rest), nullptr) << rest;
    }
    vorn_bus* bus = nullptr;
    vorn_bus_options options = vorn_bus_options_init();
    options.url = "tcp://127.0.0.1:7000";
    options.address = 60000;
    EXPECT_EQ(vorn_bus_open(&options, &bus), VORN_BUS_BAD_URL);
}

TEST(Ipc, FolderAndSocketAreTheUsersAlone) {
    const auto at = make_test_url("ipc");
    const std::string folder = at->url().substr(6) + "/inner";
    TestBus bus("ipc://" + folder, 5);
    ASSERT_EQ(bus.opened(), VORN_BUS_OK);
    struct stat status = {};
    ASSERT_EQ(stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
    ASSERT_EQ(stat((folder + "/5.sock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    ASSERT_EQ(stat((folder + "/5.lock").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    bus.close();
    EXPECT_NE(stat((folder + "/5.sock").c_str(), &status), 0);
}

TEST(Ipc, AFolderWhereOthersMayWriteIsRefused) {
    const auto at = make_test_url("ipc");
    ASSERT_EQ(chmod(at->url().substr(6).c_str(), 0770), 0);
    TestBus bus(at->url(), 5);
    EXPECT_EQ(bus.opened(), VORN_BUS_SYSTEM_ERROR);
    ASSERT_EQ(bus.log().size(), 1U);
    EXPECT_NE(bus.log()[0].find("others may write there"), std::string::npos);
}

TEST(Ipc, APathThatNoSocketCanHaveIsRefused) {
    TestBus bus("ipc:///tmp/" + std::string(200, 'x'), 5);
    EXPECT_EQ(bus.opened(), VORN_BUS_BAD_URL);
}

TEST(Ipc, WithoutAFolderItIsThatOfTheUsersSession) {
    setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);
    EXPECT_EQ(ipc_endpoints("")->endpoint(3), "ipc:///run/user/7/vorn/3.sock");
    unsetenv("XDG_RUNTIME_DIR");
    setenv("HOME", "/home/someone", 1);
    EXPECT_EQ(ipc_endpoints("")->endpoint(3), "ipc:///home/someone/.vorn/3.sock");
}

TEST(Tcp, AnAddressWithoutAPortIsRefusedAndTheBusCloses) {
    TestBus bus("tcp://127.0.0.1:7900", 1);
    ASSERT_EQ(bus.opened(), VORN_BUS_OK);
    EXPECT_EQ(bus.send(70000, {1, 2}), std::uint32_t{VORN_BUS_BAD_URL});
    EXPECT_EQ(bus.send(70000, {1, 2}), std::uint32_t{VORN_BUS_BAD_URL});
    EXPECT_EQ(bus.counters().unhandled_batches, 0U);
}

}  // namespace
