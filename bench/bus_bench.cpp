// SPDX-License-Identifier: Apache-2.0
// One end of a measurement of the bus, or of the bare client below it moving the same bytes.
//
// bus_bench bus|spin|socket|zmq|nats send|receive|ping|pong URL BYTES BATCH COUNT: send and receive move
// COUNT messages of BYTES bytes, BATCH to a batch; ping and pong exchange COUNT batches one by one. Each
// prints one line of JSON with clock readings in seconds that all processes of the machine share.
#include <nats/nats.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>
#include <zmq.hpp>

#include "vorn/vorn_bus.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kMessageId = 1;
constexpr std::uint32_t kLeft = 1;
constexpr std::uint32_t kRight = 2;
constexpr std::uint32_t kSpinMicroseconds = 200;

struct Plan {
    std::string url;
    std::uint32_t bytes;
    std::uint32_t batch;
    std::uint64_t count;
    std::uint64_t batches() const { return count / batch; }
    std::size_t batch_bytes() const { return std::size_t{bytes} * batch; }
};

double now() { return std::chrono::duration<double>(Clock::now().time_since_epoch()).count(); }

long resident_kilobytes() {
    long pages = 0;
    if (std::FILE* const file = std::fopen("/proc/self/statm", "r")) {
        if (std::fscanf(file, "%*d %ld", &pages) != 1) pages = 0;
        std::fclose(file);
    }
    return pages * (sysconf(_SC_PAGESIZE) / 1024);
}

void check(bool holds, const char* what) {
    if (!holds) throw std::runtime_error(what);
}

void say_open() {
    std::puts("open");
    std::fflush(stdout);
}

// What either end of either kind does.
class End {
  public:
    virtual ~End() = default;
    virtual void send_batch() = 0;
    virtual std::uint64_t receive() = 0;  // waits; returns messages
    virtual void finish() {}
};

class BusEnd final : public End {
  public:
    BusEnd(const Plan& plan, std::uint32_t address, std::uint32_t spin_us)
        : to_(address == kLeft ? kRight : kLeft) {
        check(VORN_RegIDLFuncHook(
                  kMessageId, [](const std::uint8_t*, std::uint32_t, void*) -> std::uint32_t { return 8; },
                  [](void*) {}) == 0,
              "registration");
        vorn_bus_options options = vorn_bus_options_init();
        options.url = plan.url.c_str();
        options.address = address;
        options.send_timeout_ms = 60000;
        options.linger_ms = 10000;
        options.spin_us = spin_us;
        options.queue_batches = plan.batch == 1 ? 32768 : 1024;
        check(vorn_bus_open(&options, &bus_) == VORN_BUS_OK, "open");
        vorn_bus_handle_all(
            bus_, [](const vorn_bus_message*, void* arrived) { ++*static_cast<std::uint64_t*>(arrived); },
            &arrived_);
        buffer_.resize(plan.batch_bytes(), 0x5A);
        for (std::uint32_t i = 0; i < plan.batch; ++i) {
            descriptors_.push_back({buffer_.data() + std::size_t{i} * plan.bytes, kMessageId, plan.bytes});
        }
    }
    ~BusEnd() override { vorn_bus_close(bus_); }
    void send_batch() override {
        check(vorn_bus_send(bus_, to_, descriptors_.data(), static_cast<std::uint32_t>(descriptors_.size()),
                            0) == VORN_BUS_OK,
              "send");
    }
    std::uint64_t receive() override {
        const std::uint64_t before = arrived_;
        vorn_bus_poll(bus_, 60000, 0, nullptr);
        return arrived_ - before;
    }
    void finish() override { check(vorn_bus_flush(bus_, 60000) == VORN_BUS_OK, "flush"); }

  private:
    std::uint32_t to_;
    vorn_bus* bus_ = nullptr;
    std::uint64_t arrived_ = 0;
    std::vector<std::uint8_t> buffer_;
    std::vector<VORN_SendDescriptor> descriptors_;
};

// A Unix socket that keeps packets apart. The URL is its path; the right end listens.
class SocketEnd final : public End {
  public:
    SocketEnd(const Plan& plan, std::uint32_t address)
        : batch_(plan.batch), buffer_(plan.batch_bytes(), 0x5A) {
        name_.sun_family = AF_UNIX;
        std::strncpy(name_.sun_path, plan.url.c_str(), sizeof name_.sun_path - 1);
        socket_ = ::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
        const auto* const name = reinterpret_cast<const sockaddr*>(&name_);
        if (address == kRight) {
            listener_ = socket_;
            check(bind(listener_, name, sizeof name_) == 0 && listen(listener_, 1) == 0, "listen");
        } else {
            check(connect(socket_, name, sizeof name_) == 0, "connect");
        }
    }
    ~SocketEnd() override {
        ::close(socket_);
        if (listener_ >= 0) ::close(listener_);
    }
    void send_batch() override {
        check(::send(socket_, buffer_.data(), buffer_.size(), 0) == static_cast<ssize_t>(buffer_.size()),
              "send");
    }
    std::uint64_t receive() override {
        if (socket_ == listener_) socket_ = accept(listener_, nullptr, nullptr);
        check(recv(socket_, buffer_.data(), buffer_.size(), 0) == static_cast<ssize_t>(buffer_.size()),
              "receive");
        return batch_;
    }

