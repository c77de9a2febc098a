// SPDX-License-Identifier: Apache-2.0
#include "vorn/zmq/zmq_link.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <utility>

namespace vorn {
namespace {

using namespace std::chrono_literals;

// Batches join a packet until it has this size. Each packet wakes four threads on its road, which costs more
// than to copy hundreds of bytes.
constexpr std::size_t kPacketBytes = 262144;

// While this number of packets is on its way, one that is not full waits for more batches, or for the answer
// to the others: the receiver has enough to do, and the fewer the packets, the less the cost of each batch.
// It waits so long at most, since a handler may take its time.
constexpr std::size_t kEnoughPackets = 4;
constexpr auto kMostHeld = 1ms;

// Buffers that are kept for the next packets: what is freed and taken again costs page faults.
constexpr std::size_t kMostSpares = 4;

// Packets from this size on are handed to the socket as they are, smaller ones are copied.
constexpr std::size_t kWorthSharing = 4096;

constexpr auto kHelloAgain =
    10ms;  // where a sender waits; each try is one small packet, or none if not connected
constexpr auto kHelloIdle = 200ms;
constexpr auto kWelcomeWait = 50ms;
constexpr auto kPing = 200ms;  // while batches are on their way
constexpr auto kPingIdle = 1s;
constexpr auto kSilence = 3s;  // after which the receiver counts as away
constexpr auto kSendAgain = 50ms;

}  // namespace

Link::Link(const Endpoint& own, std::uint32_t destination, std::uint64_t incarnation, std::string endpoint,
           zmq::context_t& context, Notifier& notifier)
    : own_(own),
      destination_(destination),
      incarnation_(incarnation),
      endpoint_(std::move(endpoint)),
      notifier_(notifier),
      socket_(context, zmq::socket_type::dealer) {
    // Only to a connection that stands, so that a packet that is not sent is known not to be.
    socket_.set(zmq::sockopt::immediate, true);
    socket_.set(zmq::sockopt::sndhwm, 0);  // the window is the limit
    socket_.set(zmq::sockopt::linger, 0);
    socket_.set(zmq::sockopt::ipv6, true);
    socket_.set(zmq::sockopt::reconnect_ivl, 10);
    socket_.set(zmq::sockopt::reconnect_ivl_max, 200);
    socket_.set(zmq::sockopt::heartbeat_ivl, 1000);
    socket_.set(zmq::sockopt::heartbeat_timeout, 3000);
    socket_.set(zmq::sockopt::maxmsgsize, std::int64_t{4096});  // receivers' packets are short
    socket_.connect(endpoint_);
}

// ---- any thread -----------------------------------------------------------------------------------

Result Link::send(const Outgoing& batch, SendTimeout& timeout) {
    const std::uint32_t bytes = batch.header.bytes;
    std::unique_lock locked(lock_);
    const auto fits = [&] {
        return batches_ == 0 ||
               (batches_ < std::min(own_.queue_batches, peer_batches_) && bytes_ + bytes <= own_.queue_bytes);
    };
    const auto ready = [&] { return up_ && (fits() || bytes > peer_batch_bytes_); };
    if (!ready()) {
        ++waiting_senders_;
        notifier_.notify();
        changed_.wait_until(locked, timeout.end(), ready);
        --waiting_senders_;
        if (!up_) return VORN_BUS_NO_PEER;
    }
    if (bytes > peer_batch_bytes_) return VORN_BUS_TOO_LARGE;
    if (!fits()) return VORN_BUS_FULL;

    if (waiting_.empty() || waiting_.back().capacity - waiting_.back().size < bytes) {
        waiting_.push_back(make_packet(bytes));
    }
    Packet& packet = waiting_.back();
    write_batch(packet.bytes.data() + packet.size, batch.header, batch.descriptors);
    packet.size += bytes;
    ++packet.count;
    ++batches_;
    bytes_ += bytes;
    const bool ring = !held_ || packet.count == 1;
    locked.unlock();
    if (ring) notifier_.notify();
    return VORN_BUS_OK;
}

Link::Packet Link::make_packet(std::uint32_t batch_bytes) {
    Packet packet;
    packet.size = Data::kBytes;
    packet.capacity = std::max<std::size_t>(Data::kBytes + batch_bytes, kPacketBytes);
    packet.begun = Clock::now();
    if (packet.capacity == kPacketBytes && !spares_.empty()) {
        packet.bytes = std::move(spares_.back());
        spares_.pop_back();
    } else {
        packet.bytes = SharedBuffer(packet.capacity);
    }
    return packet;
}

bool Link::wait_until_empty(Deadline deadline) {
    std::unique_lock locked(lock_);
    ++waiting_senders_;
    const bool empty = changed_.wait_until(locked, deadline, [this] { return batches_ == 0; });
    --waiting_senders_;
    return empty;
}

std::uint32_t Link::batches() {
    const std::lock_guard locked(lock_);
    return batches_;
}

// ---- the service thread ---------------------------------------------------------------------------

Clock::time_point Link::serve() {
    receive();
    const auto now = Clock::now();
    if (serving_ && now - heard_ > kSilence) {
        own_.log.line("address ", destination_, " is silent");
        set_up(false);
    }
    if (!serving_) {
        if (now >= next_hello_) say_hello();
        return next_hello_;
    }
    send_waiting();
    if (now >= next_ping_) ping();
    return serving_ ? std::min(next_ping_, hold_ends_) : next_hello_;
}

void Link::receive() {
    zmq::message_t message;
    while (socket_.recv(message, zmq::recv_flags::dontwait)) {
        receive(Bytes(message.data<std::uint8_t>(), message.size()));
    }
}

void Link::receive(Bytes packet) {
    const auto kind = kind_of(packet);
    if (const auto is_welcome = read_welcome(packet); kind == Kind::welcome && is_welcome) {
        heard_ = Clock::now();
        welcome(*is_welcome);
    } else if (const auto ack = read_ack(packet); kind == Kind::ack && ack) {
        heard_ = Clock::now();
        if (ack->session != session_ || ack->received >= next_) return;
        acknowledge(ack->handled);
        if (ack->sent > ack->received) send_again_after(ack->received);
    } else if (const auto goodbye = read_goodbye(packet); kind == Kind::goodbye && goodbye) {
        if (goodbye->session != session_ || goodbye->received >= next_) return;
        acknowledge(goodbye->handled);
        std::array<std::uint8_t, Ping::kBytes> bytes;
        write_packet(bytes.data(), Ping{session_, next_ - 1});
        transmit(Bytes(bytes));  // the receiver closes when it has heard that we have
        end_session(goodbye->received);
    } else if (const auto reset = read_reset(packet); kind == Kind::reset && reset) {
        if (reset->session == session_) end_session(UINT64_MAX);
    } else if (kind == Kind::hello) {
        // The system may connect a socket to itself where it tries a free port of its own host for long.
        socket_.disconnect(endpoint_);
        socket_.connect(endpoint_);
    } else {
        count(own_.counters.damaged);
        own_.log.line_about_outside("a damaged answer from address ", destination_);
    }
}

void Link::welcome(const Welcome& packet) {
    if (packet.session == session_) {
        if (packet.received >= next_) return;
        acknowledge(packet.handled);
        if (!serving_) {
            set_up(true);
            sent_again_ = {};
            send_again_after(packet.received);
        }
        return;
    }
    end_session(UINT64_MAX);
    begin_session(packet);
}

void Link::begin_session(const Welcome& packet) {
    session_ = packet.session;
    next_ = packet.received + 1;
    handled_ = packet.handled;
    window_ = packet.batches;
    drop_larger_than(packet.batch_bytes);
    {
        const std::lock_guard locked(lock_);
        peer_batches_ = packet.batches;
        peer_batch_bytes_ = packet.batch_bytes;
    }
    set_up(true);
}

// A batch was accepted for a receiver that took larger ones than this one, which would close the connection.
void Link::drop_larger_than(std::uint32_t batch_bytes) {
    std::uint64_t lost = 0;
    std::uint64_t lost_bytes = 0;
    {
        const std::lock_guard locked(lock_);
        std::erase_if(waiting_, [&](const Packet& packet) {
            if (packet.count != 1 || packet.batch_bytes() <= batch_bytes) return false;
            ++lost;
            lost_bytes += packet.batch_bytes();
            return true;
        });
    }
    if (lost == 0) return;
    count(own_.counters.lost_batches, lost);
    own_.log.line(lost, " batches to address ", destination_,
                  " are lost: its new receiver takes none of their size");
    give_back(lost, lost_bytes);
}

// The receiver's incarnation has ended, or forgotten us. It took batches up to `received`, and nobody will
// report on those that are not acknowledged; those after it wait for the next incarnation.
void Link::end_session(std::uint64_t received) {
    if (session_ == 0) return;
    std::uint64_t lost = 0;
    std::uint64_t lost_bytes = 0;
    while (!unhandled_.empty() && unhandled_.front().first <= received) {
        const Packet& packet = unhandled_.front();
        lost += packet.last() - std::max(handled_, packet.first - 1);
        lost_bytes += packet.batch_bytes();
        unhandled_.pop_front();
    }
    session_ = 0;
    next_ = 1;
    handled_ = 0;
    {
        const std::lock_guard locked(lock_);
        waiting_.insert(waiting_.begin(), std::make_move_iterator(unhandled_.begin()),
                        std::make_move_iterator(unhandled_.end()));
        unhandled_.clear();
    }
    if (lost != 0) {
        count(own_.counters.lost_batches, lost);
        own_.log.line(lost, " batches to address ", destination_,
                      " are lost: their receiver ended before it said that it had handled them");
    }
    set_up(false);
    give_back(lost, lost_bytes);
}

void Link::acknowledge(std::uint64_t handled) {
    if (handled <= handled_) return;
    std::uint64_t bytes = 0;
    std::vector<SharedBuffer> spares;
    while (!unhandled_.empty() && unhandled_.front().last() <= handled) {
        Packet& packet = unhandled_.front();
        bytes += packet.batch_bytes();
        if (packet.capacity == kPacketBytes && !packet.bytes.is_lent())
            spares.push_back(std::move(packet.bytes));
        unhandled_.pop_front();
    }
    give_back(handled - std::exchange(handled_, handled), bytes, std::move(spares));
}

void Link::give_back(std::uint64_t batches, std::uint64_t bytes, std::vector<SharedBuffer> spares) {
    bool has_waiting = false;
    {
        const std::lock_guard locked(lock_);
        while (!spares.empty() && spares_.size() < kMostSpares) {
            spares_.push_back(std::move(spares.back()));
            spares.pop_back();
        }
        batches_ -= static_cast<std::uint32_t>(batches);
        bytes_ -= bytes;
        has_waiting = waiting_senders_ != 0;
    }
    if (has_waiting) changed_.notify_all();
}

void Link::set_up(bool up) {
    const auto now = Clock::now();
    serving_ = up;
    next_hello_ = now;
    next_ping_ = now + kPing;
    heard_ = now;
    {
        const std::lock_guard locked(lock_);
        up_ = up;
    }
    changed_.notify_all();
}

void Link::send_again_after(std::uint64_t received) {
    const auto now = Clock::now();
    if (now - sent_again_ < kSendAgain) return;  // the first answers may still be about the packets before
    sent_again_ = now;
    for (const Packet& packet : unhandled_) {
        if (packet.first > received && !transmit(packet)) return;
    }
}

void Link::send_waiting() {
    std::deque<Packet> packets = take_waiting();
    while (!packets.empty()) {
        Packet& packet = packets.front();
        // Filled for a receiver that took more, or before it said how much.
        if (!unhandled_.empty() && next_ - 1 - handled_ + packet.count > window_) break;
        number(packet);
        if (!transmit(packet)) break;
        next_ += packet.count;
        unhandled_.push_back(std::move(packet));
        packets.pop_front();
    }
    if (packets.empty()) return;
    const std::lock_guard locked(lock_);
    waiting_.insert(waiting_.begin(), std::make_move_iterator(packets.begin()),
                    std::make_move_iterator(packets.end()));
}

// All that are full; and the last, unless it is held.
std::deque<Link::Packet> Link::take_waiting() {
    std::deque<Packet> packets;
    const std::lock_guard locked(lock_);
    held_ = unhandled_.size() + waiting_.size() > kEnoughPackets;
    packets.swap(waiting_);
    hold_ends_ = Clock::time_point::max();
    if (held_ && !packets.empty() && packets.back().begun + kMostHeld > Clock::now()) {
        hold_ends_ = packets.back().begun + kMostHeld;
        waiting_.push_back(std::move(packets.back()));
        packets.pop_back();
    }
    return packets;
}

void Link::number(Packet& packet) const {
    if (packet.bytes
            .is_lent()) {  // it was sent in an earlier session, to a connection that may not be gone yet
        SharedBuffer copy(packet.capacity);
        std::memcpy(copy.data(), packet.bytes.data(), packet.size);
        packet.bytes = std::move(copy);
    }
    packet.first = next_;
    write_packet(packet.bytes.data(), Data{session_, packet.first, packet.count, 0});
}

bool Link::transmit(const Packet& packet) {
    bool sent = false;
    if (packet.size < kWorthSharing) {
        sent = transmit(Bytes(packet.bytes.data(), packet.size));
    } else {
        zmq::message_t message(packet.bytes.data(), packet.size, SharedBuffer::give_back,
                               packet.bytes.lend());
        sent = socket_.send(message, zmq::send_flags::dontwait).has_value();
    }
    if (!sent) set_up(false);  // the connection is gone
    return sent;
}

bool Link::transmit(Bytes bytes) {
    zmq::message_t message(bytes.data(), bytes.size());
    return socket_.send(message, zmq::send_flags::dontwait).has_value();
}

void Link::say_hello() {
    std::array<std::uint8_t, Hello::kBytes> bytes;
    write_packet(bytes.data(), Hello{own_.address, destination_, incarnation_});
    const bool sent = transmit(Bytes(bytes));
    bool wanted = false;
    {
        const std::lock_guard locked(lock_);
        wanted = waiting_senders_ != 0 || batches_ != 0;
    }
    next_hello_ = Clock::now() + (sent ? kWelcomeWait : wanted ? kHelloAgain : kHelloIdle);
}

void Link::ping() {
    std::array<std::uint8_t, Ping::kBytes> bytes;
    write_packet(bytes.data(), Ping{session_, next_ - 1});
    if (!transmit(Bytes(bytes))) set_up(false);
    next_ping_ = Clock::now() + (unhandled_.empty() ? std::chrono::milliseconds(kPingIdle) : kPing);
}

}  // namespace vorn
