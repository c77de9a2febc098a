// SPDX-License-Identifier: Apache-2.0
// URLs of NATS, and the names on a server that follow from them.
#ifndef VORN_NATS_URL_H
#define VORN_NATS_URL_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "vorn/core/transport.h"

namespace vorn {

// nats://[USER:PASSWORD@]HOST:PORT[,...][?prefix=P&replicas=N&state=FOLDER]
struct NatsUrl {
    NatsUrl() = default;
    explicit NatsUrl(const BusUrl& valid);

    bool tls = false;
    std::vector<std::string> servers;
    std::string prefix = "vorn";  // of all names on the server
    int replicas = 1;             // of each stream
    std::string state;            // folder of the journals; empty: the default one

    std::string stream(std::uint32_t address) const { return prefix + "-" + std::to_string(address); }
    std::string batches(std::uint32_t address) const {
        return prefix + ".batches." + std::to_string(address);
    }
    std::string all_batches() const { return prefix + ".batches.*"; }
    std::string deliveries(std::uint32_t address, std::uint64_t receiver) const {
        return prefix + ".deliveries." + std::to_string(address) + "." + std::to_string(receiver);
    }
    std::string endpoint_text(std::uint32_t address) const {
        return "stream " + stream(address) + ", subject " + batches(address);
    }
    std::string questions(std::uint32_t address) const { return prefix + ".ask." + std::to_string(address); }
};

// What the receiver of an address takes. It stands in the stream's description, where senders read it.
struct Limits {
    std::uint32_t batches;  // in the queue
    std::uint32_t bytes;
    std::uint32_t batch_bytes;
};
std::string limits_text(const Limits& limits);
std::optional<Limits> read_limits(const char* text);

// What is wrong with a URL, in a sentence; empty: nothing.
std::string read_nats_url(const BusUrl& given, NatsUrl& url);

}  // namespace vorn

#endif
