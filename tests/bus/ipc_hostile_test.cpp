// SPDX-License-Identifier: Apache-2.0
// ipc against senders, receivers and watchers that lie, and against floods: they are cut off, counted and
// logged, and others are served.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/bus/ipc_speaker.h"
#include "vorn/ipc/ipc_receiver.h"

namespace {

using namespace tests;

class HostileIpc : public Ipc {
  protected:
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

INSTANTIATE_TEST_SUITE_P(On, HostileIpc, testing::Values("ipc"), [](const auto& of) { return of.param; });

// ---- senders that lie -----------------------------------------------------------------------------------

TEST_P(HostileIpc, ASenderWhosePacketsAreNoneIsCutOff) {
    for (const Buffer& bytes : {Buffer{1, 2, 3}, Buffer(200, 0x56), Buffer(1000, 0), Buffer(8, 0)}) {
        TestBus receiver(url(), kReceiver);
        Speaker speaker(url());
        speaker.greet();
        ASSERT_TRUE(send_packet(speaker.socket, bytes));
        expect_cut_off(receiver, speaker, "is no packet");
    }
}

TEST_P(HostileIpc, AHelloThatIsWrongIsRefused) {
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

TEST_P(HostileIpc, ASecondHelloIsOneTooMany) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(url());
    speaker.join();
    speaker.say_hello(speaker.hello());
    expect_cut_off(receiver, speaker, "a packet too many");
}

TEST_P(HostileIpc, ASenderWhoseRingHoldsWhatNoWriterWritesIsCutOff) {
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

TEST_P(HostileIpc, BatchesForAnotherAddressAreLeftOutAndCounted) {
    TestBus receiver(url(), kReceiver);
    Speaker speaker(url());
    speaker.join();
    speaker.send([](std::uint8_t* batch) { put<std::uint32_t>(batch + 8, 3); });
    speaker.send();
    ASSERT_TRUE(receiver.poll_until(1));
    EXPECT_EQ(receiver.counters().damaged, 1U);
}

TEST_P(HostileIpc, NobodySendsFromAnAddressThatAnotherProcessHas) {
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

TEST_P(HostileIpc, AFloodOfSilentConnectionsIsBounded) {
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

// Those that say what they should, and stay.
TEST_P(HostileIpc, AFloodOfSendersIsBoundedAndThoseBeforeItAreServed) {
    rlimit files = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = files.rlim_max;
    if (files.rlim_max < 4 * Receiver::kMostConnections) {
        GTEST_SKIP() << "this process may not have enough descriptors";
    }
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
    TestBus receiver(url(), kReceiver);
    TestBus honest(url(), 3);
    ASSERT_EQ(honest.send(kReceiver, {1, 0}), 0U);
    std::vector<Descriptor> flood;
    while (flood.size() < Receiver::kMostConnections - 1) {
        Speaker speaker(url());
        speaker.join();
        flood.push_back(std::move(speaker.socket));
    }
    for (std::uint32_t refused = 1; refused <= 20; ++refused) {
        const Speaker speaker(url());
        EXPECT_TRUE(is_ended(speaker.socket));
        EXPECT_EQ(receiver.counters().damaged, refused);
    }
    ASSERT_EQ(honest.send(kReceiver, {2, 0}), 0U);
    EXPECT_TRUE(receiver.poll_until(2));
    flood.clear();
    expect_alive(receiver);
}

TEST_P(HostileIpc, RingsOfAllSendersTogetherAreBounded) {
    TestBus receiver(url(), kReceiver);
    const auto join = [&](Speaker& speaker, std::uint32_t bytes) {
        speaker.greet();
        ASSERT_TRUE(SharedMemory().make(bytes, speaker.file));
        speaker.doorbell = make_doorbell();
        Hello hello = speaker.hello();
        hello.ring_bytes = bytes;
        speaker.say_hello(hello);
    };
    Speaker too_large(url());
    join(too_large, Receiver::kMostRing + 8);
    expect_cut_off(receiver, too_large, "there is no space for its ring");
    // One ring is that of the sender before, which may not have been let go yet.
    std::vector<std::unique_ptr<Speaker>> all;
    for (std::uint64_t used = 0; used + Receiver::kMostRing < Receiver::kMostRingBytes;
         used += Receiver::kMostRing) {
        all.push_back(std::make_unique<Speaker>(url()));
        join(*all.back(), Receiver::kMostRing);
    }
    Speaker last(url());
    join(last, Receiver::kMostRing);
    Speaker one_too_many(url());
    join(one_too_many, Receiver::kMostRing);
    EXPECT_TRUE(is_ended(one_too_many.socket));
    EXPECT_TRUE(receiver.poll_until(1));
    all.clear();
    one_too_many.socket.reset();
    last.socket.reset();
    expect_alive(receiver);
}

// ---- receivers that lie ---------------------------------------------------------------------------------

TEST_P(HostileIpc, AReceiverThatClaimsToHaveHandledWhatWasNotSentIsLeftAndTheNextGetsAll) {
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

TEST_P(HostileIpc, WhatListensAndIsNoReceiverIsLeft) {
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

TEST_P(HostileIpc, AReceiverThatNeverWelcomesDelaysASendNoLongerThanItsTimeout) {
    TestBus sender(url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 50; });
    Listener silent(url());
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(sender.send(kReceiver, {1, 0}), std::uint32_t{VORN_BUS_NO_PEER});
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(2));
}

TEST_P(HostileIpc, WhatWaitsForAReceiverGoesToOneThatTakesLess) {
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

TEST_P(HostileIpc, AWatcherThatReadsNothingAndLiesDelaysNobody) {
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

TEST_P(HostileIpc, AWatchWithoutARingIsRefused) {
    TestBus receiver(url(), kReceiver);
    Speaker watcher(url());
    watcher.greet();
    std::array<std::uint8_t, Watch::kBytes> watch;
    write_packet(watch.data(), Watch{kRingBytes, 0});
    ASSERT_TRUE(send_packet(watcher.socket, watch));
    expect_cut_off(receiver, watcher, "its watch is none");
}

}  // namespace
