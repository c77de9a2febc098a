// SPDX-License-Identifier: Apache-2.0
// Promise: no URL makes its readers misbehave, and none shows what stands before its last '@'.
//
// Input: a choice of scheme, then the rest of the URL; or the limits that a stream's description states.
#include <cstdint>
#include <string>

#include "fuzz/supply.h"
#include "vorn/core/transport.h"
#ifdef VORN_WITH_NATS
#include "vorn/nats/nats_url.h"
#endif

namespace {

// loop: and ipc: have none.
const std::string kSecret = "s3cr3t\x01word";

void check_shown(const std::string& scheme, const std::string& rest) {
    const std::string shown = vorn::display_url(scheme + rest);
    fuzz::promise(vorn::display_url(shown).size() <= shown.size() + rest.size() + 3,
                  "a shown URL can be shown");
    const std::string with_secret = scheme + kSecret + rest + "@host";
    if (scheme == "loop:" || scheme == "ipc://" || rest.find(kSecret) != std::string::npos) return;
    fuzz::promise(vorn::url_fault(with_secret).find(kSecret) == std::string::npos, "no secret is in a fault");
    fuzz::promise(vorn::display_url(with_secret).find(kSecret) == std::string::npos, "no secret is shown");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string kSchemes[] = {"loop:",       "ipc://", "tcp://", "nats://",
                                           "nats+tls://", "",       "http://"};
    fuzz::Supply supply(data, size);
    const std::string& scheme = kSchemes[supply.take<std::uint8_t>() % std::size(kSchemes)];
    const std::vector<std::uint8_t> bytes = supply.rest();
    const std::string rest(bytes.begin(), bytes.end());
    const std::string fault = vorn::url_fault(scheme + rest);
    fuzz::promise(fault.size() < 300, "what is wrong with a URL is a sentence");
    check_shown(scheme, rest);
#ifdef VORN_WITH_NATS
    vorn::NatsUrl url;
    if (vorn::read_nats_url({rest, false}, url).empty()) {
        fuzz::promise(!url.servers.empty() && url.replicas >= 1, "a URL that is read names a server");
    }
    if (const auto limits = vorn::read_limits(rest.c_str())) {
        const auto again = vorn::read_limits(vorn::limits_text(*limits).c_str());
        fuzz::promise(again && again->batches == limits->batches && again->bytes == limits->bytes &&
                          again->batch_bytes == limits->batch_bytes,
                      "limits are read as they were written");
    }
#endif
    return 0;
}
