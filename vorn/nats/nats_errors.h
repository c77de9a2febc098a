// SPDX-License-Identifier: Apache-2.0
// Why a server or the client refused, as words that say what to do next.
#ifndef VORN_NATS_ERRORS_H
#define VORN_NATS_ERRORS_H

#include <nats/nats.h>

#include <string>

namespace vorn {

// The reason, for the end of a line: "STREAM: reason". Uses the client's words of the last call in this
// thread.
std::string nats_reason(natsStatus status, jsErrCode code);

// Whether it may be over soon: a server that is not up yet, a cluster without a leader.
bool may_pass(natsStatus status, jsErrCode code);

}  // namespace vorn

#endif
