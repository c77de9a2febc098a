// SPDX-License-Identifier: Apache-2.0
#include "tests/bus/fixture.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#ifdef VORN_TEST_NATS
#include "tests/bus/nats_server.h"
#endif

namespace tests {
namespace {

class LoopUrl final : public TestUrl {
  public:
    std::string url() const override { return url_; }

  private:
    static std::string next_url() {
        static std::atomic<int> number = 0;
        return "loop:test" + std::to_string(++number);
    }
    std::string url_ = next_url();
};

class IpcUrl final : public TestUrl {
  public:
    IpcUrl() {
        std::string name = (std::filesystem::temp_directory_path() / "vorn-XXXXXX").string();
        if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
        folder_ = name;
    }
    ~IpcUrl() override { std::filesystem::remove_all(folder_); }
    std::string url() const override { return "ipc://" + folder_.string(); }

  private:
    std::filesystem::path folder_;
};

#ifdef VORN_TEST_NATS
class NatsUrl final : public TestUrl {
  public:
    std::string url() const override { return url_; }

  private:
    static std::string next_url() {
        static std::atomic<int> number = 0;
        return "nats://127.0.0.1:" + std::to_string(NatsServer::shared().port()) + "?prefix=test" +
               std::to_string(getpid()) + "x" + std::to_string(++number) +
               "&state=" + NatsServer::shared().folder();
    }
    std::string url_ = next_url();
};
#endif

}  // namespace

std::vector<std::string> transports() {
    return {
        "loop",
        "ipc",
#ifdef VORN_TEST_NATS
        "nats",
#endif
    };
}

std::unique_ptr<TestUrl> make_test_url(const std::string& transport) {
    if (transport == "loop") return std::make_unique<LoopUrl>();
    if (transport == "ipc") return std::make_unique<IpcUrl>();
#ifdef VORN_TEST_NATS
    if (transport == "nats") return std::make_unique<NatsUrl>();
#endif
    throw std::invalid_argument(transport);
}

Nac_SetPortMsg Arrived::port() const {
    Nac_SetPortMsg message = {};
    if (record.size() == sizeof message) std::memcpy(&message, record.data(), sizeof message);
    return message;
}

TestBus::TestBus(const std::string& url, std::uint32_t address,
                 const std::function<void(vorn_bus_options&)>& adjust) {
    vorn_bus_options options = vorn_bus_options_init();
    options.url = url.c_str();
    options.address = address;
    options.log = [](const char* text, void* self) {
        auto& bus = *static_cast<TestBus*>(self);
        const std::lock_guard locked(bus.lock_);
        bus.log_.emplace_back(text);
    };
    options.log_context = this;
    if (adjust) adjust(options);
    opened_ = vorn_bus_open(&options, &bus_);
    if (opened_ != VORN_BUS_OK) return;
    vorn_bus_handle_all(
        bus_,
        [](const vorn_bus_message* message, void* self) {
            auto& bus = *static_cast<TestBus*>(self);
            const auto* const record = static_cast<const std::uint8_t*>(message->record);
            {
                const std::lock_guard locked(bus.lock_);
                bus.arrived_.push_back({message->message_id,
                                        message->source,
                                        message->destination,
                                        message->flags,
                                        message->target,
                                        message->record_bytes,
                                        {record, record + message->record_bytes},
                                        {message->packed, message->packed + message->packed_bytes},
                                        message->fault == nullptr ? "" : message->fault});
            }
            if (bus.on_message) bus.on_message(*message);
        },
        this);
}

std::uint32_t TestBus::send(std::uint32_t destination, const Nac_SetPortMsg& record, std::uint64_t target) {
    vorn_bus_use(bus_);
    return Nac_SetPortMsg__sendtomsg(destination, &record, 1, target);
}

std::uint32_t TestBus::send(std::uint32_t destination, const std::vector<Nac_SetPortMsg>& records) {
    vorn_bus_use(bus_);
    return Nac_SetPortMsg__sendmsg(destination, records.data(), static_cast<std::uint32_t>(records.size()));
}

bool TestBus::poll_until(std::size_t messages) {
    return eventually([&] {
        vorn_bus_poll(bus_, 20, 0, nullptr);
        const std::lock_guard locked(lock_);
        return arrived_.size() >= messages;
    });
}

std::vector<Arrived> TestBus::arrived() {
    const std::lock_guard locked(lock_);
    return arrived_;
}

std::vector<std::string> TestBus::log() {
    const std::lock_guard locked(lock_);
    return log_;
}

vorn_bus_counters TestBus::counters() {
    vorn_bus_counters counters = vorn_bus_counters_init();
    vorn_bus_read_counters(bus_, &counters);
    return counters;
}

TestWatch::TestWatch(const std::string& url, const std::vector<std::uint32_t>& addresses,
                     std::uint32_t queue_bytes)
    : by_server_(url.rfind("nats", 0) == 0) {
    vorn_bus_watch_options options = vorn_bus_watch_options_init();
    options.url = url.c_str();
    options.addresses = addresses.data();
    options.address_count = static_cast<std::uint32_t>(addresses.size());
    options.queue_bytes = queue_bytes;
    opened_ = vorn_bus_watch_open(&options, &watch_);
}

bool TestWatch::wait_for_receivers(std::uint64_t receivers) {
    return eventually([&] { return counters().receivers == (by_server_ ? 1 : receivers); });
}

bool TestWatch::poll_until(std::size_t messages) {
    return eventually([&] {
        vorn_bus_watch_poll(
            watch_, 20, 0,
            [](const vorn_bus_watched* message, void* self) {
                auto& seen = static_cast<TestWatch*>(self)->seen_;
                seen.push_back({*message, {message->packed, message->packed + message->packed_bytes}});
                seen.back().message.packed = nullptr;
            },
            this, nullptr);
        return seen_.size() >= messages;
    });
}

vorn_bus_watch_counters TestWatch::counters() {
    vorn_bus_watch_counters counters = vorn_bus_watch_counters_init();
    vorn_bus_watch_read_counters(watch_, &counters);
    return counters;
}

bool eventually(const std::function<bool()>& holds, std::chrono::milliseconds longest) {
    const auto end = std::chrono::steady_clock::now() + longest;
    while (!holds()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

void BusTest::SetUp() {
    test_url_ = make_test_url(GetParam());
    url_ = test_url_->url();
    services.reset();
    services.record(false);
    ASSERT_EQ(nac_fwm_port_recv_init(), 0);
    ASSERT_EQ(nac_fwm_user_recv_init(), 0);
    ASSERT_EQ(nac_fwm_dataflow_recv_init(), 0);
}

void BusTest::TearDown() {
    EXPECT_EQ(services.live_blocks(), 0U);
    EXPECT_EQ(services.foreign_releases(), 0U);
}

}  // namespace tests
