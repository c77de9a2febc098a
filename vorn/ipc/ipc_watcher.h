// SPDX-License-Identifier: Apache-2.0
// Watching what others take on ipc.
#ifndef VORN_IPC_WATCHER_H
#define VORN_IPC_WATCHER_H

#include <memory>

#include "vorn/core/transport.h"

namespace vorn {

Result watch_ipc(const BusUrl& url, const WatchEndpoint& endpoint, std::unique_ptr<Watcher>& made);

}  // namespace vorn

#endif
