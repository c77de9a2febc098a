// SPDX-License-Identifier: Apache-2.0
// Buses of a test: on any transport, at addresses of one process, with what arrives kept for comparison.
#ifndef TESTS_BUS_FIXTURE_H
#define TESTS_BUS_FIXTURE_H

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "nac/nac_messages.h"
#include "tests/support/recording_services.h"
#include "vorn/vorn_bus.h"

namespace tests {

// A URL of its own for each test: a loop's name, a folder, ports, or a stream's prefix.
class TestUrl {
  public:
    virtual ~TestUrl() = default;
    virtual std::string url() const = 0;
};

// "loop", "ipc", and "nats" where it is built.
std::vector<std::string> transports();
std::unique_ptr<TestUrl> make_test_url(const std::string& transport);

// What a handler was given.
struct Arrived {
    std::uint32_t message_id;
    std::uint32_t source;
    std::uint32_t destination;
    std::uint32_t flags;
    std::uint64_t target;
    std::uint32_t record_bytes;
    std::vector<std::uint8_t> record;
    std::vector<std::uint8_t> packed;
    std::string fault;  // empty: null

    // The record as Nac_SetPortMsg.
    Nac_SetPortMsg port() const;
};

// An open bus that keeps what arrives and what it logs.
class TestBus {
  public:
    TestBus(const std::string& url, std::uint32_t address,
            const std::function<void(vorn_bus_options&)>& adjust = nullptr);
    ~TestBus() { close(); }
    TestBus(const TestBus&) = delete;
    TestBus& operator=(const TestBus&) = delete;

    std::int32_t opened() const { return opened_; }
    vorn_bus* get() const { return bus_; }
    void close() {
        vorn_bus_close(bus_);  // handlers that still run use it
        bus_ = nullptr;
    }

    // Sends through this bus with the library's own functions.
    std::uint32_t send(std::uint32_t destination, const Nac_SetPortMsg& record, std::uint64_t target = 0);
    std::uint32_t send(std::uint32_t destination, const std::vector<Nac_SetPortMsg>& records);

    // Polls until that many messages have arrived in all, at most ten seconds. False: fewer came.
    bool poll_until(std::size_t messages);

    std::vector<Arrived> arrived();
    std::vector<std::string> log();
    vorn_bus_counters counters();
    std::function<void(const vorn_bus_message&)> on_message;  // called after the message was kept

  private:
    vorn_bus* bus_ = nullptr;
    std::int32_t opened_ = 0;
    std::mutex lock_;
    std::vector<Arrived> arrived_;
    std::vector<std::string> log_;
};

// A copy that a watch has seen.
struct Seen {
    vorn_bus_watched message;  // without its bytes
    std::vector<std::uint8_t> packed;
};

// A watch that keeps what it sees.
class TestWatch {
  public:
    explicit TestWatch(const std::string& url, const std::vector<std::uint32_t>& addresses = {},
                       std::uint32_t queue_bytes = 0);
    ~TestWatch() { vorn_bus_watch_close(watch_); }
    TestWatch(const TestWatch&) = delete;
    TestWatch& operator=(const TestWatch&) = delete;

    std::int32_t opened() const { return opened_; }
    vorn_bus_watch* get() const { return watch_; }

    // Waits until receivers send copies; on nats, until the server is there.
    bool wait_for_receivers(std::uint64_t receivers);
    bool poll_until(std::size_t messages);
    const std::vector<Seen>& seen() const { return seen_; }
    vorn_bus_watch_counters counters();

  private:
    vorn_bus_watch* watch_ = nullptr;
    std::int32_t opened_ = 0;
    bool by_server_;
    std::vector<Seen> seen_;
};

// Waits until a condition holds, at most so long.
bool eventually(const std::function<bool()>& holds,
                std::chrono::milliseconds longest = std::chrono::seconds(10));

// Registers all modules, and checks in the end that every block has been released.
class BusTest : public testing::TestWithParam<std::string> {
  protected:
    void SetUp() override;
    void TearDown() override;

    const std::string& url() const { return url_; }
    const std::string& transport() const { return GetParam(); }
    tests::RecordingServices& services = tests::RecordingServices::instance();

  private:
    std::unique_ptr<TestUrl> test_url_;
    std::string url_;
};

}  // namespace tests

#endif
