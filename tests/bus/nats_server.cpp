// SPDX-License-Identifier: Apache-2.0
#include "tests/bus/nats_server.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <thread>
#include <utility>

namespace tests {
namespace {

sockaddr_in local(int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int free_port() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = local(0);
    socklen_t size = sizeof address;
    if (bind(probe, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
        getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        throw std::runtime_error("no free port");
    }
    close(probe);
    return ntohs(address.sin_port);
}

bool answers(int port) {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = local(port);
    const bool connected = connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    close(probe);
    return connected;
}

}  // namespace

NatsServer::NatsServer(std::vector<std::string> arguments)
    : arguments_(std::move(arguments)), port_(free_port()) {
    std::string name = (std::filesystem::temp_directory_path() / "vorn-nats-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    folder_ = name;
    start();
}

NatsServer::~NatsServer() {
    kill();
    std::filesystem::remove_all(folder_);
}

NatsServer& NatsServer::shared() {
    static NatsServer server;
    return server;
}

void NatsServer::start() {
    std::vector<std::string> texts = {"nats-server",         "-js", "-a",   "127.0.0.1", "-p",
                                      std::to_string(port_), "-sd", folder_};
    texts.insert(texts.end(), arguments_.begin(), arguments_.end());
    std::vector<char*> pointers;
    for (std::string& text : texts) pointers.push_back(text.data());
    pointers.push_back(nullptr);
    const std::string log = folder_ + "/log";
    process_ = fork();
    if (process_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);  // it goes with the test, however that ends
        const int file = ::open(log.c_str(), O_CREAT | O_WRONLY | O_APPEND, 0600);
        dup2(file, STDOUT_FILENO);
        dup2(file, STDERR_FILENO);
        execvp("nats-server", pointers.data());
        _exit(127);
    }
    for (int tries = 0; tries < 1000; ++tries) {
        if (answers(port_)) return;
        if (waitpid(process_, nullptr, WNOHANG) != 0) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    throw std::runtime_error("nats-server does not start; its words are in " + log);
}

void NatsServer::kill() {
    if (process_ < 0) return;
    ::kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
    process_ = -1;
}

std::string url_of(const NatsServer& server, const std::string& user, const std::string& scheme) {
    return scheme + user + "127.0.0.1:" + std::to_string(server.port()) + "?state=" + server.folder() +
           "/state";
}

}  // namespace tests
