// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/ipc_receiver.h"

#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

namespace vorn {
namespace {

using namespace std::chrono_literals;

// Where descriptors are lacking, connections wait so long.
constexpr auto kNoDescriptors = 100ms;
constexpr int kAcceptedTogether = 64;
constexpr int kPacketsTogether = 16;

}  // namespace

Receiver::Receiver(const Endpoint& own, const Folder& folder, Service& service)
    : own_(own),
      folder_(folder),
      service_(service),
      intake_(own, service.readable(), [this] { service_.post(cut_off_); }),
      cut_off_([this] { end_those_cut_off(); }),
      listen_again_([this] {
          if (listener_ && !is_listening_) is_listening_ = service_.watch(listener_, *this);
      }) {}

Receiver::~Receiver() {
    stop();
    service_.forget(listen_again_);
}

Result Receiver::open() {
    const Result result = folder_.listen(own_.address, own_.log, lock_, listener_);
    if (result != VORN_BUS_OK) return result;
    is_listening_ = service_.watch(listener_, *this);
    if (is_listening_) return VORN_BUS_OK;
    own_.log.error(folder_.socket_path(own_.address), ": ", system_error_text());
    return VORN_BUS_SYSTEM_ERROR;
}

void Receiver::stop() {
    if (!listener_) return;
    folder_.unlisten(own_.address, listener_);
    service_.unwatch(listener_, *this);
    // Those that came before: what they said before they ended is taken.
    while (accept_one()) continue;
    for (auto next = connections_.begin(); next != connections_.end();) {
        Connection& connection = *next++;
        receive(connection);
    }
    while (!connections_.empty()) {
        Connection& connection = connections_.front();
        if (connection.source != nullptr) intake_.rings().remove(*connection.source);
        end(connection);
    }
    intake_.give_back();
    listener_.reset();
}

void Receiver::ready() {
    for (int i = 0; i < kAcceptedTogether && accept_one(); ++i) continue;
}

bool Receiver::accept_one() {
    Descriptor socket(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket) {
        if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED || !is_listening_) return false;
        own_.log.warning("no connection can be taken: ", system_error_text());
        service_.unwatch(listener_, *this);
        is_listening_ = false;
        service_.at(Clock::now() + kNoDescriptors, listen_again_);
        return false;
    }
    const Peer peer = peer_of(socket);
    if ((peer.user != geteuid() && peer.user != 0) || connections_.size() >= kMostConnections) {
        count(own_.counters.damaged);
        own_.log.warning(
            "a connection of process ", peer.process, " is refused: ",
            connections_.size() >= kMostConnections ? "there are too many" : "it is another user's");
        return true;
    }
    if (silent_ >= kMostSilent) {
        for (Connection& connection : connections_) {
            if (connection.has_spoken) continue;
            end(connection);
            break;
        }
    }
    connections_.emplace_back(*this, std::move(socket), peer);
    Connection& connection = connections_.back();
    connection.position = std::prev(connections_.end());
    ++silent_;
    std::array<std::uint8_t, Welcome::kBytes> welcome;
    write_packet(welcome.data(), Welcome{own_.address, own_.queue_batches, own_.batch_bytes, 0});
    // Where the welcome cannot be sent, the connection has ended, which is seen next.
    static_cast<void>(send_packet(connection.socket, welcome));
    if (!service_.watch(connection.socket, connection)) end(connection);
    return true;
}

void Receiver::receive(Connection& connection) {
    try {
        for (int i = 0; i < kPacketsTogether; ++i) {
            Packet packet;
            switch (receive_packet(connection.socket, packet)) {
                case Received::packet:
                    if (take(connection, packet)) continue;
                    return end(connection);
                case Received::nothing:
                    return;
                case Received::end:
                    return end(connection);
                case Received::broken:
                    refuse(connection, "it has sent what is no packet");
                    return end(connection);
            }
        }
    } catch (const std::exception& fault) {  // it comes again
        own_.log.warning("a connection of process ", connection.peer.process, " ends: ", fault.what());
        end(connection);
    }
}

bool Receiver::refuse(const Connection& connection, const char* why) const {
    count(own_.counters.damaged);
    own_.log.warning("process ", connection.peer.process, " is cut off: ", why);
    return false;
}

