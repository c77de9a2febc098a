// SPDX-License-Identifier: Apache-2.0
// ipc:// and tcp:// by ZeroMQ. One thread of each bus owns all its sockets; senders and pollers meet it at
// queues.
#include <algorithm>
#include <array>
#include <atomic>
#include <exception>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>
#include <zmq.hpp>

#include "vorn/zmq/zmq_endpoints.h"
#include "vorn/zmq/zmq_link.h"
#include "vorn/zmq/zmq_receiver.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::milliseconds kLongestSleep = 1s;
constexpr std::chrono::milliseconds kClosingSleep = 10ms;

class ZmqTransport final : public Transport {
  public:
    ZmqTransport(std::unique_ptr<ZmqEndpoints> endpoints, const Endpoint& own)
        : endpoints_(std::move(endpoints)), own_(own), receiver_(own, context_, notifier_) {}

    ~ZmqTransport() override {
        if (service_.joinable()) {
            ends_ = true;
            notifier_.notify();
            service_.join();
        }
        for (const auto& [destination, link] : links_) {
            if (const std::uint32_t left = link->batches(); left != 0)
                count(own_.counters.lost_batches, left);
        }
    }

    Result open() override {
        const auto endpoint = endpoints_->endpoint(own_.address);
        if (!endpoint) return VORN_BUS_BAD_URL;
        if (const Result result = endpoints_->before_bind(own_.address, own_.log); result != VORN_BUS_OK)
            return result;
        try {
            receiver_.bind(*endpoint);
        } catch (const zmq::error_t& error) {
            endpoints_->after_unbind(own_.address);
            if (error.num() == EADDRINUSE) return VORN_BUS_ADDRESS_TAKEN;
            own_.log.line(*endpoint, ": ", error.what());
            return error.num() == EINVAL || error.num() == ENODEV ? VORN_BUS_BAD_URL : VORN_BUS_SYSTEM_ERROR;
        }
        endpoints_->after_bind(own_.address);
        service_ = start_thread([this] { serve(); });
        return VORN_BUS_OK;
    }

    void stop_receiving() override {
        if (!service_.joinable()) return;
        receiver_closes_ = true;
        notifier_.notify();
        receiver_closes_.wait(true);  // until the service thread has closed it
    }

    Result send(const Outgoing& batch, SendTimeout& timeout) override {
        Link* const link = link_to(batch.header.destination);
        return link == nullptr ? VORN_BUS_BAD_URL : link->send(batch, timeout);
    }

    bool drain(Deadline deadline) override {
        for (auto link = next_link(std::nullopt); link.second != nullptr; link = next_link(link.first)) {
            if (!link.second->wait_until_empty(deadline)) return false;
        }
        return true;
    }

    std::uint64_t batches_on_their_way() override {
        const std::lock_guard locked(links_lock_);
        std::uint64_t batches = 0;
        for (const auto& [destination, link] : links_) batches += link->batches();
        return batches;
    }

    std::string endpoint() const override { return endpoints_->endpoint(own_.address).value_or(""); }

  private:
    // Links are never removed while the bus is open, so that pointers to them stay valid.
    Link* link_to(std::uint32_t destination) {
        const std::lock_guard locked(links_lock_);
        if (const auto found = links_.find(destination); found != links_.end()) return found->second.get();
        const auto endpoint = endpoints_->endpoint(destination);
        if (!endpoint) return nullptr;
        auto link = std::make_unique<Link>(own_, destination, incarnation_, *endpoint, context_, notifier_);
        Link* const made = link.get();
        links_.emplace(destination, std::move(link));
        ++links_version_;
        return made;
    }

    std::vector<Link*> links() {
        const std::lock_guard locked(links_lock_);
        std::vector<Link*> all;
        for (const auto& [destination, link] : links_) all.push_back(link.get());
        return all;
    }

    // The link to the smallest destination above `last`, or of all; null: there is none.
    std::pair<std::uint32_t, Link*> next_link(std::optional<std::uint32_t> last) {
        const std::lock_guard locked(links_lock_);
        const auto next = last ? links_.upper_bound(*last) : links_.begin();
        if (next == links_.end()) return {};
        return {next->first, next->second.get()};
    }

