// SPDX-License-Identifier: Apache-2.0
// Watching on ipc: a ring to each receiver of the folder, which writes copies into it and never waits. The
// service's thread moves them into the watcher's queue.
#include <algorithm>
#include <array>
#include <atomic>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "vorn/core/transport.h"
#include "vorn/ipc/folder.h"
#include "vorn/ipc/service.h"
#include "vorn/ipc/shared_memory.h"
#include "vorn/ipc/unix_socket.h"

namespace vorn {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t kLargestRing = 128U << 20;
constexpr auto kAsksAgain = 100ms;
constexpr auto kLooksForReceivers = 1s;
constexpr auto kLooksForCapacity = 2ms;
constexpr std::size_t kTogether = 64U << 10;  // bytes of copies of one time that make one entry of the queue

class RingCopies final : public Copies {
  public:
    RingCopies(std::vector<std::uint8_t> storage, std::uint32_t number, std::uint64_t taken_at)
        : storage_(std::move(storage)) {
        bytes = storage_;
        batches = number;
        time = taken_at;
    }

  private:
    const std::vector<std::uint8_t> storage_;
};

// The connection with one receiver, whichever is at the address.
class Watched final : public Service::Handler {
  public:
    Watched(std::uint32_t address, const WatchEndpoint& own, const Folder& folder, Service& service)
        : address_(address),
          own_(own),
          folder_(folder),
          service_(service),
          connect_([this] { connect(); }),
          go_on_([this] {
              if (memory_ && !read_copies(false)) end();
          }) {}

    void connect() {
        if (socket_) return;
        service_.forget(connect_);
        switch (folder_.connect(address_, socket_)) {
            case Folder::Connected::yes:
                if (!service_.watch(socket_, *this)) end();
                return;
            case Folder::Connected::nobody:
                return;  // until its socket appears
            case Folder::Connected::later:
            case Folder::Connected::failed:
                return service_.at(Clock::now() + kAsksAgain, connect_);
        }
    }

    void close() {
        service_.forget(connect_);
        service_.forget(go_on_);
        service_.unwatch(socket_, *this);
        socket_.reset();
    }

    void ready() override {
        for (;;) {
            Packet packet;
            const Received received = receive_packet(socket_, packet);
            if (received == Received::nothing) return;
            const auto kind = received == Received::packet ? kind_of(packet.bytes()) : std::nullopt;
            if (received == Received::end && memory_) read_copies(true);
            if (kind == Kind::welcome && !memory_ && begin()) continue;
            if (kind == Kind::watching && memory_ && !is_watching_) {
                is_watching_ = true;
                if (was_watching_) count(own_.counters.interruptions);
                was_watching_ = true;
                continue;
            }
            if (kind == Kind::wake && memory_) {
                if (!read_copies(false)) return end();
                continue;
            }
            if (received != Received::end) count(own_.counters.damaged);
            return end();
        }
    }

    bool is_watching() const { return is_watching_; }

  private:
    bool begin() {
        Descriptor memory;
        // What a receiver writes while this process is not scheduled waits in the ring, not in the queue.
        const std::uint32_t queue_bytes = std::min(own_.queue_bytes, kLargestRing);
        const auto ring_bytes = static_cast<std::uint32_t>(ring_bytes_for(queue_bytes, 0));
        if (!memory_.make(ring_bytes, memory)) {
            own_.log.warning("no ring for copies: ", system_error_text());
            return false;
        }
        reader_ = RingReader(memory_.ring(), 1, UINT32_MAX, ring_bytes);
        seen_ = 0;
        std::array<std::uint8_t, Watch::kBytes> watch;
        write_packet(watch.data(), Watch{ring_bytes, 0});
        return send_packet(socket_, watch, memory, {});
    }

    // What has no capacity in the queue waits in the ring, but for the last. False: what the receiver has
    // written is no copy.
    bool read_copies(bool all) {
        do {
            for (;;) {
                std::uint32_t bytes = 0;
                const RingReader::Found found = reader_.find(bytes);
                if (found == RingReader::Found::nothing) break;
                if (found == RingReader::Found::broken || bytes < kCopyHeadBytes) {
                    count(own_.counters.damaged);
                    return false;
                }
                if (!all && !own_.queue.has_capacity_for(bytes + storage_.size())) {
                    put();
                    service_.at(Clock::now() + kLooksForCapacity, go_on_);
                    return true;
                }
                take(bytes);
                reader_.handle(reader_.taken());
            }
            put();
        } while (!reader_.sleep());
        const std::uint64_t offered = reader_.offered();
        if (!reader_.has_some() && offered > seen_)
            count(own_.counters.lost_batches, offered - std::exchange(seen_, offered));
        return true;
    }

