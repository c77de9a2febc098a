// SPDX-License-Identifier: Apache-2.0
// Senders and receivers on ipc that speak the protocol by hand.
#ifndef TESTS_BUS_IPC_SPEAKER_H
#define TESTS_BUS_IPC_SPEAKER_H

#include <sys/socket.h>

#include <array>
#include <string>
#include <vector>

#include "tests/bus/fixture.h"
#include "vorn/ipc/folder.h"
#include "vorn/ipc/outbox.h"
#include "vorn/ipc/shared_memory.h"
#include "vorn/ipc/unix_socket.h"

namespace tests {

using namespace vorn;
using Buffer = std::vector<std::uint8_t>;

inline constexpr std::uint32_t kSender = 1;
inline constexpr std::uint32_t kReceiver = 2;
inline constexpr std::uint32_t kRingBytes = 4096;

// {7, 1} as a fixed image.
inline const Buffer kPort = {12, 0, 0, 0, 8, 0, 12, 0, 4, 0, 8, 0, 8, 0, 0, 0, 7, 0, 0, 0, 1, 0, 0, 0};

inline Log& quiet() {
    static Log log([](const char*, void*) {}, nullptr, "");
    return log;
}

inline Packet hear(const Descriptor& socket) {
    Packet packet;
    EXPECT_TRUE(eventually([&] { return receive_packet(socket, packet) != Received::nothing; }));
    return packet;
}

inline bool is_ended(const Descriptor& socket) {
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

class Ipc : public BusTest {
  protected:
    // The bus still works for others.
    void expect_alive(TestBus& receiver) {
        const std::size_t before = receiver.arrived().size();
        TestBus sender(url(), 3);
        EXPECT_EQ(sender.send(kReceiver, {5, 6}), 0U);
        EXPECT_TRUE(receiver.poll_until(before + 1));
    }
};

}  // namespace tests

#endif
