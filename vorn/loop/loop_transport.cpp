// SPDX-License-Identifier: Apache-2.0
// loop:NAME carries batches between the buses of one process, without a thread. NAME, which may be empty,
// keeps loops apart.
#include <algorithm>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/core/window.h"

namespace vorn {
namespace {

class LoopTransport;
class LoopWatcher;

// All loops of the process.
struct Hub {
    std::mutex lock;
    std::condition_variable opened;
    std::map<std::pair<std::string, std::uint32_t>, LoopTransport*> open;
    std::vector<LoopWatcher*> watchers;

    static Hub& instance() {
        static auto* const hub = new Hub;  // never destroyed: buses may be closed while the process ends
        return *hub;
    }
};

std::string endpoint_text(const std::string& name) { return "loop:" + name + ", within this process"; }

class LoopDelivery final : public Delivery {
  public:
    LoopDelivery(const Outgoing& batch, std::shared_ptr<Window> window)
        : storage_(batch.header.bytes), window_(std::move(window)) {
        write_batch(storage_.data(), batch.header, batch.descriptors);
        bytes = storage_;
        batches = 1;
    }
    ~LoopDelivery() override { window_->give_back(static_cast<std::uint32_t>(storage_.size()), !finished_); }
    void finished() override { finished_ = true; }

  private:
    std::vector<std::uint8_t> storage_;
    std::shared_ptr<Window> window_;
    bool finished_ = false;
};

class LoopCopies final : public Copies {
  public:
    explicit LoopCopies(Bytes batch) : storage_(batch.begin(), batch.end()) {
        bytes = storage_;
        batches = 1;
        time = nanoseconds_now();
    }

  private:
    std::vector<std::uint8_t> storage_;
};

class LoopWatcher final : public Watcher {
  public:
    LoopWatcher(std::string name, WatchEndpoint own) : name_(std::move(name)), own_(std::move(own)) {}
    ~LoopWatcher() override {
        Hub& hub = Hub::instance();
        const std::lock_guard locked(hub.lock);
        std::erase(hub.watchers, this);
    }

    Result open() override {
        Hub& hub = Hub::instance();
        const std::lock_guard locked(hub.lock);
        hub.watchers.push_back(this);
        return VORN_BUS_OK;
    }

    std::uint64_t receivers() override {
        Hub& hub = Hub::instance();
        const std::lock_guard locked(hub.lock);
        return static_cast<std::uint64_t>(std::count_if(
            hub.open.begin(), hub.open.end(),
            [this](const auto& entry) { return entry.first.first == name_ && watches(entry.first.second); }));
    }

    // Under the hub's lock. What does not fit is not even copied.
    void see(const std::string& name, std::uint32_t destination, Bytes batch) const noexcept {
        if (name != name_ || !watches(destination)) return;
        try {
            if (own_.queue.has_capacity_for(batch.size())) {
                return own_.queue.put(std::make_unique<LoopCopies>(batch));
            }
        } catch (const std::bad_alloc&) {  // NOLINT(bugprone-empty-catch): the copy is lost
        }
        count(own_.counters.lost_batches);
    }

  private:
    bool watches(std::uint32_t address) const {
        const auto& all = own_.addresses;
        return all.empty() || std::find(all.begin(), all.end(), address) != all.end();
    }

    const std::string name_;
    const WatchEndpoint own_;
};

class LoopTransport final : public Transport {
  public:
    LoopTransport(std::string name, const Endpoint& own) : name_(std::move(name)), own_(own) {}
    ~LoopTransport() override {
        for (const auto& [destination, window] : windows_) window->forget_counters();
    }

    Result open() override {
        if (own_.send_only) return VORN_BUS_OK;
        Hub& hub = Hub::instance();
        const std::lock_guard locked(hub.lock);
        if (!hub.open.emplace(std::pair(name_, own_.address), this).second) return VORN_BUS_ADDRESS_TAKEN;
        hub.opened.notify_all();
        return VORN_BUS_OK;
    }

    void stop_receiving() override {
        Hub& hub = Hub::instance();
        const std::lock_guard locked(hub.lock);
        const auto found = hub.open.find({name_, own_.address});
        if (found != hub.open.end() && found->second == this) hub.open.erase(found);
    }

