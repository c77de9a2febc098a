// SPDX-License-Identifier: Apache-2.0
// Watching ipc: and tcp:. A thread asks each receiver for copies, again every second: a watcher that ends
// without a word is soon forgotten.
#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <map>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include <zmq.hpp>

#include "vorn/core/transport.h"
#include "vorn/zmq/zmq_endpoints.h"
#include "vorn/zmq/zmq_service.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

constexpr auto kAgain = 1s;         // while the receiver answers
constexpr auto kAnswerWait = 50ms;  // until it does
constexpr auto kTurn = 10ms;        // how soon a connection that is there again is used
constexpr auto kRescan = 100ms;
constexpr auto kPresent = 3s;
constexpr int kMessagesATurn = 256;
constexpr int kMostSockets = 65536;
constexpr std::int64_t kLargestMessage = (64U << 20) + (1 << 20);

class ZmqCopies final : public Copies {
  public:
    ZmqCopies(zmq::message_t&& message, const Data& data, std::uint64_t taken_at)
        : message_(std::move(message)) {
        bytes = Bytes(message_.data<std::uint8_t>(), message_.size()).subspan(Data::kBytes);
        batches = data.count;
        time = taken_at;
    }

  private:
    zmq::message_t message_;
};

// One receiver that is watched.
class Watched {
  public:
    Watched(zmq::context_t& context, const std::string& endpoint, const WatchEndpoint& own)
        : own_(own), socket_(context, zmq::socket_type::dealer) {
        socket_.set(zmq::sockopt::immediate, true);
        socket_.set(zmq::sockopt::linger, 100);  // for the last word
        socket_.set(zmq::sockopt::ipv6, true);
        socket_.set(zmq::sockopt::rcvhwm, 10000);
        socket_.set(zmq::sockopt::reconnect_ivl, 10);
        socket_.set(zmq::sockopt::reconnect_ivl_max, 200);
        socket_.set(zmq::sockopt::heartbeat_ivl, 1000);
        socket_.set(zmq::sockopt::heartbeat_timeout, 3000);
        socket_.set(zmq::sockopt::maxmsgsize, kLargestMessage);
        socket_.connect(endpoint);
    }
    ~Watched() {
        try {
            if (session_ != 0) send_watch(0);
        } catch (const zmq::error_t&) {  // NOLINT(bugprone-empty-catch): the receiver forgets us all the same
        }
    }
    Watched(const Watched&) = delete;
    Watched& operator=(const Watched&) = delete;

    zmq::socket_ref socket() { return socket_; }
    bool is_present(Clock::time_point now) const { return session_ != 0 && now - heard_ < kPresent; }

    // False: there is nothing more to do now.
    bool serve(Clock::time_point now) {
        bool busy = false;
        for (int turn = 0; turn < kMessagesATurn && receive(); ++turn) busy = true;
        const bool connected = (socket_.get(zmq::sockopt::events) & ZMQ_POLLOUT) != 0;
        if (!connected) {
            connected_ = false;
        } else if (!connected_ || now >= next_ || bytes_ >= own_.queue_bytes / 4 || copies_ >= 1000) {
            connected_ = send_watch(own_.queue_bytes);
            next_ = now + (is_present(now) ? std::chrono::milliseconds(kAgain) : kAnswerWait);
            bytes_ = 0;
            copies_ = 0;
        }
        return busy;
    }

  private:
    bool send_watch(std::uint32_t window) {
        std::array<std::uint8_t, Watch::kBytes> bytes;
        write_packet(bytes.data(), Watch{name_, session_, seen_, window, 0});
        zmq::message_t message(bytes.data(), bytes.size());
        return socket_.send(message, zmq::send_flags::dontwait).has_value();
    }

    bool receive() {
        zmq::message_t first;
        if (!socket_.recv(first, zmq::recv_flags::dontwait)) return false;
        zmq::message_t second;
        int parts = 1;
        for (bool more = first.more(); more; ++parts) {
            zmq::message_t part;
            if (!socket_.recv(part, zmq::recv_flags::dontwait)) break;
            more = part.more();
            if (parts == 1) second = std::move(part);
        }
        const Bytes head(first.data<std::uint8_t>(), first.size());
        if (const auto watching = read_watching(head); watching && parts == 1) {
            if (begin(watching->watcher, watching->session)) see(watching->taken + 1);
        } else if (const auto copy = read_copy(head); copy && parts == 2) {
            take(*copy, std::move(second));
        } else {
            damaged();
        }
        return true;
    }

    void take(const Copy& copy, zmq::message_t&& message) {
        const auto data = read_data(Bytes(message.data<std::uint8_t>(), message.size()));
        if (!data) return damaged();
        // Numbers that go back are of an older connection.
        if (!begin(copy.watcher, copy.session) || copy.first <= seen_) return;
        see(copy.first);
        seen_ = copy.first + data->count - 1;
        bytes_ += message.size();
        ++copies_;
        try {
            own_.queue.put(std::make_unique<ZmqCopies>(std::move(message), *data, copy.time));
        } catch (const std::bad_alloc&) {
            count(own_.counters.lost_batches, data->count);
        }
    }

