// SPDX-License-Identifier: Apache-2.0
// ipc from outside: other speakers of the protocol, senders, receivers and watchers that lie, floods, files.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/bus/fixture.h"
#include "vorn/ipc/folder.h"
#include "vorn/ipc/ipc_receiver.h"
#include "vorn/ipc/outbox.h"
#include "vorn/ipc/shared_memory.h"
#include "vorn/ipc/unix_socket.h"

namespace {

using namespace tests;
using namespace vorn;
using Buffer = std::vector<std::uint8_t>;

constexpr std::uint32_t kSender = 1;
constexpr std::uint32_t kReceiver = 2;
constexpr std::uint32_t kRingBytes = 4096;

// {7, 1} as a fixed image.
const Buffer kPort = {12, 0, 0, 0, 8, 0, 12, 0, 4, 0, 8, 0, 8, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0};

Log& quiet() {
    static Log log([](const char*, void*) {}, nullptr, "");
    return log;
}

Packet hear(const Descriptor& socket) {
    Packet packet;
    EXPECT_TRUE(eventually([&] { return receive_packet(socket, packet) != Received::nothing; }));
    return packet;
}

bool is_ended(const Descriptor& socket) {
    return eventually([&] {
        Packet packet;
        return receive_packet(socket, packet) == Received::end;
    });
}

// A sender that speaks the protocol by hand.
class Speaker {
  public:
    explicit Speaker(const std::string& url, std::uint32_t source = kSender) : source_(source) {
        Folder folder;
        EXPECT_EQ(folder.open(url.substr(6), false, quiet()), VORN_BUS_OK);
        EXPECT_EQ(folder.connect(kReceiver, socket), Folder::Connected::yes);
    }
    Welcome greet() {
        const auto welcome = read_welcome(hear(socket).bytes());
        EXPECT_TRUE(welcome);
        return welcome.value_or(Welcome{});
    }
    void make_ring() {
        ASSERT_TRUE(memory.make(kRingBytes, file));
        doorbell = make_doorbell();
        writer = RingWriter(memory.ring(), 1, 16);
    }
    Hello hello() const { return {source_, kReceiver, 1, 16, kRingBytes, 0, 0}; }
    void say_hello(const Hello& hello) {
        std::array<std::uint8_t, Hello::kBytes> bytes;
        write_packet(bytes.data(), hello);
        ASSERT_TRUE(send_packet(socket, bytes, file, doorbell));
    }
    void join() {
        greet();
        make_ring();
        say_hello(hello());
    }
    // A batch of one message, with what else `change` does to its bytes.
    template <class Change>
    void send(Change&& change) {
        const VORN_SendDescriptor descriptor = {kPort.data(), Nac_SetPortMsg_ID, 24};
        const std::uint32_t bytes = *batch_bytes(&descriptor, 1);
        std::uint8_t* const to = writer.reserve(bytes);
        ASSERT_NE(to, nullptr);
        write_batch(to, {kReceiver, source_, 0, 1, bytes}, &descriptor);
        change(to);
        if (writer.publish()) ring(doorbell);
    }
    void send() {
        send([](std::uint8_t*) {});
    }

    Descriptor socket;
    Descriptor file;
    Descriptor doorbell;
    SharedMemory memory;
    RingWriter writer;