  private:
    std::uint32_t batch_;
    std::vector<std::uint8_t> buffer_;
    sockaddr_un name_ = {};
    int socket_ = -1;
    int listener_ = -1;
};

// PUSH and PULL one way, PAIR both ways. The URL is ZeroMQ's endpoint; the right end binds.
class ZmqEnd final : public End {
  public:
    ZmqEnd(const Plan& plan, std::uint32_t address, bool one_way)
        : batch_(plan.batch),
          socket_(context_, !one_way           ? zmq::socket_type::pair
                            : address == kLeft ? zmq::socket_type::push
                                               : zmq::socket_type::pull),
          buffer_(plan.batch_bytes(), 0x5A) {
        if (address == kRight) {
            socket_.bind(plan.url);
        } else {
            socket_.connect(plan.url);
        }
    }
    void send_batch() override { check(socket_.send(zmq::buffer(buffer_)).has_value(), "send"); }
    std::uint64_t receive() override {
        check(socket_.recv(message_).has_value(), "receive");
        return batch_;
    }

  private:
    std::uint32_t batch_;
    zmq::context_t context_{1};
    zmq::socket_t socket_;
    zmq::message_t message_;
    std::vector<std::uint8_t> buffer_;
};

// Publishes up to 256 messages ahead of the stream's answers; a durable consumer acknowledges each message.
class NatsEnd final : public End {
  public:
    // One way, the client may wait for a millisecond whether more comes.
    NatsEnd(const Plan& plan, std::uint32_t address, bool one_way)
        : batch_(plan.batch),
          to_("bare." + std::to_string(address == kLeft ? kRight : kLeft)),
          buffer_(plan.batch_bytes(), 0x5A) {
        natsOptions* options = nullptr;
        check(natsOptions_Create(&options) == NATS_OK &&
                  natsOptions_SetURL(options, plan.url.c_str()) == NATS_OK &&
                  natsOptions_SetSendAsap(options, !one_way) == NATS_OK &&
                  natsConnection_Connect(&connection_, options) == NATS_OK,
              "connect");
        natsOptions_Destroy(options);
        jsOptions ahead = {};
        jsOptions_Init(&ahead);
        ahead.PublishAsync.MaxPending = 256;
        ahead.PublishAsync.StallWait = 60000;
        check(natsConnection_JetStream(&jetstream_, connection_, &ahead) == NATS_OK, "JetStream");
        const std::string own = "bare." + std::to_string(address);
        const std::string stream = "bare-" + std::to_string(address);
        const char* subjects[] = {own.c_str()};
        jsStreamConfig config = {};
        jsStreamConfig_Init(&config);
        config.Name = stream.c_str();
        config.Subjects = subjects;
        config.SubjectsLen = 1;
        config.Retention = js_WorkQueuePolicy;
        check(js_AddStream(nullptr, jetstream_, &config, nullptr, nullptr) == NATS_OK, "stream");
        jsSubOptions receiving = {};
        jsSubOptions_Init(&receiving);
        receiving.ManualAck = true;
        receiving.Config.Durable = "receiver";
        receiving.Config.MaxAckPending = 512;
        check(js_SubscribeSync(&subscription_, jetstream_, own.c_str(), nullptr, &receiving, nullptr) ==
                  NATS_OK,
              "subscription");
    }
    ~NatsEnd() override {
        natsConnection_FlushTimeout(connection_, 1000);
        natsSubscription_Destroy(subscription_);
        jsCtx_Destroy(jetstream_);
        natsConnection_Destroy(connection_);
    }
    void send_batch() override {
        const int bytes = static_cast<int>(buffer_.size());
        if (!is_first_) {
            check(js_PublishAsync(jetstream_, to_.c_str(), buffer_.data(), bytes, nullptr) == NATS_OK,
                  "publish");
            return;
        }
        for (int tries = 0; tries < 600; ++tries) {
            const natsStatus status =
                js_Publish(nullptr, jetstream_, to_.c_str(), buffer_.data(), bytes, nullptr, nullptr);
            is_first_ = status != NATS_OK;
            if (!is_first_) return;
            check(status == NATS_NO_RESPONDERS, "publish");  // the other end is still opening
            usleep(10000);
        }
        check(false, "publish");
    }
    void finish() override { check(js_PublishAsyncComplete(jetstream_, nullptr) == NATS_OK, "answers"); }
    std::uint64_t receive() override {
        natsMsg* message = nullptr;
        check(natsSubscription_NextMsg(&message, subscription_, 60000) == NATS_OK, "receive");
        natsMsg_Ack(message, nullptr);
        natsMsg_Destroy(message);
        return batch_;
    }

