// SPDX-License-Identifier: Apache-2.0
// What carries batches to addresses: one implementation for each kind of URL.
#ifndef VORN_TRANSPORT_H
#define VORN_TRANSPORT_H

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "vorn/core/inbox.h"
#include "vorn/core/support.h"
#include "vorn/core/watch.h"

namespace vorn {

// What a transport is given by the bus that owns it.
struct Endpoint {
    std::uint32_t address;
    std::uint32_t queue_batches;
    std::uint32_t queue_bytes;
    std::uint32_t batch_bytes;
    bool send_only;
    std::int32_t open_timeout_ms;
    std::uint32_t spin_us;
    Inbox& inbox;
    Counters& counters;
    Log& log;
    // The answer to a peer that asks; called from the transport's threads.
    void (*read_counters)(const void* bus, vorn_bus_counters& counters);
    const void* bus;
};

// A send: all of the batch or nothing.
struct Outgoing {
    BatchHeader header;
    const VORN_SendDescriptor* descriptors;
};

class Transport {
  public:
    Transport() = default;
    virtual ~Transport() = default;
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    // Takes the address; batches may arrive from here on.
    virtual Result open() = 0;

    // Lets no more batches arrive. Those that are in the inbox by then can still be handled.
    virtual void stop_receiving() = 0;

    virtual Result send(const Outgoing& batch, SendTimeout& timeout) = 0;

    // Waits until nothing is on its way. False: something is still.
    virtual bool drain(Deadline deadline) = 0;

    virtual std::uint64_t batches_on_their_way() = 0;

    // Those of them that are lost when it is closed now.
    virtual std::uint64_t batches_lost_by_closing() { return batches_on_their_way(); }

    // What has arrived, where that is not in the inbox.
    virtual Arrivals* arrivals() { return nullptr; }

    // Where it takes batches, for people.
    virtual std::string endpoint() const = 0;
};

// An address that was found.
struct Listed {
    std::uint32_t address;
    bool is_open;
    std::string endpoint;
    std::uint64_t stored_bytes = 0;  // at the endpoint itself, whether it is open or not
};

// What follows the scheme of a URL.
struct BusUrl {
    std::string rest;
    bool tls = false;  // as the scheme says
};

// What a scheme names. Each function logs what is wrong; that of `make` none is needed for the others.
struct TransportKind {
    Result (*make)(const BusUrl& url, const Endpoint& endpoint, std::unique_ptr<Transport>& made);
    Result (*ask)(const BusUrl& url, std::uint32_t address, Deadline deadline, Log& log,
                  vorn_bus_counters& counters);
    Result (*watch)(const BusUrl& url, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made);
    Result (*list)(const BusUrl& url, Log& log, std::vector<Listed>& found);
    Result (*remove)(const BusUrl& url, std::uint32_t address, Log& log);
    std::string (*fault)(const BusUrl& url);  // what is wrong with it; null: never anything
};
extern const TransportKind kLoop;
extern const TransportKind kIpc;
extern const TransportKind kNats;

// The kind of transport of a URL; null: it is not valid or not built, as the result and a log line say.
Result read_url(const std::string& url, const Log& log, const TransportKind*& kind, BusUrl& read);

// Which part of a URL is wrong, what is there, and what is to be; empty: none.
std::string url_fault(const std::string& url);

// The URL with *** for what stands before an '@': a user's name, a password, a token.
std::string display_url(const std::string& url);

}  // namespace vorn

#endif