  private:
    std::uint32_t source_;
};

class Ipc : public BusTest {
  protected:
    // The bus still works for others.
    void expect_alive(TestBus& receiver) {
        const std::size_t before = receiver.arrived().size();
        TestBus sender(url(), 3);
        EXPECT_EQ(sender.send(kReceiver, {5, 6}), 0U);
        EXPECT_TRUE(receiver.poll_until(before + 1));
    }
    // What is wrong with a sender is counted and logged, and its connection ends.
    void expect_cut_off(TestBus& receiver, const Speaker& speaker, const std::string& why) {
        EXPECT_TRUE(eventually([&] {
            vorn_bus_poll(receiver.get(), 0, 0, nullptr);
            return receiver.counters().damaged == 1;
        })) << why;
        EXPECT_TRUE(is_ended(speaker.socket)) << why;
        std::string lines;
        for (const std::string& line : receiver.log()) lines += line + "\n";
        EXPECT_NE(lines.find(why), std::string::npos) << lines;
        expect_alive(receiver);
    }
};

INSTANTIATE_TEST_SUITE_P(On, Ipc, testing::Values("ipc"), [](const auto& of) { return of.param; });

TEST_P(Ipc, AnotherSpeakerOfTheProtocolIsUnderstood) {
    TestBus receiver(url(), kReceiver, [](vorn_bus_options& options) { options.queue_batches = 9; });
    Speaker speaker(url());
    const Welcome welcome = speaker.greet();
    EXPECT_EQ(welcome.address, kReceiver);
    EXPECT_EQ(welcome.batches, 9U);
    EXPECT_EQ(welcome.batch_bytes, 1'000'000U);
    speaker.make_ring();
    speaker.say_hello(speaker.hello());
    speaker.send();
    speaker.send();
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived()[1].port().f0, 7U);
    EXPECT_EQ(receiver.arrived()[1].source, kSender);
    EXPECT_TRUE(speaker.writer.note_handled());
    EXPECT_EQ(speaker.writer.waiting(), 0U);
}

TEST_P(Ipc, WhatASenderLeavesWhenItEndsIsHandled) {
    TestBus receiver(url(), kReceiver);
    {
        Speaker speaker(url());
        speaker.join();
        speaker.send();
        speaker.send();
    }
    EXPECT_TRUE(receiver.poll_until(2));
    expect_alive(receiver);
}

TEST_P(Ipc, WhatMayHaveBeenHandledBeforeIsFlagged) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(url());
    speaker.greet();
    speaker.make_ring();
    Hello hello = speaker.hello();
    hello.is_repeated = 1;
    speaker.say_hello(hello);
    speaker.send();
    speaker.send();
    ASSERT_TRUE(receiver.poll_until(2));
    EXPECT_EQ(receiver.arrived()[0].flags & VORN_BUS_REPEATED, VORN_BUS_REPEATED);
    EXPECT_EQ(receiver.arrived()[1].flags & VORN_BUS_REPEATED, 0U);
}

// ---- senders that lie -----------------------------------------------------------------------------------

TEST_P(Ipc, ASenderWhosePacketsAreNoneIsCutOff) {
    for (const Buffer& bytes : {Buffer{1, 2, 3}, Buffer(200, 0x56), Buffer(1000, 0), Buffer(8, 0)}) {
        TestBus receiver(url(), kReceiver);
        Speaker speaker(url());
        speaker.greet();
        ASSERT_TRUE(send_packet(speaker.socket, bytes));
        expect_cut_off(receiver, speaker, "is no packet");
    }
}

TEST_P(Ipc, AHelloThatIsWrongIsRefused) {
    const auto refused = [&](const char* why, auto&& change) {
        TestBus receiver(url(), kReceiver);
        Speaker speaker(url());
        speaker.greet();
        speaker.make_ring();
        Hello hello = speaker.hello();
        change(hello, speaker);
        speaker.say_hello(hello);
        expect_cut_off(receiver, speaker, why);
    };
    refused("its hello is none", [](Hello& hello, Speaker&) { hello.destination = 3; });
    refused("its hello is none", [](Hello& hello, Speaker&) { hello.first = 0; });
    refused("its hello is none", [](Hello&, Speaker& speaker) { speaker.doorbell.reset(); });
    refused("its hello is none", [](Hello&, Speaker& speaker) {
        speaker.file.reset();
        speaker.doorbell.reset();
    });
    refused("its ring is none", [](Hello& hello, Speaker&) { hello.ring_bytes = kRingBytes + 8; });
    refused("its ring is none", [](Hello& hello, Speaker&) { hello.ring_bytes = 8; });
    refused("its ring is none", [](Hello& hello, Speaker&) { hello.ring_bytes = 4095; });
    refused("there is no space", [](Hello& hello, Speaker&) { hello.ring_bytes = UINT32_MAX; });
    refused("its doorbell is none", [](Hello&, Speaker& speaker) {  // a file cannot be waited for
        speaker.doorbell = Descriptor(open("/proc/self/exe", O_RDONLY | O_CLOEXEC));
    });
    refused("its ring is none, or can be changed", [](Hello&, Speaker& speaker) {
        speaker.file = Descriptor(memfd_create("unsealed", MFD_CLOEXEC));
        ASSERT_EQ(ftruncate(speaker.file.get(), kRingBytes), 0);
    });
    refused("its ring is none, or can be changed", [](Hello&, Speaker& speaker) {
        speaker.file = Descriptor(open("/dev/zero", O_RDWR | O_CLOEXEC));
    });
}