    Result send(const Outgoing& batch, SendTimeout& timeout) override {
        const std::uint32_t destination = batch.header.destination;
        const auto peer_batches = wait_for_peer(destination, timeout);
        if (!peer_batches) return VORN_BUS_NO_PEER;
        std::shared_ptr<Window> window = window_to(destination);
        if (!window->take(batch.header.bytes, *peer_batches, timeout)) return VORN_BUS_FULL;
        std::unique_ptr<Delivery> delivery = make_delivery(batch, window);
        Hub& hub = Hub::instance();
        std::unique_lock locked(hub.lock);
        const auto peer = hub.open.find({name_, destination});
        if (peer == hub.open.end()) {
            delivery->finished();  // not lost: refused
            return VORN_BUS_NO_PEER;
        }
        if (batch.header.bytes > peer->second->own_.batch_bytes) {
            delivery->finished();
            return VORN_BUS_TOO_LARGE;
        }
        for (const LoopWatcher* const watcher : hub.watchers)
            watcher->see(name_, destination, delivery->bytes);
        try {
            peer->second->own_.inbox.put(std::move(delivery));  // under the lock, so that the peer stays
        } catch (...) {
            delivery->finished();
            throw;
        }
        return VORN_BUS_OK;
    }

    bool drain(Deadline deadline) override {
        for (auto window = next_window(std::nullopt); window.second != nullptr;
             window = next_window(window.first)) {
            if (!window.second->wait_until_empty(deadline)) return false;
        }
        return true;
    }

    std::uint64_t batches_on_their_way() override {
        const std::lock_guard locked(lock_);
        std::uint64_t batches = 0;
        for (const auto& [destination, window] : windows_) batches += window->batches();
        return batches;
    }

    std::string endpoint() const override { return endpoint_text(name_); }

    const Endpoint& own() const { return own_; }

  private:
    static std::unique_ptr<Delivery> make_delivery(const Outgoing& batch,
                                                   const std::shared_ptr<Window>& window) {
        try {
            return std::make_unique<LoopDelivery>(batch, window);
        } catch (...) {
            window->give_back(batch.header.bytes, false);
            throw;
        }
    }

    // What its queue takes; none: nobody came.
    std::optional<std::uint32_t> wait_for_peer(std::uint32_t destination, SendTimeout& timeout) const {
        Hub& hub = Hub::instance();
        std::unique_lock locked(hub.lock);
        const auto there = [&] { return hub.open.contains({name_, destination}); };
        if (!there() && !hub.opened.wait_until(locked, timeout.end(), there)) return std::nullopt;
        return hub.open.at({name_, destination})->own_.queue_batches;
    }

    std::shared_ptr<Window> window_to(std::uint32_t destination) {
        const std::lock_guard locked(lock_);
        auto& window = windows_[destination];
        if (window == nullptr) {
            window = std::make_shared<Window>(own_.queue_batches, own_.queue_bytes, own_.counters);
        }
        return window;
    }

    // The window of the smallest destination above `last`, or of all; null: there is none.
    std::pair<std::uint32_t, std::shared_ptr<Window>> next_window(std::optional<std::uint32_t> last) {
        const std::lock_guard locked(lock_);
        const auto next = last ? windows_.upper_bound(*last) : windows_.begin();
        if (next == windows_.end()) return {};
        return *next;
    }

    std::string name_;
    Endpoint own_;
    std::mutex lock_;
    std::map<std::uint32_t, std::shared_ptr<Window>> windows_;
};

Result make_loop(const BusUrl& url, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    made = std::make_unique<LoopTransport>(url.rest, endpoint);
    return VORN_BUS_OK;
}

Result ask_loop(const BusUrl& url, std::uint32_t address, Deadline /*deadline*/, Log& /*log*/,
                vorn_bus_counters& counters) {
    Hub& hub = Hub::instance();
    const std::lock_guard locked(hub.lock);
    const auto found = hub.open.find({url.rest, address});
    if (found == hub.open.end()) return VORN_BUS_NO_PEER;
    const Endpoint& own = found->second->own();
    own.read_counters(own.bus, counters);
    return VORN_BUS_OK;
}

Result list_loop(const BusUrl& url, Log& /*log*/, std::vector<Listed>& found) {
    Hub& hub = Hub::instance();
    const std::lock_guard locked(hub.lock);
    for (const auto& [key, transport] : hub.open) {
        if (key.first == url.rest) found.push_back({key.second, true, endpoint_text(url.rest), 0});
    }
    return VORN_BUS_OK;
}

Result watch_loop(const BusUrl& url, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made) {
    made = std::make_unique<LoopWatcher>(url.rest, endpoint);
    return VORN_BUS_OK;
}

// Nothing is left of a bus.
Result remove_loop(const BusUrl& url, std::uint32_t address, Log& /*log*/) {
    Hub& hub = Hub::instance();
    const std::lock_guard locked(hub.lock);
    return hub.open.contains({url.rest, address}) ? VORN_BUS_ADDRESS_TAKEN : VORN_BUS_NO_PEER;
}

}  // namespace

const TransportKind kLoop = {make_loop, ask_loop, watch_loop, list_loop, remove_loop, nullptr};

}  // namespace vorn
