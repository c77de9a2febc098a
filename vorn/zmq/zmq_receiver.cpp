// SPDX-License-Identifier: Apache-2.0
#include "vorn/zmq/zmq_receiver.h"

#include <time.h>

#include <algorithm>
#include <array>
#include <bit>
#include <new>
#include <utility>
#include <vector>

namespace vorn {
namespace {

using namespace std::chrono_literals;

constexpr int kMessagesATurn = 64;
constexpr std::size_t kMostSessions = 4096;
constexpr auto kForgetAfter = 10min;
constexpr auto kGoodbyeWait = 300ms;
constexpr auto kPresent = 3s;            // senders that are there ping more often
constexpr auto kAcknowledgeAfter = 5ms;  // where handlers are slow, and a delivery holds many batches

// Watchers. A copy costs the socket some memory beside its bytes; the socket's own limit is above.
constexpr std::size_t kMostWatchers = 64;
constexpr auto kWatcherSilence = 3s;
constexpr std::uint64_t kMostWindow = 64U << 20;
constexpr std::uint64_t kCopyCost = 256;
constexpr std::size_t kMostCopies = 8000;
constexpr int kMostAnswers = 10000;

// The time of the kernel's last tick, a few milliseconds old: this is read for each batch.
struct CoarseClock {
    using duration = std::chrono::nanoseconds;
    using rep = duration::rep;
    using period = duration::period;
    using time_point = std::chrono::time_point<CoarseClock>;
    static time_point now() {
        timespec read = {};
        clock_gettime(CLOCK_MONOTONIC_COARSE, &read);
        return time_point(std::chrono::seconds(read.tv_sec) + std::chrono::nanoseconds(read.tv_nsec));
    }
};

constexpr std::uint32_t kSmallestBatch = kBatchHeaderBytes + kEntryBytes;

class ZmqDelivery final : public Delivery {
  public:
    ZmqDelivery(zmq::message_t&& message, std::shared_ptr<Receiver::Session> session, const Data& data,
                Notifier& notifier)
        : message_(std::move(message)),
          session_(std::move(session)),
          number_(data.first - 1),
          last_(data.first - 1 + data.count),
          notifier_(notifier) {
        session_->waiting_bytes.fetch_add(message_.size(), std::memory_order_relaxed);
        bytes = Bytes(message_.data<std::uint8_t>(), message_.size()).subspan(Data::kBytes);
        batches = data.count;
    }

    ~ZmqDelivery() override { session_->waiting_bytes.fetch_sub(message_.size(), std::memory_order_relaxed); }

    void batch_handled() override {
        session_->handled.store(++number_, std::memory_order_release);
        const auto now = CoarseClock::now();
        if (now - acknowledged_ < kAcknowledgeAfter) return;
        acknowledged_ = now;
        notifier_.notify();
    }
    void left_for_later() override { notifier_.notify(); }
    void finished() override {
        session_->handled.store(last_, std::memory_order_release);
        notifier_.notify();
    }