TEST_P(Ipc, ASecondHelloIsOneTooMany) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(url());
    speaker.join();
    speaker.say_hello(speaker.hello());
    expect_cut_off(receiver, speaker, "a packet too many");
}

TEST_P(Ipc, ASenderWhoseRingHoldsWhatNoWriterWritesIsCutOff) {
    const auto cut_off = [&](const char* why, auto&& damage) {
        TestBus receiver(url(), kReceiver);
        Speaker speaker(url());
        speaker.join();
        damage(speaker);
        ring(speaker.doorbell);
        expect_cut_off(receiver, speaker, why);
        EXPECT_EQ(receiver.arrived().size(), 1U);  // that of the one after it
    };
    const char* const never = "what its writer never writes";
    cut_off(never, [](Speaker& speaker) { speaker.memory.ring().header->published = 17; });
    cut_off(never, [](Speaker& speaker) { speaker.memory.ring().header->published = UINT64_MAX; });
    cut_off(never, [](Speaker& speaker) { speaker.memory.ring().header->published = 1; });  // and no record
    cut_off(never, [](Speaker& speaker) {
        speaker.send([](std::uint8_t* batch) { put<std::uint32_t>(batch + 28, 65); });  // longer than it is
    });
    cut_off(never, [](Speaker& speaker) {
        speaker.send([](std::uint8_t* batch) { put<std::uint32_t>(batch + 12, 9); });  // another's address
    });
    cut_off(never, [](Speaker& speaker) {
        speaker.send([](std::uint8_t* batch) { put<std::uint32_t>(batch - 8, 0xFFFFFFF8); });
    });
    cut_off("an envelope that is none", [](Speaker& speaker) {
        speaker.send([](std::uint8_t* batch) { put<std::uint32_t>(batch + 24, 0x20000001); });
    });
}

TEST_P(Ipc, BatchesForAnotherAddressAreLeftOutAndCounted) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(url());
    speaker.join();
    speaker.send([](std::uint8_t* batch) { put<std::uint32_t>(batch + 8, 3); });
    speaker.send();
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.counters().damaged, 1U);
}

