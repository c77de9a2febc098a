// SPDX-License-Identifier: Apache-2.0
// What is asked and done of and to a server without opening a bus there; creates nothing on it. The functions
// of the kind of transport.
#ifndef VORN_NATS_QUERY_H
#define VORN_NATS_QUERY_H

#include <nats/nats.h>

#include <memory>
#include <string>
#include <vector>

#include "vorn/core/transport.h"

namespace vorn {

// Whether a receiver is connected to the stream.
bool has_receiver(jsCtx* jetstream, const std::string& stream);

Result ask_nats(const BusUrl& url, std::uint32_t address, Deadline deadline, Log& log,
                vorn_bus_counters& counters);
Result watch_nats(const BusUrl& url, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made);
Result list_nats(const BusUrl& url, Log& log, std::vector<Listed>& found);
Result remove_nats(const BusUrl& url, std::uint32_t address, Log& log);

}  // namespace vorn

#endif
