// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_credentials.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "vorn/core/support.h"
#include "vorn/nats/nats_errors.h"

namespace vorn {
namespace {

const char* given(const char* name) {
    const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody here sets it
    return value != nullptr && *value != '\0' ? value : nullptr;
}

// Empty: every file that the environment names can be read.
std::string unreadable_file() {
    for (const char* const name :
         {kNatsCredentials, kNatsNkey, kNatsAuthorities, kNatsCertificate, kNatsKey}) {
        const char* const file = given(name);
        if (file == nullptr || std::ifstream(file).good()) continue;
        return std::string(name) + " of the environment names " + file +
               ", which cannot be read: " + system_error_text();
    }
    return {};
}

// The line of a file that begins like a user's public key; empty: none.
std::string public_key_in(const char* file) {
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);) {
        if (line.starts_with('U')) return line;
    }
    return {};
}

}  // namespace

std::string set_credentials(natsOptions* options, bool tls) {
    if (std::string fault = unreadable_file(); !fault.empty()) return fault;
    natsStatus status = NATS_OK;
    const char* last = "";
    const auto then = [&](const char* name, auto&& set) {
        if (status != NATS_OK) return;
        last = name;
        status = set();
    };
    if (const char* const user = given(kNatsUser)) {
        then(kNatsUser, [&] { return natsOptions_SetUserInfo(options, user, given(kNatsPassword)); });
    }
    if (const char* const token = given(kNatsToken)) {
        then(kNatsToken, [&] { return natsOptions_SetToken(options, token); });
    }
    if (const char* const file = given(kNatsCredentials)) {
        then(kNatsCredentials,
             [&] { return natsOptions_SetUserCredentialsFromFiles(options, file, nullptr); });
    }
    if (const char* const file = given(kNatsNkey)) {
        const std::string key = public_key_in(file);
        if (key.empty()) {
            return std::string(kNatsNkey) + " of the environment names " + file +
                   ", which has no line with the public key: make it with nk -gen user -pubout";
        }
        then(kNatsNkey, [&] { return natsOptions_SetNKeyFromSeed(options, key.c_str(), file); });
    }
    if (tls) {
        then("TLS", [&] { return natsOptions_SetSecure(options, true); });
        if (const char* const file = given(kNatsAuthorities)) {
            then(kNatsAuthorities, [&] { return natsOptions_LoadCATrustedCertificates(options, file); });
        }
        const char* const certificate = given(kNatsCertificate);
        const char* const key = given(kNatsKey);
        if ((certificate == nullptr) != (key == nullptr)) {
            return std::string(kNatsCertificate) + " and " + kNatsKey +
                   " of the environment belong together, and one of them is missing";
        }
        if (certificate != nullptr) {
            then(kNatsCertificate,
                 [&] { return natsOptions_LoadCertificatesChain(options, certificate, key); });
        }
    }
    if (status == NATS_OK) return {};
    return std::string(last) + " of the environment cannot be used: " + nats_reason(status, {});
}

bool exposes_secret(const std::string& server) {
    constexpr std::string_view kScheme = "nats://";
    if (!server.starts_with(kScheme)) return false;
    std::string_view host = std::string_view(server).substr(kScheme.size());
    const std::size_t at = host.rfind('@');
    const bool has_secret =
        at != std::string_view::npos || given(kNatsPassword) != nullptr || given(kNatsToken) != nullptr;
    if (at != std::string_view::npos) host.remove_prefix(at + 1);
    return has_secret && !host.starts_with("127.") && !host.starts_with("localhost:") &&
           !host.starts_with("[::1]");
}

}  // namespace vorn