TEST_P(Ipc, NobodySendsFromAnAddressThatAnotherProcessHas) {
    TestBus receiver(url(), kReceiver);
    TestBus owner(url(), 7);
    const pid_t child = fork();
    if (child == 0) {
        vorn::Folder folder;
        Descriptor socket;
        SharedMemory memory;
        Descriptor file;
        std::array<std::uint8_t, Hello::kBytes> bytes;
        write_packet(bytes.data(), Hello{7, kReceiver, 1, 16, kRingBytes, 0, 0});
        const bool said = folder.open(url().substr(6), false, quiet()) == VORN_BUS_OK &&
                          folder.connect(kReceiver, socket) == Folder::Connected::yes &&
                          memory.make(kRingBytes, file) && send_packet(socket, bytes, file, make_doorbell());
        _exit(said && is_ended(socket) ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(receiver.counters().damaged, 1U);
    EXPECT_EQ(owner.send(kReceiver, {1, 2}), 0U);
    EXPECT_TRUE(receiver.poll_until(1));
}

TEST_P(Ipc, AFloodOfSilentConnectionsIsBounded) {
    TestBus receiver(url(), kReceiver);
    std::vector<std::unique_ptr<Speaker>> silent;
    for (std::size_t i = 0; i < Receiver::kMostSilent + 20; ++i) {
        silent.push_back(std::make_unique<Speaker>(url()));
    }
    for (std::size_t i = 0; i < 20; ++i) {
        silent[i]->greet();
        EXPECT_TRUE(is_ended(silent[i]->socket)) << i;  // the oldest go
    }
    expect_alive(receiver);
}

// ---- receivers that lie ---------------------------------------------------------------------------------

// A receiver by hand.
class Listener {
  public:
    explicit Listener(const std::string& url) {
        EXPECT_EQ(folder.open(url.substr(6), true, quiet()), VORN_BUS_OK);
        EXPECT_EQ(folder.listen(kReceiver, quiet(), lock, listener), VORN_BUS_OK);
    }
    ~Listener() { folder.unlisten(kReceiver, listener); }

    void accept() {
        ASSERT_TRUE(eventually([&] {
            socket = Descriptor(accept4(listener.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
            return static_cast<bool>(socket);
        }));
    }
    void welcome(const Welcome& welcome = {kReceiver, 1024, 1000, 0}) {
        std::array<std::uint8_t, Welcome::kBytes> bytes;
        write_packet(bytes.data(), welcome);
        ASSERT_TRUE(send_packet(socket, bytes));
    }
    void take_ring() {
        const Packet packet = hear(socket);
        const auto hello = read_hello(packet.bytes());
        ASSERT_TRUE(hello);
        ASSERT_EQ(memory.map(packet.memory, hello->ring_bytes), SharedMemory::Mapped::yes);
    }

    Folder folder;
    Descriptor lock;
    Descriptor listener;
    Descriptor socket;
    SharedMemory memory;
};

TEST_P(Ipc, AReceiverThatClaimsToHaveHandledWhatWasNotSentIsLeftAndTheNextGetsAll) {
    TestBus sender(url(), kSender);
    {
        Listener liar(url());
        std::thread sending([&] { EXPECT_EQ(sender.send(kReceiver, {1, 0}), 0U); });
        liar.accept();
        liar.welcome();
        liar.take_ring();
        sending.join();
        liar.memory.ring().header->handled = 1000;
        EXPECT_EQ(sender.counters().unhandled_batches, 1U);
        EXPECT_EQ(sender.counters().damaged, 1U);
        EXPECT_TRUE(is_ended(liar.socket));
    }
    TestBus receiver(url(), kReceiver);
    EXPECT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
    EXPECT_EQ(sender.counters().lost_batches, 0U);
}

TEST_P(Ipc, WhatListensAndIsNoReceiverIsLeft) {
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 100; });
    for (const Welcome& wrong : {Welcome{3, 1024, 1000, 0}, Welcome{kReceiver, 0, 1000, 0}}) {
        Listener listener(url());
        std::thread sending([&] {
            EXPECT_EQ(sender.send(kReceiver, {1, 0}), std::uint32_t{VORN_BUS_NO_PEER});
        });
        listener.accept();
        listener.welcome(wrong);
        EXPECT_TRUE(is_ended(listener.socket));
        sending.join();
    }
    EXPECT_GE(sender.counters().damaged, 2U);
}

TEST_P(Ipc, AReceiverThatNeverWelcomesDelaysASendNoLongerThanItsTimeout) {
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 50; });
    Listener silent(url());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.send(kReceiver, {1, 0}), std::uint32_t{VORN_BUS_NO_PEER});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

TEST_P(Ipc, WhatWaitsForAReceiverGoesToOneThatTakesLess) {
    TestBus sender(url(), kSender);
    {
        TestBus first(url(), kReceiver);
        ASSERT_EQ(sender.send(kReceiver, std::vector<Nac_SetPortMsg>(20)), 0U);
        ASSERT_EQ(sender.send(kReceiver, {1, 0}), 0U);
    }
    TestBus small(url(), kReceiver, [](vorn_bus_options& options) { options.batch_bytes = 100; });
    ASSERT_TRUE(small.poll_until(1));
    EXPECT_EQ(small.arrived()[0].port().f0, 1U);
    EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_LOST);
    EXPECT_EQ(sender.counters().lost_batches, 1U);
}

