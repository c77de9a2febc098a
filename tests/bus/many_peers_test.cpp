// SPDX-License-Identifier: Apache-2.0
// What an address on ipc costs, and what is left of peers: descriptors, threads, memory, time.
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/bus/fixture.h"

namespace {

using namespace tests;
using Microseconds = std::chrono::duration<double, std::micro>;

constexpr std::uint32_t kReceiver = 2;
constexpr std::uint32_t kPinger = 3;
#ifdef MANY_SENDERS
constexpr std::uint32_t kShortLived = MANY_SENDERS;
#else
constexpr std::uint32_t kShortLived = 500;
#endif

std::size_t entries(const char* folder) {
    const auto all = std::filesystem::directory_iterator(folder);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}
std::size_t descriptors() { return entries("/proc/self/fd"); }
std::size_t threads() { return entries("/proc/self/task"); }

std::size_t resident_bytes() {
    std::size_t size = 0;
    std::size_t resident = 0;
    std::ifstream("/proc/self/statm") >> size >> resident;
    return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

// Another process, forked before a bus is open here. It does one thing for each number that it is given, and
// answers with a number.
class OtherProcess {
  public:
    using Work = std::function<double(std::uint32_t)>;
    explicit OtherProcess(const std::function<Work()>& start) {
        if (pipe(asked_.data()) != 0 || pipe(answered_.data()) != 0) throw std::bad_alloc();
        process_ = fork();
        if (process_ != 0) return;
        close(asked_[1]);
        const Work work = start();
        std::uint32_t question = 0;
        while (read(asked_[0], &question, sizeof question) == sizeof question) {
            const double answer = work(question);
            if (write(answered_[1], &answer, sizeof answer) != sizeof answer) break;
        }
        _exit(0);
    }
    ~OtherProcess() {
        for (const int end : {asked_[0], asked_[1], answered_[0], answered_[1]}) close(end);
        waitpid(process_, nullptr, 0);
    }
    OtherProcess(const OtherProcess&) = delete;
    OtherProcess& operator=(const OtherProcess&) = delete;

    void ask(std::uint32_t question) const {
        ASSERT_EQ(write(asked_[1], &question, sizeof question), static_cast<ssize_t>(sizeof question));
    }
    double answer() const {
        double number = -1;
        EXPECT_EQ(read(answered_[0], &number, sizeof number), static_cast<ssize_t>(sizeof number));
        return number;
    }

  private:
    std::array<int, 2> asked_ = {};
    std::array<int, 2> answered_ = {};
    pid_t process_ = 0;
};

void pure_sender(vorn_bus_options& options) {
    options.send_only = 1;
    options.queue_bytes = 1 << 16;
    options.batch_bytes = 1000;
}

// Without keeping what arrives, as a TestBus does.
using Handler = std::function<void(const vorn_bus_message&)>;
void handle_with(const TestBus& bus, Handler& handler) {
    vorn_bus_handle_all(
        bus.get(),
        [](const vorn_bus_message* message, void* context) { (*static_cast<Handler*>(context))(*message); },
        &handler);
}

class ManyPeers : public BusTest {};

INSTANTIATE_TEST_SUITE_P(On, ManyPeers, testing::Values("ipc"), [](const auto& of) { return of.param; });

TEST_P(ManyPeers, AProcessTakesThreeDescriptorsAndAThreadAnAddressFourASenderTwo) {
    const OtherProcess senders([this] {
        return
            [this, open = std::make_shared<std::vector<std::unique_ptr<TestBus>>>()](std::uint32_t number) {
                while (open->size() < number) {
                    open->push_back(std::make_unique<TestBus>(url(), 0, pure_sender));
                    open->back()->send(kReceiver, {1, 2});
                }
                open->resize(number);
                return 0.0;
            };
    });
    const std::size_t before = descriptors();
    std::thread([] {}).join();  // with the first one a sanitizer starts its own
    const std::size_t threads_before = threads();
    TestBus receiver(url(), kReceiver);
    EXPECT_EQ(descriptors() - before, 3U + 4U);
    const TestBus another(url(), kReceiver + 1);
    EXPECT_EQ(descriptors() - before, 3U + 2 * 4U);
    EXPECT_EQ(threads() - threads_before, 1U);
    senders.ask(5);
    ASSERT_TRUE(receiver.poll_until(5));
    EXPECT_EQ(descriptors() - before, 3U + 2 * 4U + 5 * 2U);
    senders.answer();
    senders.ask(0);
    senders.answer();
    EXPECT_TRUE(eventually([&] {
        vorn_bus_poll(receiver.get(), 0, 0, nullptr);
        return descriptors() - before == 3U + 2 * 4U;
    })) << descriptors() - before;
}

TEST_P(ManyPeers, ASenderToAThousandReceiversUsesNoProcessorTimeWhileItIsIdle) {
    constexpr std::uint32_t kReceivers = 1000;
    rlimit files = {};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &files), 0);
    if (files.rlim_max < 8 * kReceivers) GTEST_SKIP() << "this process may not have enough descriptors";
    files.rlim_cur = files.rlim_max;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &files), 0);
    const OtherProcess receivers([this] {
        auto open = std::make_shared<std::vector<std::unique_ptr<TestBus>>>();
        for (std::uint32_t i = 0; i < kReceivers; ++i) {
            open->push_back(std::make_unique<TestBus>(url(), kReceiver + i));
        }
        return [open](std::uint32_t) { return 0.0; };
    });
    receivers.ask(0);
    receivers.answer();
    TestBus sender(url(), 0, [](vorn_bus_options& options) {
        pure_sender(options);
        options.linger_ms = -1;
    });
    for (std::uint32_t i = 0; i < kReceivers; ++i) ASSERT_EQ(sender.send(kReceiver + i, {i, 0}), 0U);
    const auto processor_ms = [] { return 1000.0 * static_cast<double>(std::clock()) / CLOCKS_PER_SEC; };
    const double before = processor_ms();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const double used = processor_ms() - before;
    std::printf("count: ipc: an idle sender to %u receivers used %.2f %% of a processor\n", kReceivers,
                used / 20);
    EXPECT_LT(used, 2);  // 0.1 %
}

