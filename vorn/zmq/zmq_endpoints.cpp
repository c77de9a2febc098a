// SPDX-License-Identifier: Apache-2.0
#include "vorn/zmq/zmq_endpoints.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <map>
#include <string_view>
#include <system_error>
#include <utility>

#include "vorn/core/transport.h"

namespace vorn {
namespace {

// Addresses are files of a folder that only this user can enter. A socket's file does not show who listens,
// and binding replaces it: the address belongs to whoever holds the lock beside it, which ends with its
// process.
class IpcEndpoints final : public ZmqEndpoints {
  public:
    explicit IpcEndpoints(std::string folder) : folder_(std::move(folder)) {}
    ~IpcEndpoints() override {
        if (lock_ >= 0) ::close(lock_);
    }

    std::optional<std::string> endpoint(std::uint32_t address) const override {
        std::string path = file(address, ".sock");
        if (path.size() >= sizeof(sockaddr_un::sun_path)) return std::nullopt;
        return "ipc://" + path;
    }

    bool can_list() const override { return true; }
    std::vector<std::uint32_t> list(std::error_code& error) const override {
        std::vector<std::uint32_t> addresses;
        for (std::filesystem::directory_iterator entry(folder_, error), end; !error && entry != end;
             entry.increment(error)) {
            const std::string name = entry->path().filename().string();
            std::uint32_t address = 0;
            const char* const name_end = name.data() + name.size();
            const auto [rest, fault] = std::from_chars(name.data(), name_end, address);
            if (fault == std::errc() && std::string_view(rest, name_end) == ".sock")
                addresses.push_back(address);
        }
        std::sort(addresses.begin(), addresses.end());
        return addresses;
    }

    Result before_bind(std::uint32_t address, Log& log) override {
        std::error_code error;
        std::filesystem::create_directories(std::filesystem::path(folder_).parent_path(), error);
        if (mkdir(folder_.c_str(), S_IRWXU) != 0 && errno != EEXIST) return refused(log, folder_);
        struct stat status = {};
        if (stat(folder_.c_str(), &status) != 0) return refused(log, folder_);
        if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0 ||
            (status.st_uid != geteuid() && status.st_uid != 0)) {
            log.line(folder_, ": others may write there; a bus keeps its sockets in a folder of its own");
            return VORN_BUS_SYSTEM_ERROR;
        }
        const std::string path = file(address, ".lock");
        lock_ = ::open(path.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
        if (lock_ < 0) return refused(log, path);
        if (flock(lock_, LOCK_EX | LOCK_NB) != 0) {
            ::close(std::exchange(lock_, -1));
            return VORN_BUS_ADDRESS_TAKEN;
        }
        return VORN_BUS_OK;
    }
    void after_bind(std::uint32_t address) override {
        static_cast<void>(chmod(file(address, ".sock").c_str(), S_IRUSR | S_IWUSR));
    }

    // The lock's file stays: were it removed, one process could lock the old file and another a new one.
    void after_unbind(std::uint32_t address) override {
        unlink(file(address, ".sock").c_str());
        if (lock_ >= 0) ::close(std::exchange(lock_, -1));
    }

  private:
    std::string file(std::uint32_t address, const char* suffix) const {
        return folder_ + "/" + std::to_string(address) + suffix;
    }
    static Result refused(Log& log, const std::string& path) {
        log.line(path, ": ", system_error_text());
        return VORN_BUS_SYSTEM_ERROR;
    }