// ---- watchers that lie ----------------------------------------------------------------------------------

TEST_P(Ipc, AWatcherThatReadsNothingAndLiesDelaysNobody) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    Speaker watcher(url());
    watcher.greet();
    watcher.make_ring();
    std::array<std::uint8_t, Watch::kBytes> watch;
    write_packet(watch.data(), Watch{kRingBytes, 0});
    ASSERT_TRUE(send_packet(watcher.socket, watch, watcher.file, {}));
    EXPECT_EQ(kind_of(hear(watcher.socket).bytes()), Kind::watching);
    for (std::uint32_t i = 0; i < 500; ++i) {
        watcher.memory.ring().header->handled = i * 1000;
        ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
        ASSERT_TRUE(receiver.poll_until(i + 1));
    }
    EXPECT_EQ(vorn_bus_flush(sender.get(), 10000), VORN_BUS_OK);
}

TEST_P(Ipc, AWatchWithoutARingIsRefused) {
    TestBus receiver(url(), kReceiver);
    Speaker watcher(url());
    watcher.greet();
    std::array<std::uint8_t, Watch::kBytes> watch;
    write_packet(watch.data(), Watch{kRingBytes, 0});
    ASSERT_TRUE(send_packet(watcher.socket, watch));
    expect_cut_off(receiver, watcher, "its watch is none");
}

// ---- pure senders, drains, waking ------------------------------------------------------------------------

TEST_P(Ipc, PureSendersTakeNoAddressAndMayBeMany) {
    TestBus receiver(url(), kReceiver);
    const auto pure = [](vorn_bus_options& options) { options.send_only = 1; };
    TestBus first(url(), 0, pure);
    TestBus second(url(), 0, pure);
    ASSERT_EQ(first.opened(), VORN_BUS_OK);
    ASSERT_EQ(second.opened(), VORN_BUS_OK);
    EXPECT_EQ(first.send(kReceiver, {1, 0}), 0U);
    EXPECT_EQ(second.send(kReceiver, {2, 0}), 0U);
    EXPECT_TRUE(receiver.poll_until(2));
    EXPECT_STREQ(vorn_bus_endpoint(first.get()), "");
    EXPECT_FALSE(std::filesystem::exists(url().substr(6) + "/0.sock"));
    EXPECT_EQ(vorn_bus_flush(first.get(), 10000), VORN_BUS_OK);
}

TEST_P(Ipc, ADrainHandlesWhatSendersLeftThatHaveEndedAndGivesTheRestBack) {
    TestBus staying(url(), kSender);
    TestBus receiver(url(), kReceiver);
    {
        TestBus ended(url(), 3, [](vorn_bus_options& options) { options.linger_ms = -1; });
        ASSERT_EQ(ended.send(kReceiver, {1, 0}), 0U);
    }
    ASSERT_EQ(staying.send(kReceiver, {2, 0}), 0U);
    EXPECT_EQ(vorn_bus_drain(receiver.get(), 10000), VORN_BUS_OK);
    ASSERT_EQ(receiver.arrived().size(), 1U);
    EXPECT_EQ(receiver.arrived()[0].port().f0, 1U);
    receiver.close();
    TestBus next(url(), kReceiver);
    ASSERT_TRUE(next.poll_until(1));
    EXPECT_EQ(next.arrived()[0].port().f0, 2U);
    EXPECT_EQ(next.arrived()[0].flags & VORN_BUS_REPEATED, 0U);
}

TEST_P(Ipc, WhatSendersLeftThatHaveEndedIsLostByACloseWithoutADrainAndLogged) {
    TestBus receiver(url(), kReceiver);
    {
        TestBus ended(url(), 3, [](vorn_bus_options& options) { options.linger_ms = -1; });
        ASSERT_EQ(ended.send(kReceiver, {1, 0}), 0U);
        ASSERT_EQ(ended.send(kReceiver, {2, 0}), 0U);
    }
    receiver.close();
    ASSERT_EQ(receiver.log().size(), 1U);
    EXPECT_NE(receiver.log()[0].find("2 batches of senders that have ended are lost"), std::string::npos);
}