    // False: not for us.
    bool begin(std::uint64_t watcher, std::uint64_t session) {
        if (watcher != name_) return false;
        heard_ = Clock::now();
        if (session == session_) return true;
        if (session_ != 0) count(own_.counters.interruptions);
        session_ = session;
        seen_ = 0;
        return true;
    }

    // The next batch, if there is one, has this number; those between are lost.
    void see(std::uint64_t next) {
        if (next <= seen_ + 1) return;
        count(own_.counters.lost_batches, next - 1 - seen_);
        seen_ = next - 1;
    }

    void damaged() {
        count(own_.counters.damaged);
        own_.log.line_about_outside("a damaged copy was left out");
    }

    const WatchEndpoint& own_;
    const std::uint64_t name_ = random_name();
    zmq::socket_t socket_;
    std::uint64_t session_ = 0;
    std::uint64_t seen_ = 0;
    std::uint64_t bytes_ = 0;  // and copies, since the last word to the receiver
    int copies_ = 0;
    bool connected_ = false;
    Clock::time_point next_;
    Clock::time_point heard_;
};

class ZmqWatcher final : public Watcher {
  public:
    ZmqWatcher(std::unique_ptr<ZmqEndpoints> endpoints, WatchEndpoint own)
        : endpoints_(std::move(endpoints)), own_(std::move(own)) {
        context_.set(zmq::ctxopt::max_sockets, kMostSockets);
    }
    ~ZmqWatcher() override {
        if (!service_.joinable()) return;
        ends_ = true;
        notifier_.notify();
        service_.join();
    }

    Result open() override {
        if (own_.addresses.empty() && !endpoints_->can_list()) {
            own_.log.line("name the addresses to watch; only an ipc folder shows them");
            return VORN_BUS_BAD_ARGUMENT;
        }
        for (const std::uint32_t address : own_.addresses) {
            if (!add(address)) return VORN_BUS_BAD_URL;
        }
        service_ = start_thread([this] { serve(); });
        return VORN_BUS_OK;
    }

    std::uint64_t receivers() override { return receivers_.load(std::memory_order_relaxed); }

  private:
    bool add(std::uint32_t address) {
        auto& watched = watched_[address];
        if (watched != nullptr) return true;
        const auto endpoint = endpoints_->endpoint(address);
        if (endpoint) try {
                watched = std::make_unique<Watched>(context_, *endpoint, own_);
                return true;
            } catch (const zmq::error_t& error) {
                own_.log.line_about_outside(*endpoint, ": ", error.what());
            }
        watched_.erase(address);
        return false;
    }

    // Sockets that are new in the folder; and not those any more whose file is gone, once they are silent.
    void rescan(Clock::time_point now) {
        std::error_code error;  // a folder that is not there yet is empty
        const std::vector<std::uint32_t> there = endpoints_->list(error);
        for (const std::uint32_t address : there) add(address);
        std::erase_if(watched_, [&](const auto& entry) {
            return !std::binary_search(there.begin(), there.end(), entry.first) &&
                   !entry.second->is_present(now);
        });
    }

    void serve() {
        std::vector<zmq::pollitem_t> items;
        Clock::time_point next_scan;
        while (!ends_) try {
                const auto now = Clock::now();
                if (own_.addresses.empty() && now >= next_scan) {
                    rescan(now);
                    next_scan = now + kRescan;
                }
                bool busy = false;
                std::uint64_t present = 0;
                for (const auto& [address, watched] : watched_) {
                    busy |= watched->serve(now);
                    if (watched->is_present(now)) ++present;
                }
                receivers_.store(present, std::memory_order_relaxed);
                if (busy || !notifier_.may_sleep()) continue;
                items.clear();
                items.push_back({nullptr, notifier_.descriptor(), ZMQ_POLLIN, 0});
                for (const auto& [address, watched] : watched_)
                    items.push_back({watched->socket().handle(), 0, ZMQ_POLLIN, 0});
                zmq::poll(items, kTurn);
                notifier_.woken();
            } catch (const std::exception& fault) {
                own_.log.line_about_outside("the watching thread tries again: ", fault.what());
                std::this_thread::sleep_for(kAfterFault);
            }
        watched_.clear();  // in the thread that uses their sockets
    }

    std::unique_ptr<ZmqEndpoints> endpoints_;
    const WatchEndpoint own_;
    Notifier notifier_;
    zmq::context_t context_{1};
    std::map<std::uint32_t, std::unique_ptr<Watched>> watched_;
    std::atomic<std::uint64_t> receivers_ = 0;
    std::atomic<bool> ends_ = false;
    std::thread service_;
};

Result make(std::unique_ptr<ZmqEndpoints> endpoints, const WatchEndpoint& endpoint,
            std::unique_ptr<Watcher>& made) {
    if (endpoints == nullptr) return VORN_BUS_BAD_URL;
    made = std::make_unique<ZmqWatcher>(std::move(endpoints), endpoint);
    return VORN_BUS_OK;
}

}  // namespace

Result watch_ipc(const std::string& rest, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made) {
    return make(ipc_endpoints(rest), endpoint, made);
}
Result watch_tcp(const std::string& rest, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made) {
    return make(tcp_endpoints(rest), endpoint, made);
}

}  // namespace vorn
