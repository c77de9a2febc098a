// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_errors.h"

namespace vorn {
namespace {

// Null: nothing is known beyond the client's words.
const char* advice(natsStatus status, jsErrCode code) {
    switch (code) {
        case JSNotEnabledErr:
        case JSNotEnabledForAccountErr:
            return "JetStream is off there: start nats-server with -js, or enable it for this account";
        case JSStreamReplicasNotSupportedErr:
            return "replicas=N of the URL needs a cluster of at least N servers with JetStream, and this is "
                   "none: leave "
                   "it out";
        case JSClusterNoPeersErr:
        case JSInsufficientResourcesErr:
            return "not enough servers of the cluster are up, or have space left, for replicas=N of the URL";
        case JSStorageResourcesExceededErr:
        case JSAccountResourcesExceededErr:
        case JSMaximumStreamsLimitErr:
        case JSMaximumConsumersLimitErr:
            return "a limit of the server or of this account is reached: raise it, or delete streams that "
                   "nobody needs";
        case JSStreamSubjectOverlapErr:
            return "another stream has its subjects: choose another prefix=NAME in the URL";
        case JSClusterNotAvailErr:
        case JSClusterNotLeaderErr:
            return "the cluster has no leader now: try again, or open with a longer open_timeout_ms";
        default:
            break;
    }
    switch (status) {
        case NATS_NO_SERVER:
            return "no server answers there: is nats-server running, and are host and port right? With "
                   "open_timeout_ms, "
                   "opening waits for it";
        case NATS_CONNECTION_AUTH_FAILED:
            return "the server refuses the credentials: look at the user and password of the URL, or at the "
                   "VORN_NATS_ "
                   "variables of the environment";
        case NATS_SECURE_CONNECTION_REQUIRED:
            return "the server takes TLS alone: use nats+tls://";
        case NATS_SECURE_CONNECTION_WANTED:
            return "the server has no TLS: use nats://, or give it a certificate";
        case NATS_SSL_ERROR:
            return "TLS failed: VORN_NATS_CA names the file of the authority that signed the server's "
                   "certificate, and "
                   "that has to be for this host";
        case NATS_NO_RESPONDERS:
            return "nobody answers for JetStream: start nats-server with -js, or wait until its cluster has "
                   "a leader";
        case NATS_TIMEOUT:
            return "no answer in time: the server is busy or without a leader, or a permission is missing, "
                   "which a line "
                   "before this one names";
        case NATS_NOT_PERMITTED:
            return "the server does not permit it: docs/nats.md lists the permissions of each role";
        default:
            return nullptr;
    }
}

}  // namespace

std::string nats_reason(natsStatus status, jsErrCode code) {
    const char* const known = advice(status, code);
    natsStatus last = NATS_OK;
    const char* const words = nats_GetLastError(&last);
    const bool has_words = last == status && words != nullptr && *words != '\0';
    std::string said = has_words ? words : natsStatus_GetText(status);
    // Where in the client's source they stand: "(conn.c:733): ".
    if (const std::size_t end = said.find("): "); said.starts_with('(') && end != std::string::npos)
        said.erase(0, end + 3);
    return known == nullptr ? said : std::string(known) + " (" + said + ")";
}

bool may_pass(natsStatus status, jsErrCode code) {
    return status == NATS_NO_SERVER || status == NATS_NO_RESPONDERS || status == NATS_TIMEOUT ||
           status == NATS_CONNECTION_DISCONNECTED || code == JSClusterNotAvailErr ||
           code == JSClusterNotLeaderErr || code == JSClusterNoPeersErr || code == JSInsufficientResourcesErr;
}

}  // namespace vorn