    void serve() {
        std::vector<Link*> served;
        std::vector<zmq::pollitem_t> items;
        std::uint64_t version = UINT64_MAX;
        while (!ends_) try {
                if (version != links_version_) {
                    const std::uint64_t seen = links_version_;
                    served = links();
                    version = seen;
                }
                if (receiver_closes_) receiver_.say_goodbye();
                if (receiver_closes_ && receiver_.may_close()) {
                    receiver_.close();
                    endpoints_->after_unbind(own_.address);
                    receiver_closes_ = false;
                    receiver_closes_.notify_all();
                }
                bool busy = receiver_.receive();
                busy |= receiver_.acknowledge();
                auto wake = Clock::now() + (receiver_closes_ ? kClosingSleep : kLongestSleep);
                for (Link* const link : served) wake = std::min(wake, link->serve());
                if (busy || !notifier_.may_sleep()) continue;

                items.clear();
                items.push_back({nullptr, notifier_.descriptor(), ZMQ_POLLIN, 0});
                if (receiver_.is_open()) items.push_back({receiver_.socket().handle(), 0, ZMQ_POLLIN, 0});
                for (Link* const link : served) items.push_back({link->socket().handle(), 0, ZMQ_POLLIN, 0});
                const auto sleep = std::chrono::ceil<std::chrono::milliseconds>(wake - Clock::now());
                zmq::poll(items, std::max(sleep, std::chrono::milliseconds(0)));
                notifier_.woken();
            } catch (const std::exception& fault) {
                own_.log.line_about_outside("the bus's thread tries again: ", fault.what());
                std::this_thread::sleep_for(kAfterFault);
            }
    }

    std::unique_ptr<ZmqEndpoints> endpoints_;
    const Endpoint own_;
    const std::uint64_t incarnation_ = random_name();
    Notifier notifier_;
    zmq::context_t context_{1};
    Receiver receiver_;

    std::mutex links_lock_;
    std::map<std::uint32_t, std::unique_ptr<Link>> links_;
    std::atomic<std::uint64_t> links_version_ = 0;

    std::atomic<bool> ends_ = false;
    std::atomic<bool> receiver_closes_ = false;
    std::thread service_;
};

Result make(std::unique_ptr<ZmqEndpoints> endpoints, const Endpoint& endpoint,
            std::unique_ptr<Transport>& made) {
    if (endpoints == nullptr) return VORN_BUS_BAD_URL;
    made = std::make_unique<ZmqTransport>(std::move(endpoints), endpoint);
    return VORN_BUS_OK;
}

Result ask(const std::unique_ptr<ZmqEndpoints>& endpoints, std::uint32_t address, Deadline deadline, Log& log,
           vorn_bus_counters& counters) {
    if (endpoints == nullptr) return VORN_BUS_BAD_URL;
    const auto endpoint = endpoints->endpoint(address);
    if (!endpoint) return VORN_BUS_BAD_URL;
    try {
        zmq::context_t context(1);
        zmq::socket_t socket(context, zmq::socket_type::dealer);
        socket.set(zmq::sockopt::linger, 0);
        socket.set(zmq::sockopt::ipv6, true);
        socket.set(zmq::sockopt::reconnect_ivl, 10);
        socket.connect(*endpoint);
        std::array<std::uint8_t, kPreambleBytes> bytes;
        put_preamble(bytes.data(), Kind::ask);
        zmq::message_t question(bytes.data(), bytes.size());
        socket.send(question, zmq::send_flags::dontwait);
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
        socket.set(zmq::sockopt::rcvtimeo, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
        zmq::message_t reply;
        const BlockedSignals blocked;  // one of them would end the wait
        if (!socket.recv(reply)) return VORN_BUS_NO_PEER;
        CounterNumbers values = {};
        if (!read_counters(Bytes(reply.data<std::uint8_t>(), reply.size()), values))
            return VORN_BUS_SYSTEM_ERROR;
        counters = from_numbers(values);
        return VORN_BUS_OK;
    } catch (const zmq::error_t& error) {
        log.line(*endpoint, ": ", error.what());
        return VORN_BUS_BAD_URL;
    }
}

}  // namespace

Result make_ipc(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    return make(ipc_endpoints(rest), endpoint, made);
}
Result make_tcp(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    return make(tcp_endpoints(rest), endpoint, made);
}
Result ask_ipc(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
               vorn_bus_counters& counters) {
    return ask(ipc_endpoints(rest), address, deadline, log, counters);
}
Result ask_tcp(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
               vorn_bus_counters& counters) {
    return ask(tcp_endpoints(rest), address, deadline, log, counters);
}

}  // namespace vorn
