// SPDX-License-Identifier: Apache-2.0
// The receiving end of an address: takes each sender's batches in their order, once each, and reports what is
// handled.
#ifndef VORN_ZMQ_RECEIVER_H
#define VORN_ZMQ_RECEIVER_H

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <zmq.hpp>

#include "vorn/core/transport.h"
#include "vorn/zmq/zmq_service.h"

namespace vorn {

// All of it runs in the service thread, except what deliveries report of their batches.
class Receiver {
  public:
    // A sender's incarnation, in this one of ours.
    struct Session {
        std::uint64_t name = 0;
        std::uint64_t incarnation = 0;
        std::uint32_t source = 0;
        std::string route;               // of the sender's present connection
        std::uint64_t received = 0;      // number of the last batch taken
        std::uint64_t acknowledged = 0;  // what was last acknowledged as handled
        std::atomic<std::uint64_t> handled = 0;
        std::atomic<std::uint64_t> waiting_bytes = 0;  // of packets in the inbox
        Clock::time_point heard;
    };

    Receiver(const Endpoint& own, zmq::context_t& context, Notifier& notifier);

    void bind(const std::string& endpoint);  // throws zmq::error_t
    bool is_open() const { return open_; }
    zmq::socket_ref socket() { return socket_; }

    // Takes what has arrived, up to a limit, so that others get their turn. False: nothing had.
    bool receive();

    // Reports to senders what is handled. False: there was nothing to report.
    bool acknowledge();

    // Sends goodbye to all senders, and takes no more batches. The socket stays open for a moment, until each
    // has answered: what a sender has not read when the connection ends never reaches it.
    void say_goodbye();
    bool may_close() const;
    void close();

  private:
    // Who is sent copies of what is taken, until it ends that or is silent.
    struct Watcher {
        struct OnItsWay {
            std::uint64_t last;  // number of its last batch
            std::uint64_t bytes;
        };
        std::string route;
        std::uint64_t session = 0;
        std::uint64_t taken = 0;  // batches since it came
        std::uint64_t window = 0;
        std::uint64_t bytes = 0;  // of the copies on their way
        std::deque<OnItsWay> copies;
        Clock::time_point heard;
    };

    void receive(const std::string& route, zmq::message_t& message);
    void hello(const std::string& route, const Hello& packet);
    void data(const std::string& route, const Data& packet, zmq::message_t& message);
    void ping(const std::string& route, const Ping& packet);
    void ask(const std::string& route);
    void watch(const std::string& route, const Watch& packet);
    void copy_to_watchers(const Data& packet, zmq::message_t& message);
    void damaged(const char* what);
    Session* find(const std::string& route, std::uint64_t name);
    void send_ack(Session& session, std::uint64_t sent);
    void forget_the_silent();

    template <class Packet>
    void answer(const std::string& route, const Packet& packet);
    void answer(const std::string& route, Bytes bytes);

    const Endpoint own_;
    Notifier& notifier_;
    zmq::socket_t socket_;
    bool open_ = false;
    std::set<std::uint64_t> unanswered_;  // sessions that have not answered the goodbye
    std::optional<Clock::time_point> closes_at_;
    std::unordered_map<std::uint64_t, std::shared_ptr<Session>> sessions_;  // by name
    std::unordered_map<std::uint64_t, std::shared_ptr<Session>> by_incarnation_;
    std::unordered_map<std::uint64_t, Watcher> watchers_;  // by name
};

}  // namespace vorn

#endif