// Of a sender that goes on while the poll handles.
TEST_P(Ipc, APollHandlesWhatIsThereAndNotWhatComesMeanwhile) {
    TestBus receiver(url(), kReceiver);
    TestBus sender(url(), kSender);
    receiver.on_message = [&](const vorn_bus_message&) { sender.send(kReceiver, {9, 9}); };
    for (std::uint32_t i = 0; i < 3; ++i) ASSERT_EQ(sender.send(kReceiver, {i, 0}), 0U);
    std::uint32_t handled = 0;
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 10000, 0, &handled), VORN_BUS_OK);
    EXPECT_EQ(handled, 3U);
    ASSERT_EQ(vorn_bus_poll(receiver.get(), 10000, 0, &handled), VORN_BUS_OK);
    EXPECT_EQ(handled, 3U);
    receiver.on_message = nullptr;
    while (handled != 0) vorn_bus_poll(receiver.get(), 0, 0, &handled);
}

TEST_P(Ipc, AWakeEndsAPollThatWaits) {
    TestBus receiver(url(), kReceiver);
    std::thread waking([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(vorn_bus_wake(receiver.get()), VORN_BUS_OK);
    });
    std::uint32_t handled = 9;
    EXPECT_EQ(vorn_bus_poll(receiver.get(), -1, 0, &handled), VORN_BUS_OK);
    EXPECT_EQ(handled, 0U);
    waking.join();
}

// ---- files ----------------------------------------------------------------------------------------------

std::string folder_of(const TestUrl& at) { return at.url().substr(6); }

void expect_refused(const std::string& folder, const std::string& why) {
    TestBus bus("ipc://" + folder, 5);
    EXPECT_EQ(bus.opened(), VORN_BUS_SYSTEM_ERROR);
    ASSERT_EQ(bus.log().size(), 1U);
    EXPECT_NE(bus.log()[0].find(why), std::string::npos) << bus.log()[0];
}

