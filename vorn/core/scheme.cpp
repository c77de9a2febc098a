// SPDX-License-Identifier: Apache-2.0
// The schemes of URLs.
#include <algorithm>
#include <string>

#include "vorn/core/transport.h"

namespace vorn {
namespace {

#ifdef VORN_WITH_NATS
constexpr const TransportKind* kBuiltNats = &kNats;
#else
constexpr const TransportKind* kBuiltNats = nullptr;
#endif

struct Scheme {
    const char* prefix;
    const TransportKind* kind;  // null: not built
    bool tls;
};

const Scheme* split(const std::string& url, BusUrl& read) {
    static constexpr Scheme kSchemes[] = {{"loop:", &kLoop, false},
                                          {"ipc://", &kIpc, false},
                                          {"nats://", kBuiltNats, false},
                                          {"nats+tls://", kBuiltNats, true}};
    for (const Scheme& scheme : kSchemes) {
        if (!url.starts_with(scheme.prefix)) continue;
        read = {url.substr(std::string(scheme.prefix).size()), scheme.tls};
        return &scheme;
    }
    return nullptr;
}

}  // namespace

std::string url_fault(const std::string& url) {
    BusUrl read;
    const Scheme* const scheme = split(url, read);
    if (scheme == nullptr) return "it begins with none of loop:, ipc://, nats:// and nats+tls://";
    return scheme->kind == nullptr || scheme->kind->fault == nullptr ? "" : scheme->kind->fault(read);
}

Result read_url(const std::string& url, const Log& log, const TransportKind*& kind, BusUrl& read) {
    if (const std::string fault = url_fault(url); !fault.empty()) {
        log.error("the URL \"", display_url(url), "\": ", fault);
        return VORN_BUS_BAD_URL;
    }
    kind = split(url, read)->kind;
    return kind == nullptr ? VORN_BUS_NO_TRANSPORT : VORN_BUS_OK;
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