bool Receiver::take(Connection& connection, Packet& packet) {
    const auto kind = kind_of(packet.bytes());
    if (kind == Kind::ask && packet.size == kPreambleBytes) return answer_counters(connection);
    if (connection.has_spoken) return refuse(connection, "it has sent a packet too many");
    connection.has_spoken = true;
    --silent_;
    if (kind == Kind::hello) return hello(connection, packet);
    if (kind == Kind::watch) return watch(connection, packet);
    return refuse(connection, "it has sent what is no packet");
}

bool Receiver::has_space_for(std::uint32_t ring_bytes) const {
    std::uint64_t used = intake_.ring_bytes();
    for (const Connection& connection : connections_) {
        if (connection.watcher != nullptr) used += connection.watcher->memory.bytes();
    }
    return ring_bytes <= kMostRing && used <= kMostRingBytes - ring_bytes;
}

bool Receiver::map(const Connection& connection, SharedMemory& memory, const Descriptor& file,
                   std::uint32_t bytes) const {
    if (!has_space_for(bytes)) return refuse(connection, "there is no space for its ring");
    const auto mapped =
        bytes < kLeastRingBytes || bytes % 8 != 0 ? SharedMemory::Mapped::no_ring : memory.map(file, bytes);
    if (mapped == SharedMemory::Mapped::no_ring) {
        return refuse(connection, "its ring is none, or can be changed");
    }
    if (mapped == SharedMemory::Mapped::yes) return true;
    // Not the peer's fault: it may come again.
    own_.log.warning("the ring of process ", connection.peer.process,
                     " cannot be mapped: ", system_error_text());
    return false;
}

// A pure sender has no lock, and a process that has ended may have left its ring.
bool Receiver::owns(pid_t process, std::uint32_t address) const {
    const pid_t holder = folder_.holder(address);
    return holder == 0 || holder == process || process == 0 || (kill(process, 0) != 0 && errno == ESRCH);
}

bool Receiver::hello(Connection& connection, Packet& packet) {
    const auto hello = read_hello(packet.bytes());
    if (!hello || hello->destination != own_.address || !packet.memory || !packet.doorbell) {
        return refuse(connection, "its hello is none");
    }
    if (!owns(connection.peer.process, hello->source)) {
        return refuse(connection, "the address that it sends from is another process's");
    }
    auto source = std::make_shared<RingSet::Source>();
    if (!map(connection, source->memory, packet.memory, hello->ring_bytes)) return false;
    source->reader = RingReader(source->memory.ring(), hello->first, hello->batches, own_.batch_bytes);
    source->doorbell = std::move(packet.doorbell);
    source->address = hello->source;
    source->first_is_repeated = hello->is_repeated != 0;
    if (!intake_.add(source)) return refuse(connection, "its doorbell is none");
    connection.source = std::move(source);
    return true;
}

bool Receiver::watch(Connection& connection, Packet& packet) {
    const auto watch = read_watch(packet.bytes());
    if (!watch || !packet.memory || packet.doorbell) return refuse(connection, "its watch is none");
    auto watcher = std::make_unique<Intake::Watcher>();
    if (!map(connection, watcher->memory, packet.memory, watch->ring_bytes)) return false;
    watcher->writer = RingWriter(watcher->memory.ring(), 1, UINT32_MAX);
    watcher->socket = &connection.socket;
    connection.watcher = std::move(watcher);
    intake_.add_watcher(*connection.watcher);
    std::array<std::uint8_t, kPreambleBytes> watching;
    put_preamble(watching.data(), Kind::watching);
    return send_packet(connection.socket, watching);
}

bool Receiver::answer_counters(const Connection& connection) const {
    vorn_bus_counters counters = vorn_bus_counters_init();
    own_.read_counters(own_.bus, counters);
    const CounterNumbers numbers = to_numbers(counters);
    std::array<std::uint8_t, kCountersHeaderBytes + sizeof numbers> bytes;
    write_counters(bytes.data(), numbers);
    return send_packet(connection.socket, bytes);
}

void Receiver::end(Connection& connection) {
    service_.unwatch(connection.socket, connection);
    if (!connection.has_spoken) --silent_;
    if (connection.watcher != nullptr) intake_.remove_watcher(*connection.watcher);
    if (connection.source != nullptr) intake_.rings().end(*connection.source);
    connections_.erase(connection.position);
}

void Receiver::end_those_cut_off() {
    for (auto next = connections_.begin(); next != connections_.end();) {
        Connection& connection = *next++;
        if (connection.source != nullptr && connection.source->is_removed) end(connection);
    }
}

}  // namespace vorn
