// SPDX-License-Identifier: Apache-2.0
// The kinds of URL. A transport that is not built keeps its line, so that the answer says so.
#include <cstring>

#include "vorn/core/transport.h"

#ifdef VORN_WITH_ZMQ
#define VORN_ZMQ(function) function
#else
#define VORN_ZMQ(function) nullptr
#endif
#ifdef VORN_WITH_NATS
#define VORN_NATS(function) function
#else
#define VORN_NATS(function) nullptr
#endif

namespace vorn {

const Scheme* find_scheme(const std::string& url) {
    static constexpr Scheme kSchemes[] = {
        {"loop:", make_loop, ask_loop, watch_loop},
        {"ipc://", VORN_ZMQ(make_ipc), VORN_ZMQ(ask_ipc), VORN_ZMQ(watch_ipc)},
        {"tcp://", VORN_ZMQ(make_tcp), VORN_ZMQ(ask_tcp), VORN_ZMQ(watch_tcp)},
        {"nats://", VORN_NATS(make_nats), VORN_NATS(ask_nats), VORN_NATS(watch_nats)},
        {"nats+tls://", VORN_NATS(make_nats_tls), VORN_NATS(ask_nats_tls), VORN_NATS(watch_nats_tls)},
    };
    for (const Scheme& scheme : kSchemes) {
        if (url.compare(0, std::strlen(scheme.prefix), scheme.prefix) == 0) return &scheme;
    }
    return nullptr;
}

}  // namespace vorn