  private:
    zmq::message_t message_;
    std::shared_ptr<Receiver::Session> session_;
    std::uint64_t number_;  // of the batch handled last
    std::uint64_t last_;
    Notifier& notifier_;
    CoarseClock::time_point acknowledged_ = CoarseClock::now();
};

}  // namespace

Receiver::Receiver(const Endpoint& own, zmq::context_t& context, Notifier& notifier)
    : own_(own), notifier_(notifier), socket_(context, zmq::socket_type::router) {
    socket_.set(zmq::sockopt::linger, 500);  // for the goodbyes
    socket_.set(zmq::sockopt::ipv6, true);
    socket_.set(zmq::sockopt::sndhwm, kMostAnswers);
    socket_.set(zmq::sockopt::handshake_ivl, 5000);  // connections that never speak are closed
    socket_.set(zmq::sockopt::maxmsgsize, std::int64_t{own.batch_bytes} + (1 << 20));
}

void Receiver::bind(const std::string& endpoint) {
    socket_.bind(endpoint);
    open_ = true;
}

bool Receiver::receive() {
    if (!open_) return false;
    zmq::message_t route;
    zmq::message_t message;
    int turn = 0;
    for (; turn < kMessagesATurn && socket_.recv(route, zmq::recv_flags::dontwait); ++turn) {
        int parts = 0;
        bool more = route.more();
        while (more) {
            zmq::message_t part;
            if (!socket_.recv(part, zmq::recv_flags::dontwait)) break;
            more = part.more();
            if (parts++ == 0) message = std::move(part);
        }
        if (parts == 1) {
            receive(route.to_string(), message);
        } else {
            damaged("a message of other than one part");
        }
    }
    return turn != 0;
}

void Receiver::receive(const std::string& route, zmq::message_t& message) {
    const Bytes bytes(message.data<std::uint8_t>(), message.size());
    const auto kind = kind_of(bytes);
    if (closes_at_) {
        if (const auto packet = read_ping(bytes)) unanswered_.erase(packet->session);
        return;
    }
    if (kind == Kind::data) {
        const auto packet = read_data(bytes);
        return packet ? data(route, *packet, message) : damaged("batches");
    }
    if (kind == Kind::hello) {
        const auto packet = read_hello(bytes);
        return packet ? hello(route, *packet) : damaged("a hello");
    }
    if (kind == Kind::ping) {
        const auto packet = read_ping(bytes);
        return packet ? ping(route, *packet) : damaged("a ping");
    }
    if (kind == Kind::watch) {
        const auto packet = read_watch(bytes);
        return packet ? watch(route, *packet) : damaged("a watch");
    }
    if (kind == Kind::ask && bytes.size() == kPreambleBytes) return ask(route);
    damaged("something");
}

void Receiver::damaged(const char* what) {
    count(own_.counters.damaged);
    own_.log.line_about_outside(what, " arrived damaged, and was left out");
}

void Receiver::hello(const std::string& route, const Hello& packet) {
    if (packet.destination != own_.address) {
        own_.log.line_about_outside("address ", packet.source, " looks for address ", packet.destination,
                                    " here");
        return;
    }
    auto& session = by_incarnation_[packet.incarnation];
    if (session == nullptr) {
        const auto made = std::make_shared<Session>();
        made->name = random_name();
        made->incarnation = packet.incarnation;
        made->source = packet.source;
        sessions_[made->name] = made;
        session = made;
    }
    session->route = route;
    session->heard = Clock::now();
    const std::uint64_t handled = session->handled.load(std::memory_order_acquire);
    session->acknowledged = handled;
    answer(route, Welcome{own_.queue_batches, own_.batch_bytes, session->name, session->received, handled});
    forget_the_silent();
}

Receiver::Session* Receiver::find(const std::string& route, std::uint64_t name) {
    const auto found = sessions_.find(name);
    if (found == sessions_.end()) {
        answer(route, Reset{name});
        return nullptr;
    }
    Session& session = *found->second;
    if (session.route != route) session.route = route;
    session.heard = Clock::now();
    return &session;
}

void Receiver::data(const std::string& route, const Data& packet, zmq::message_t& message) {
    Session* const session = find(route, packet.session);
    if (session == nullptr) return;
    if (packet.first > session->received + 1) return send_ack(*session, kBatchIsMissing);
    if (packet.first <= session->received) {
        count(own_.counters.redelivered_batches, packet.count);
        return;  // the next ping is answered
    }
    if (packet.count > (message.size() - Data::kBytes) / kSmallestBatch) {
        return damaged("more batches than there may be");
    }
    // What does not fit stays with the sender, which asks again. One packet is always taken: it may be one
    // that was filled for a receiver that took more.
    const std::uint64_t waiting = session->received - session->handled.load(std::memory_order_acquire);
    const std::uint64_t waiting_bytes = session->waiting_bytes.load(std::memory_order_relaxed);
    if (waiting != 0 &&
        (waiting + packet.count > own_.queue_batches ||
         waiting_bytes + message.size() > std::uint64_t{own_.queue_bytes} + own_.batch_bytes)) {
        return;
    }
    zmq::message_t copied;
    if (!watchers_.empty()) copied.copy(message);  // of its reference
    if (!own_.inbox.put(std::make_unique<ZmqDelivery>(std::move(message), sessions_[packet.session], packet,
                                                      notifier_))) {
        return;
    }
    session->received += packet.count;
    if (!watchers_.empty()) copy_to_watchers(packet, copied);
}

void Receiver::watch(const std::string& route, const Watch& packet) {
    if (packet.window == 0) {
        watchers_.erase(packet.watcher);
        return;
    }
    auto found = watchers_.find(packet.watcher);
    if (found == watchers_.end()) {
        std::erase_if(watchers_, [now = Clock::now()](const auto& entry) {
            return now - entry.second.heard > kWatcherSilence;
        });
        if (watchers_.size() == kMostWatchers) {
            own_.log.line_about_outside("there are ", kMostWatchers,
                                        " watchers already; one more is not answered");
            return;
        }
        found = watchers_.emplace(packet.watcher, Watcher{}).first;
        found->second.session = random_name();
    }
    Watcher& watcher = found->second;
    watcher.route = route;
    watcher.heard = Clock::now();
    watcher.window = std::min<std::uint64_t>(packet.window, kMostWindow);
    if (packet.session == watcher.session) {
        while (!watcher.copies.empty() && watcher.copies.front().last <= packet.seen) {
            watcher.bytes -= watcher.copies.front().bytes;
            watcher.copies.pop_front();
        }
    }
    answer(route, Watching{packet.watcher, watcher.session, watcher.taken});
}

// Batches keep their numbers where the copy does not fit, so that the watcher knows what it misses.
void Receiver::copy_to_watchers(const Data& packet, zmq::message_t& message) {
    const auto now = Clock::now();
    const std::uint64_t time = nanoseconds_now();
    for (auto at = watchers_.begin(); at != watchers_.end();) {
        Watcher& watcher = at->second;
        if (now - watcher.heard > kWatcherSilence) {
            at = watchers_.erase(at);
            continue;
        }
        const std::uint64_t first = watcher.taken + 1;
        watcher.taken += packet.count;
        const std::uint64_t bytes = message.size() + kCopyCost;
        const bool fits = watcher.bytes == 0 || watcher.bytes + bytes <= watcher.window;
        if (fits && watcher.copies.size() < kMostCopies) {
            std::array<std::uint8_t, Copy::kBytes> head;
            write_packet(head.data(), Copy{at->first, watcher.session, first, time});
            zmq::message_t to(watcher.route.data(), watcher.route.size());
            zmq::message_t head_part(head.data(), head.size());
            zmq::message_t copied;
            copied.copy(message);
            // Nothing of it is sent where memory is lacking, or the connection is gone or full: the watcher
            // counts it by the numbers.
            try {
                watcher.copies.push_back({watcher.taken, bytes});
            } catch (const std::bad_alloc&) {
                ++at;
                continue;
            }
            if (socket_.send(to, zmq::send_flags::sndmore | zmq::send_flags::dontwait) &&
                socket_.send(head_part, zmq::send_flags::sndmore | zmq::send_flags::dontwait)) {
                static_cast<void>(socket_.send(copied, zmq::send_flags::dontwait));
                watcher.bytes += bytes;
            } else {
                watcher.copies.pop_back();
            }
        }
        ++at;
    }
}

void Receiver::ping(const std::string& route, const Ping& packet) {
    if (Session* const session = find(route, packet.session)) send_ack(*session, packet.sent);
}

void Receiver::send_ack(Session& session, std::uint64_t sent) {
    session.acknowledged = session.handled.load(std::memory_order_acquire);
    answer(session.route, Ack{session.name, session.received, session.acknowledged, sent});
}

bool Receiver::acknowledge() {
    if (!open_ || closes_at_) return false;
    bool any = false;
    for (const auto& [name, session] : sessions_) {
        if (session->handled.load(std::memory_order_acquire) == session->acknowledged) continue;
        send_ack(*session, 0);
        any = true;
    }
    return any;
}

void Receiver::ask(const std::string& route) {
    vorn_bus_counters counters = {};
    own_.read_counters(own_.bus, counters);
    std::array<std::uint8_t, kCountersHeaderBytes + sizeof(CounterNumbers)> bytes;
    write_counters(bytes.data(), to_numbers(counters));
    answer(route, Bytes(bytes));
}

void Receiver::say_goodbye() {
    if (!open_ || closes_at_) return;
    const auto now = Clock::now();
    closes_at_ = now + kGoodbyeWait;
    for (const auto& [name, session] : sessions_) {
        const std::uint64_t handled = session->handled.load(std::memory_order_acquire);
        answer(session->route, Goodbye{name, session->received, handled});
        if (now - session->heard < kPresent) unanswered_.insert(name);
    }
}

bool Receiver::may_close() const {
    return !open_ || (closes_at_ && (unanswered_.empty() || Clock::now() > *closes_at_));
}

void Receiver::close() {
    if (!open_) return;
    open_ = false;
    socket_.close();
}

// A sender that is silent for so long is gone; if it should come back, it hears that its session is unknown.
void Receiver::forget_the_silent() {
    if (sessions_.size() <= kMostSessions) return;
    const auto now = Clock::now();
    std::erase_if(sessions_, [&](const auto& entry) {
        if (now - entry.second->heard < kForgetAfter) return false;
        by_incarnation_.erase(entry.second->incarnation);
        return true;
    });
}

template <class Packet>
void Receiver::answer(const std::string& route, const Packet& packet) {
    std::array<std::uint8_t, Packet::kBytes> bytes;
    write_packet(bytes.data(), packet);
    answer(route, Bytes(bytes));
}

// To a sender that is gone, or reads nothing, it is dropped: whoever misses an answer pings.
void Receiver::answer(const std::string& route, Bytes bytes) {
    zmq::message_t to(route.data(), route.size());
    if (!socket_.send(to, zmq::send_flags::sndmore | zmq::send_flags::dontwait)) return;
    zmq::message_t message(bytes.data(), bytes.size());
    static_cast<void>(socket_.send(message, zmq::send_flags::dontwait));
}

}  // namespace vorn