    // Copies of one time go into the queue together. Where memory is lacking, they are lost.
    void take(std::uint32_t bytes) {
        std::array<std::uint8_t, kCopyHeadBytes> head;
        reader_.peek(head.data(), kCopyHeadBytes);
        note(get<std::uint64_t>(head.data()));
        const auto time = get<std::uint64_t>(head.data() + 8);
        const std::size_t size = bytes - kCopyHeadBytes;
        if (time != time_ || storage_.size() + size > kTogether) put();
        time_ = time;
        const std::size_t before = storage_.size();
        try {
            storage_.resize(before + size);
        } catch (const std::bad_alloc&) {
            reader_.copy(nullptr, bytes, bytes);
            count(own_.counters.lost_batches);
            return;
        }
        reader_.copy(storage_.data() + before, bytes, kCopyHeadBytes);
        ++batches_;
    }

    void put() {
        if (batches_ == 0) return;
        try {
            own_.queue.put(std::make_unique<RingCopies>(std::exchange(storage_, {}), batches_, time_));
        } catch (const std::bad_alloc&) {
            count(own_.counters.lost_batches, batches_);
        }
        batches_ = 0;
    }

    // Numbers that are left out are copies that had no space.
    void note(std::uint64_t number) {
        if (number <= seen_) return;
        count(own_.counters.lost_batches, number - seen_ - 1);
        seen_ = number;
    }

    void end() {
        close();
        memory_ = {};
        is_watching_ = false;
        service_.at(Clock::now() + kAsksAgain, connect_);
    }

    const std::uint32_t address_;
    const WatchEndpoint& own_;
    const Folder& folder_;
    Service& service_;
    Service::Task connect_;
    Service::Task go_on_;
    Descriptor socket_;
    SharedMemory memory_;
    RingReader reader_;
    std::vector<std::uint8_t> storage_;  // of copies of one time
    std::uint32_t batches_ = 0;          // in it
    std::uint64_t time_ = 0;
    std::uint64_t seen_ = 0;  // number of the last batch that is known of
    bool was_watching_ = false;
    std::atomic<bool> is_watching_ = false;
};

class IpcWatcher final : public Watcher {
  public:
    IpcWatcher(std::string path, WatchEndpoint own) : path_(std::move(path)), own_(std::move(own)) {}
    ~IpcWatcher() override {
        if (service_ == nullptr) return;
        service_->call([this] {
            service_->forget_folder(this);
            service_->forget(look_);
            for (const auto& [address, one] : watched_) one->close();
        });
    }

    Result open() override {
        if (const Result result = folder_.open(path_, true, own_.log); result != VORN_BUS_OK) return result;
        service_ = Service::get();
        service_->call([this] {
            service_->watch_folder(folder_, this, [this](std::uint32_t address) { watch(address); });
            look();
        });
        return VORN_BUS_OK;
    }

    std::uint64_t receivers() override {
        const std::lock_guard locked(lock_);
        return static_cast<std::uint64_t>(std::count_if(
            watched_.begin(), watched_.end(), [](const auto& entry) { return entry.second->is_watching(); }));
    }

  private:
    // The system need not tell of each socket that appears.
    void look() {
        service_->at(Clock::now() + kLooksForReceivers, look_);
        std::vector<std::uint32_t> addresses;
        if (!folder_.list(addresses)) {
            own_.log.warning(folder_.path(), ": ", system_error_text());
        }
        for (const std::uint32_t address : addresses) watch(address);
    }

    void watch(std::uint32_t address) {
        const auto& wanted = own_.addresses;
        if (!wanted.empty() && std::find(wanted.begin(), wanted.end(), address) == wanted.end()) return;
        Watched* one = nullptr;
        {
            const std::lock_guard locked(lock_);
            auto& entry = watched_[address];
            if (entry == nullptr) entry = std::make_unique<Watched>(address, own_, folder_, *service_);
            one = entry.get();
        }
        one->connect();
    }

    const std::string path_;
    const WatchEndpoint own_;
    Folder folder_;
    std::shared_ptr<Service> service_;
    Service::Task look_{[this] { look(); }};
    std::mutex lock_;
    std::unordered_map<std::uint32_t, std::unique_ptr<Watched>> watched_;
};

}  // namespace

Result watch_ipc(const BusUrl& url, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made) {
    made = std::make_unique<IpcWatcher>(url.rest, endpoint);
    return VORN_BUS_OK;
}

}  // namespace vorn
