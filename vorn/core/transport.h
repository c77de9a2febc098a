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
};

// `rest` is the URL after its scheme. Open makes the transport, ask needs none; both log what
// is wrong.
using MakeTransport = Result (*)(const std::string& rest, const Endpoint& endpoint,
                                 std::unique_ptr<Transport>& made);
using AskCounters = Result (*)(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
                               vorn_bus_counters& counters);
using MakeWatcher = Result (*)(const std::string& rest, const WatchEndpoint& endpoint,
                               std::unique_ptr<Watcher>& made);

using ListAddresses = Result (*)(const std::string& rest, Log& log, std::vector<Listed>& found);

struct Scheme {
    const char* prefix;  // of the URL
    MakeTransport make;  // null, like the others: not built
    AskCounters ask;
    MakeWatcher watch;
    ListAddresses list;
};

// The scheme of a URL; null: none of this bus.
const Scheme* find_scheme(const std::string& url);

// The URL with *** for what stands before an '@': a user's name, a password, a token.
std::string display_url(const std::string& url);

Result make_loop(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made);
Result ask_loop(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
                vorn_bus_counters& counters);
Result watch_loop(const std::string& rest, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made);
Result list_loop(const std::string& rest, Log& log, std::vector<Listed>& found);
Result make_ipc(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made);
Result ask_ipc(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
               vorn_bus_counters& counters);
Result watch_ipc(const std::string& rest, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made);
Result list_ipc(const std::string& rest, Log& log, std::vector<Listed>& found);
Result make_nats(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made);
Result make_nats_tls(const std::string& rest, const Endpoint& endpoint, std::unique_ptr<Transport>& made);
Result ask_nats(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
                vorn_bus_counters& counters);
Result watch_nats(const std::string& rest, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made);
Result list_nats(const std::string& rest, Log& log, std::vector<Listed>& found);
Result list_nats_tls(const std::string& rest, Log& log, std::vector<Listed>& found);
Result ask_nats_tls(const std::string& rest, std::uint32_t address, Deadline deadline, Log& log,
                    vorn_bus_counters& counters);
Result watch_nats_tls(const std::string& rest, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made);

}  // namespace vorn

#endif