// Those of a process that comes and goes; the bus sees no difference to a process each.
TEST_P(ManyPeers, AfterManyShortLivedSendersTheReceiverIsAsAtFirst) {
    const OtherProcess peers([this] {
        const auto pinger = std::make_shared<TestBus>(url(), kPinger);
        static Handler nothing = [](const vorn_bus_message&) {};
        handle_with(*pinger, nothing);
        return [this, pinger](std::uint32_t senders) {
            for (std::uint32_t i = 0; i < senders; ++i) {
                if (TestBus(url(), 0, pure_sender).send(kReceiver, {i, 0}) != 0) return -1.0;
            }
            std::vector<double> times;  // of round trips
            for (std::uint32_t i = 0; i < 1001; ++i) {
                const auto begin = std::chrono::steady_clock::now();
                std::uint32_t handled = 0;
                if (pinger->send(kReceiver, {i, 0}) != 0) return -1.0;
                while (handled == 0) vorn_bus_poll(pinger->get(), 1000, 0, &handled);
                times.push_back(Microseconds(std::chrono::steady_clock::now() - begin).count());
            }
            std::nth_element(times.begin(), times.begin() + 500, times.end());
            return times[500];
        };
    });
    std::uint32_t handled = 0;
    TestBus receiver(url(), kReceiver);
    Handler echo = [&](const vorn_bus_message& message) {
        ++handled;
        if (message.source == kPinger) receiver.send(kPinger, {1, 2});
    };
    handle_with(receiver, echo);
    const auto after = [&](std::uint32_t senders) {
        const std::uint32_t wanted = handled + senders + 1001;
        peers.ask(senders);
        while (handled < wanted && vorn_bus_poll(receiver.get(), 10000, 0, nullptr) == VORN_BUS_OK) continue;
        return peers.answer();
    };
    after(50);
    const double first_us = after(0);
    const std::size_t descriptors_first = descriptors();
    const std::size_t bytes_first = resident_bytes();
    double last_us = after(kShortLived);
    const auto is_slower = [&] { return last_us > 3 * first_us + 20; };
    for (int i = 0; i < 5 && is_slower(); ++i) last_us = after(0);  // the machine may do something else
    EXPECT_EQ(descriptors(), descriptors_first);
    std::printf("count: ipc: a round trip takes %.1f us, after %u short-lived senders %.1f us; %ld kB more\n",
                first_us, kShortLived, last_us, static_cast<long>(resident_bytes() - bytes_first) / 1024);
    EXPECT_LT(resident_bytes(), bytes_first + (1 << 20));
    EXPECT_GT(first_us, 0);
    EXPECT_FALSE(is_slower());
}

}  // namespace