  private:
    std::uint32_t batch_;
    std::string to_;
    std::vector<std::uint8_t> buffer_;
    bool is_first_ = true;
    natsConnection* connection_ = nullptr;
    jsCtx* jetstream_ = nullptr;
    natsSubscription* subscription_ = nullptr;
};

std::unique_ptr<End> make_end(const std::string& kind, const Plan& plan, std::uint32_t address,
                              bool one_way) {
    if (kind == "bus") return std::make_unique<BusEnd>(plan, address, 0);
    if (kind == "spin") return std::make_unique<BusEnd>(plan, address, kSpinMicroseconds);
    if (kind == "socket") return std::make_unique<SocketEnd>(plan, address);
    if (kind == "nats") return std::make_unique<NatsEnd>(plan, address, one_way);
    return std::make_unique<ZmqEnd>(plan, address, one_way);
}

void send(End& end, const Plan& plan) {
    end.send_batch();  // the connection stands, and what is made at first use is made
    usleep(200000);
    const double begin = now();
    long after_first_tenth = 0;
    for (std::uint64_t batch = 0; batch < plan.batches(); ++batch) {
        end.send_batch();
        if (batch == plan.batches() / 10) after_first_tenth = resident_kilobytes();
    }
    end.finish();
    std::printf("{\"begin\": %.9f, \"rss_tenth\": %ld, \"rss\": %ld}\n", begin, after_first_tenth,
                resident_kilobytes());
}

void receive(End& end, const Plan& plan) {
    say_open();
    std::uint64_t arrived = 0;
    long after_first_tenth = 0;
    while (arrived < plan.batches() * plan.batch + plan.batch) {
        arrived += end.receive();
        if (after_first_tenth == 0 && arrived >= plan.count / 10) after_first_tenth = resident_kilobytes();
    }
    std::printf("{\"end\": %.9f, \"rss_tenth\": %ld, \"rss\": %ld}\n", now(), after_first_tenth,
                resident_kilobytes());
    std::fflush(stdout);
}

void ping(End& end, const Plan& plan) {
    std::vector<double> trips;
    const double before_first = now();
    end.send_batch();
    const double first = (now() - before_first) * 1e6;
    while (end.receive() == 0) {
    }
    const std::uint64_t warm_up = plan.count / 10 + 1;
    for (std::uint64_t i = 0; i < plan.count + warm_up; ++i) {
        const double begin = now();
        end.send_batch();
        while (end.receive() == 0) {
        }
        if (i >= warm_up) trips.push_back((now() - begin) * 1e6);
    }
    std::sort(trips.begin(), trips.end());
    const auto at = [&](double share) {
        return trips[static_cast<std::size_t>(share * static_cast<double>(trips.size() - 1))];
    };
    std::printf("{\"first\": %.1f, \"p50\": %.2f, \"p99\": %.2f, \"p999\": %.2f}\n", first, at(0.5), at(0.99),
                at(0.999));
}

void pong(End& end, const Plan& plan) {
    say_open();
    for (std::uint64_t i = 0; i < plan.count + plan.count / 10 + 2;) {
        const std::uint64_t arrived = end.receive() / plan.batch;
        for (std::uint64_t k = 0; k < arrived; ++k) end.send_batch();
        i += arrived;
    }
    end.finish();
}

}  // namespace

int main(int argc, char** argv) try {
    if (argc != 7) return 2;
    const std::string kind = argv[1];
    const std::string role = argv[2];
    const Plan plan = {argv[3], static_cast<std::uint32_t>(std::strtoul(argv[4], nullptr, 10)),
                       static_cast<std::uint32_t>(std::strtoul(argv[5], nullptr, 10)),
                       std::strtoull(argv[6], nullptr, 10)};
    const bool left = role == "send" || role == "ping";
    const bool one_way = role == "send" || role == "receive";
    const auto end = make_end(kind, plan, left ? kLeft : kRight, one_way);
    if (role == "send") send(*end, plan);
    if (role == "receive") receive(*end, plan);
    if (role == "ping") ping(*end, plan);
    if (role == "pong") pong(*end, plan);
    return 0;
} catch (const std::exception& error) {
    std::fprintf(stderr, "bus_bench: %s\n", error.what());
    return 3;
}