TEST(IpcFolder, ItAndItsSocketsAreTheUsersAlone) {
    const auto at = make_test_url("ipc");
    const std::string folder = folder_of(*at) + "/inner";
    TestBus bus("ipc://" + folder, 5);
    ASSERT_EQ(bus.opened(), VORN_BUS_OK);
    struct stat status = {};
    ASSERT_EQ(stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
    for (const char* const name : {"/5.sock", "/5.lock"}) {
        ASSERT_EQ(stat((folder + name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U);
    }
    bus.close();
    EXPECT_NE(stat((folder + "/5.sock").c_str(), &status), 0);
}

TEST(IpcFolder, WhereOthersMayWriteIsRefused) {
    const auto at = make_test_url("ipc");
    ASSERT_EQ(chmod(folder_of(*at).c_str(), 0770), 0);
    expect_refused(folder_of(*at), "others may write there");
    expect_refused(folder_of(*at) + "/inner", "others may write there");  // and replace it
    expect_refused("/tmp", "others may write there");
}

TEST(IpcFolder, ALinkIsRefusedWhereverItIs) {
    const auto at = make_test_url("ipc");
    const std::string folder = folder_of(*at);
    std::filesystem::create_directory(folder + "/real");
    std::filesystem::create_directory_symlink(folder + "/real", folder + "/link");
    expect_refused(folder + "/link", "a link");
    expect_refused(folder + "/link/inner", "a link");
    EXPECT_FALSE(std::filesystem::exists(folder + "/real/inner"));
}

TEST(IpcFolder, WhatIsDoneToItsPathLaterDoesNotMatter) {
    const auto at = make_test_url("ipc");
    const std::string folder = folder_of(*at) + "/bus";
    TestBus receiver("ipc://" + folder, kReceiver);
    TestBus sender("ipc://" + folder, kSender);
    std::filesystem::rename(folder, folder + "-moved");
    std::filesystem::create_directory(folder);
    ASSERT_EQ(nac_fwm_port_recv_init(), 0);
    EXPECT_EQ(sender.send(kReceiver, {1, 2}), 0U);
    EXPECT_TRUE(receiver.poll_until(1));
    receiver.close();
    EXPECT_FALSE(std::filesystem::exists(folder + "-moved/2.sock"));
}

TEST(IpcFolder, PathsMayBeLongerThanASocketsName) {
    const auto at = make_test_url("ipc");
    const std::string url = at->url() + "/" + std::string(150, 'x');
    std::filesystem::create_directory(url.substr(6));
    std::filesystem::permissions(url.substr(6), std::filesystem::perms::owner_all);
    TestBus receiver(url + "/" + std::string(150, 'y'), kReceiver);
    ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
    TestBus sender(url + "/" + std::string(150, 'y'), kSender);
    ASSERT_EQ(nac_fwm_port_recv_init(), 0);
    EXPECT_EQ(sender.send(kReceiver, {1, 2}), 0U);
    EXPECT_TRUE(receiver.poll_until(1));
}

TEST(IpcFolder, NothingIsDeletedThatIsNoSocket) {
    const auto at = make_test_url("ipc");
    std::ofstream(folder_of(*at) + "/5.sock") << "mine";
    expect_refused(folder_of(*at), "is no socket of a bus");
    EXPECT_EQ(std::filesystem::file_size(folder_of(*at) + "/5.sock"), 4U);
}

TEST(IpcFolder, ASocketThatAKilledProcessLeftIsReplaced) {
    const auto at = make_test_url("ipc");
    {
        Listener killed(at->url());
        killed.lock.reset();
        Descriptor left = std::move(killed.listener);  // so that its file stays
    }
    ASSERT_TRUE(std::filesystem::exists(folder_of(*at) + "/2.sock"));
    TestBus sender(at->url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 10; });
    EXPECT_EQ(sender.send(kReceiver, {1, 2}), std::uint32_t{VORN_BUS_NO_PEER});
    TestBus receiver(at->url(), kReceiver);
    EXPECT_EQ(receiver.opened(), VORN_BUS_OK);
}

TEST(IpcFolder, ALockDoesNotLiveOnInAForkedChild) {
    const auto at = make_test_url("ipc");
    std::array<int, 2> said = {};
    ASSERT_EQ(pipe2(said.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {  // opens a bus, and ends while a child of its own goes on
        const TestBus bus(at->url(), 5);
        if (fork() == 0) {
            const pid_t self = getpid();
            if (write(said[1], &self, sizeof self) == sizeof self) pause();
            _exit(0);
        }
        pause();
    }
    pid_t sleeper = 0;
    ASSERT_EQ(read(said[0], &sleeper, sizeof sleeper), static_cast<ssize_t>(sizeof sleeper));
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    const TestBus next(at->url(), 5);
    EXPECT_EQ(next.opened(), VORN_BUS_OK);
    kill(sleeper, SIGKILL);
    close(said[0]);
    close(said[1]);
}

TEST(IpcFolder, WithoutANameItIsThatOfTheUsersSession) {
    const auto at = make_test_url("ipc");
    setenv("XDG_RUNTIME_DIR", folder_of(*at).c_str(), 1);
    const TestBus bus("ipc://", 3);
    EXPECT_STREQ(vorn_bus_endpoint(bus.get()), ("ipc://" + folder_of(*at) + "/vorn/3.sock").c_str());
    unsetenv("XDG_RUNTIME_DIR");
    setenv("HOME", folder_of(*at).c_str(), 1);
    const TestBus other("ipc://", 3);
    EXPECT_STREQ(vorn_bus_endpoint(other.get()), ("ipc://" + folder_of(*at) + "/.vorn/3.sock").c_str());
}

TEST_P(Ipc, SignalsAreLeftToTheHostsThreads) {
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

}  // namespace
