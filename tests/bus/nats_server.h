// SPDX-License-Identifier: Apache-2.0
// A nats-server of the test's own, on a free port of this machine, with its files in a folder that goes with
// it.
#ifndef TESTS_BUS_NATS_SERVER_H
#define TESTS_BUS_NATS_SERVER_H

#include <sys/types.h>

#include <string>
#include <vector>

namespace tests {

class NatsServer {
  public:
    // Further arguments go to the server. Throws if it does not start.
    explicit NatsServer(std::vector<std::string> arguments = {});
    ~NatsServer();
    NatsServer(const NatsServer&) = delete;
    NatsServer& operator=(const NatsServer&) = delete;

    // One for all tests of a process, started at first use.
    static NatsServer& shared();

    int port() const { return port_; }
    const std::string& folder() const { return folder_; }
    void kill();   // as a machine that loses its power
    void start();  // with the files of before

  private:
    std::vector<std::string> arguments_;
    std::string folder_;
    int port_;
    pid_t process_ = -1;
};

// With the state folder among the server's files.
std::string url_of(const NatsServer& server, const std::string& user = "",
                   const std::string& scheme = "nats://");

}  // namespace tests

#endif
