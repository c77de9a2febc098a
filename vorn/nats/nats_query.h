// SPDX-License-Identifier: Apache-2.0
// What is asked of a server without opening a bus there. Creates nothing on it.
#ifndef VORN_NATS_QUERY_H
#define VORN_NATS_QUERY_H

#include <nats/nats.h>

#include <string>

namespace vorn {

// Whether a receiver is connected to the stream.
bool has_receiver(jsCtx* jetstream, const std::string& stream);

}  // namespace vorn

#endif