    std::string folder_;
    int lock_ = -1;
};

// Whether a process has the socket of an endpoint open: the file of one that was killed stays.
bool is_listened_to(const std::string& endpoint) {
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    const std::string path = endpoint.substr(std::min(endpoint.size(), std::string_view("ipc://").size()));
    if (path.empty() || path.size() >= sizeof name.sun_path) return false;
    std::memcpy(name.sun_path, path.c_str(), path.size() + 1);
    const int tried = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (tried < 0) return false;
    const bool taken =
        connect(tried, reinterpret_cast<const sockaddr*>(&name), sizeof name) == 0 || errno == EAGAIN;
    ::close(tried);
    return taken;
}

struct HostPort {
    std::string host;  // an IPv6 address in brackets
    std::uint16_t port;
};

template <class Integer>
std::optional<Integer> number(std::string_view text) {
    Integer value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<HostPort> host_port(std::string_view text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0) return std::nullopt;
    const auto port = number<std::uint16_t>(text.substr(colon + 1));
    if (!port) return std::nullopt;
    return HostPort{std::string(text.substr(0, colon)), *port};
}

// Address N is at the first host and N ports after the first port, unless it has an entry of its own. All
// processes are given the same URL.
class TcpEndpoints final : public ZmqEndpoints {
  public:
    static std::unique_ptr<ZmqEndpoints> parse(std::string_view rest) {
        auto endpoints = std::make_unique<TcpEndpoints>();
        bool more = true;
        for (bool first = true; more; first = false) {
            const std::size_t comma = rest.find(',');
            const std::string_view part = rest.substr(0, comma);
            more = comma != std::string_view::npos;
            if (more) rest = rest.substr(comma + 1);
            const std::size_t equals = part.find('=');
            if ((equals == std::string_view::npos) != first) return nullptr;
            if (first) {
                const auto base = host_port(part);
                if (!base || base->port == 0) return nullptr;
                endpoints->base_ = *base;
            } else {
                const auto address = number<std::uint32_t>(part.substr(0, equals));
                const auto endpoint = host_port(part.substr(equals + 1));
                if (!address || !endpoint || endpoint->port == 0) return nullptr;
                if (!endpoints->own_.emplace(*address, *endpoint).second) return nullptr;
            }
        }
        return endpoints;
    }

    std::optional<std::string> endpoint(std::uint32_t address) const override {
        const auto own = own_.find(address);
        if (own != own_.end()) return text(own->second.host, own->second.port);
        if (address > std::uint32_t{UINT16_MAX} - base_.port) return std::nullopt;
        return text(base_.host, base_.port + address);
    }

    Result before_bind(std::uint32_t /*address*/, Log& /*log*/) override { return VORN_BUS_OK; }
    void after_bind(std::uint32_t /*address*/) override {}
    void after_unbind(std::uint32_t /*address*/) override {}

  private:
    static std::string text(const std::string& host, std::uint32_t port) {
        return "tcp://" + host + ":" + std::to_string(port);
    }

    HostPort base_ = {};
    std::map<std::uint32_t, HostPort> own_;
};

}  // namespace

std::unique_ptr<ZmqEndpoints> ipc_endpoints(const std::string& rest) {
    if (rest.empty()) return std::make_unique<IpcEndpoints>(default_folder());
    std::string folder = rest;
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    return std::make_unique<IpcEndpoints>(folder);
}

std::unique_ptr<ZmqEndpoints> tcp_endpoints(const std::string& rest) { return TcpEndpoints::parse(rest); }

Result list_ipc(const std::string& rest, Log& log, std::vector<Listed>& found) {
    const std::unique_ptr<ZmqEndpoints> endpoints = ipc_endpoints(rest);
    std::error_code error;
    for (const std::uint32_t address : endpoints->list(error)) {
        const std::string endpoint = endpoints->endpoint(address).value_or("");
        found.push_back({address, is_listened_to(endpoint), endpoint});
    }
    if (!error) return VORN_BUS_OK;
    log.line(rest.empty() ? default_folder() : rest, ": ", error.message());
    return VORN_BUS_SYSTEM_ERROR;
}

Result list_tcp(const std::string& /*rest*/, Log& log, std::vector<Listed>& /*found*/) {
    log.line("addresses of tcp cannot be listed: name those that you mean");
    return VORN_BUS_BAD_URL;
}

}  // namespace vorn
