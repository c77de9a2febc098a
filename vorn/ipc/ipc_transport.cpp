// SPDX-License-Identifier: Apache-2.0
// ipc://FOLDER carries batches between the processes of a machine: through a ring in shared memory for each
// sender and receiver, which those two write and read themselves.
#include <sys/poll.h>

#include <array>
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/ipc/folder.h"
#include "vorn/ipc/ipc_receiver.h"
#include "vorn/ipc/ipc_watcher.h"
#include "vorn/ipc/link.h"
#include "vorn/ipc/service.h"

namespace vorn {
namespace {

class IpcTransport final : public Transport {
  public:
    IpcTransport(std::string path, const Endpoint& own) : path_(std::move(path)), own_(own) {}

    ~IpcTransport() override {
        if (service_ == nullptr) return;
        service_->call([this] {
            service_->forget_folder(this);
            for (const auto& [destination, link] : links_) link->close();
            if (receiver_ != nullptr) receiver_->stop();
        });
        if (receiver_ != nullptr) {
            if (const std::uint64_t left = receiver_->intake().batches(); left != 0) {
                own_.log.error(left,
                               " batches of senders that have ended are lost: they were not handled when the "
                               "bus was closed; see vorn_bus_drain");
            }
        }
        // Nothing of the service runs for them any more.
        if (const std::uint64_t lost = batches_lost_by_closing(); lost != 0) {
            count(own_.counters.lost_batches, lost);
        }
    }

    Result open() override {
        if (const Result result = folder_.open(path_, true, own_.log); result != VORN_BUS_OK) return result;
        service_ = Service::get();
        if (!own_.send_only) receiver_ = std::make_unique<Receiver>(own_, folder_, *service_);
        Result result = VORN_BUS_OK;
        service_->call([this, &result] {
            service_->watch_folder(folder_, this, [this](std::uint32_t address) {
                if (Link* const link = find_link(address); link != nullptr) link->appeared();
            });
            if (receiver_ != nullptr) result = receiver_->open();
        });
        return result;
    }

    void stop_receiving() override {
        if (receiver_ != nullptr) {
            service_->call([this] { receiver_->stop(); });
        }
    }

    Result send(const Outgoing& batch, SendTimeout& timeout) override {
        return link_to(batch.header.destination).send(batch, timeout);
    }

    bool drain(Deadline deadline) override {
        for (auto link = next_link(std::nullopt); link.second != nullptr; link = next_link(link.first)) {
            if (!link.second->wait_until_empty(deadline)) return false;
        }
        return true;
    }

    std::uint64_t batches_on_their_way() override { return sum(&Link::batches); }
    std::uint64_t batches_lost_by_closing() override { return sum(&Link::batches_without_receiver); }

    std::string endpoint() const override {
        return own_.send_only ? "" : "ipc://" + folder_.socket_path(own_.address);
    }

    Arrivals* arrivals() override { return receiver_ == nullptr ? nullptr : &receiver_->intake(); }

  private:
    // Links are never removed while the bus is open, so that pointers to them stay valid.
    Link* find_link(std::uint32_t destination) {
        const std::lock_guard locked(lock_);
        const auto found = links_.find(destination);
        return found == links_.end() ? nullptr : found->second.get();
    }

    Link& link_to(std::uint32_t destination) {
        // Mostly it is that of the last send, and needs no lock.
        Link* const last = last_.load(std::memory_order_acquire);
        if (last != nullptr && last->destination() == destination) return *last;
        const std::lock_guard locked(lock_);
        auto& link = links_[destination];
        if (link == nullptr) link = std::make_unique<Link>(own_, destination, folder_, *service_);
        last_.store(link.get(), std::memory_order_release);
        return *link;
    }

    // The link to the smallest destination above `last`, or of all; null: there is none.
    std::pair<std::uint32_t, Link*> next_link(std::optional<std::uint32_t> last) {
        const std::lock_guard locked(lock_);
        const auto next = last ? links_.upper_bound(*last) : links_.begin();
        if (next == links_.end()) return {};
        return {next->first, next->second.get()};
    }

    std::uint64_t sum(std::uint32_t (Link::*batches)()) {
        const std::lock_guard locked(lock_);
        std::uint64_t all = 0;
        for (const auto& [destination, link] : links_) all += (link.get()->*batches)();
        return all;
    }

    const std::string path_;
    const Endpoint own_;
    Folder folder_;
    std::shared_ptr<Service> service_;
    std::unique_ptr<Receiver> receiver_;
    std::mutex lock_;
    std::map<std::uint32_t, std::unique_ptr<Link>> links_;
    std::atomic<Link*> last_ = nullptr;
};

// Waits for the next packet. False: none came in time.
bool wait_for_packet(const Descriptor& socket, Deadline deadline, Packet& packet) {
    const BlockedSignals blocked;  // one of them would end the wait
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    pollfd readable = {socket.get(), POLLIN, 0};
    return ::poll(&readable, 1, static_cast<int>(std::max<std::int64_t>(left, 0))) == 1 &&
           receive_packet(socket, packet) == Received::packet;
}

Result make_ipc(const BusUrl& url, const Endpoint& endpoint, std::unique_ptr<Transport>& made) {
    made = std::make_unique<IpcTransport>(url.rest, endpoint);
    return VORN_BUS_OK;
}

Result ask_ipc(const BusUrl& url, std::uint32_t address, Deadline deadline, Log& log,
               vorn_bus_counters& counters) {
    Folder folder;
    if (folder.open(url.rest, false, log) != VORN_BUS_OK) return VORN_BUS_NO_PEER;
    Descriptor socket;
    Packet packet;
    std::array<std::uint8_t, kPreambleBytes> question;
    put_preamble(question.data(), Kind::ask);
    if (folder.connect(address, socket) != Folder::Connected::yes ||
        !wait_for_packet(socket, deadline, packet) || !send_packet(socket, question) ||
        !wait_for_packet(socket, deadline, packet)) {
        return VORN_BUS_NO_PEER;
    }
    CounterNumbers values = {};
    if (!read_counters(packet.bytes(), values)) {
        log.warning(folder.socket_path(address), ": its answer holds no counters");
        return VORN_BUS_SYSTEM_ERROR;
    }
    counters = from_numbers(values);
    return VORN_BUS_OK;
}

Result list_ipc(const BusUrl& url, Log& log, std::vector<Listed>& found) {
    Folder folder;
    if (const Result result = folder.open(url.rest, false, log); result != VORN_BUS_OK) return result;
    std::vector<std::uint32_t> addresses;
    if (!folder.list(addresses)) {
        log.error(folder.path(), ": ", system_error_text());
        return VORN_BUS_SYSTEM_ERROR;
    }
    for (const std::uint32_t address : addresses) {
        Descriptor socket;
        const Folder::Connected connected = folder.connect(address, socket);
        if (connected == Folder::Connected::failed) {
            log.error(folder.socket_path(address), ": ", system_error_text());
            return VORN_BUS_SYSTEM_ERROR;
        }
        const bool is_open = connected != Folder::Connected::nobody;
        found.push_back({address, is_open, "ipc://" + folder.socket_path(address), 0});
    }
    return VORN_BUS_OK;
}

Result remove_ipc(const BusUrl& url, std::uint32_t address, Log& log) {
    Folder folder;
    const Result result = folder.open(url.rest, false, log);
    return result == VORN_BUS_OK ? folder.remove(address, log) : result;
}

}  // namespace

const TransportKind kIpc = {make_ipc, ask_ipc, watch_ipc, list_ipc, remove_ipc, nullptr};

}  // namespace vorn
