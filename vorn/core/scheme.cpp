// SPDX-License-Identifier: Apache-2.0
// The kinds of URL. A transport that is not built keeps its line, so that the result is NO_TRANSPORT.
#include <algorithm>
#include <cstring>
#include <string>

#include "vorn/core/transport.h"

#ifdef VORN_WITH_NATS
#define VORN_NATS(function) function
#else
#define VORN_NATS(function) nullptr
#endif

namespace vorn {

const Scheme* find_scheme(const std::string& url) {
    static constexpr Scheme kSchemes[] = {
        {"loop:", make_loop, ask_loop, watch_loop, list_loop},
        {"ipc://", make_ipc, ask_ipc, watch_ipc, list_ipc},
        {"nats://", VORN_NATS(make_nats), VORN_NATS(ask_nats), VORN_NATS(watch_nats), VORN_NATS(list_nats)},
        {"nats+tls://", VORN_NATS(make_nats_tls), VORN_NATS(ask_nats_tls), VORN_NATS(watch_nats_tls),
         VORN_NATS(list_nats_tls)},
    };
    for (const Scheme& scheme : kSchemes) {
        if (url.compare(0, std::strlen(scheme.prefix), scheme.prefix) == 0) return &scheme;
    }
    return nullptr;
}

// URLs of no known scheme too: a credential stays one in a URL that is misspelt. A password may hold any
// character, so of parts before the last '@' nothing is shown but what follows an '@'.
std::string display_url(const std::string& url) {
    if (url.starts_with("loop:") || url.starts_with("ipc://")) return url;
    const std::size_t last_at = url.rfind('@');
    if (last_at == std::string::npos) return url;
    const std::size_t scheme =
        url.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz+-.0123456789");
    std::size_t from = url.compare(scheme, 3, "://") == 0 ? scheme + 3 : 0;
    std::string shown = url.substr(0, from);
    while (from <= last_at) {
        const std::size_t comma = std::min(url.find(',', from), url.size());
        const std::size_t at = url.rfind('@', comma);
        const bool has_at = at != std::string::npos && at >= from;
        shown += "***" + (has_at ? url.substr(at, comma - at) : "") + (comma < url.size() ? "," : "");
        from = comma + 1;
    }
    return from < url.size() ? shown + url.substr(from) : shown;
}

}  // namespace vorn
