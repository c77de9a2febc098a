// SPDX-License-Identifier: Apache-2.0
// Who this client is to a server, and whom it trusts: of the URL and the environment.
#ifndef VORN_NATS_CREDENTIALS_H
#define VORN_NATS_CREDENTIALS_H

#include <nats/nats.h>

#include <string>

namespace vorn {

// What a host may give beside the URL, in its environment. Values are never printed.
inline constexpr const char* kNatsUser = "VORN_NATS_USER";
inline constexpr const char* kNatsPassword = "VORN_NATS_PASSWORD";
inline constexpr const char* kNatsToken = "VORN_NATS_TOKEN";
inline constexpr const char* kNatsCredentials = "VORN_NATS_CREDS";  // file of a user's JWT and seed
inline constexpr const char* kNatsNkey = "VORN_NATS_NKEY";  // file of a seed and its public key, a line each
inline constexpr const char* kNatsAuthorities = "VORN_NATS_CA";  // files of PEM
inline constexpr const char* kNatsCertificate = "VORN_NATS_CERT";
inline constexpr const char* kNatsKey = "VORN_NATS_KEY";

// Empty: they are set. Else what is wrong with them.
std::string set_credentials(natsOptions* options, bool tls);

// Whether a secret would go through a network as it is.
bool exposes_secret(const std::string& server);

}  // namespace vorn

#endif
