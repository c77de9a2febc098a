// SPDX-License-Identifier: Apache-2.0
// Where addresses are: a folder of sockets, or hosts and ports.
#ifndef VORN_ZMQ_ENDPOINTS_H
#define VORN_ZMQ_ENDPOINTS_H

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "vorn/core/support.h"

namespace vorn {

class ZmqEndpoints {
  public:
    virtual ~ZmqEndpoints() = default;

    // ZeroMQ's endpoint of an address; none where the URL has none for it.
    virtual std::optional<std::string> endpoint(std::uint32_t address) const = 0;

    // The addresses whose sockets are there, in order; whether the URL can show them.
    virtual bool can_list() const { return false; }
    virtual std::vector<std::uint32_t> list(std::error_code& /*error*/) const { return {}; }

    // Around binding to the own address: takes what makes it unique; restricts it to this user.
    virtual Result before_bind(std::uint32_t address, Log& log) = 0;
    virtual void after_bind(std::uint32_t address) = 0;
    virtual void after_unbind(std::uint32_t address) = 0;
};

// `rest` is the URL after its scheme; null: it is not valid.
std::unique_ptr<ZmqEndpoints> ipc_endpoints(const std::string& rest);
std::unique_ptr<ZmqEndpoints> tcp_endpoints(const std::string& rest);

}  // namespace vorn

#endif
