// SPDX-License-Identifier: Apache-2.0
#include "vorn/ipc/folder.h"

#include <dirent.h>
#include <fcntl.h>
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
#include <memory>
#include <string_view>
#include <utility>

namespace vorn {
namespace {

constexpr int kBacklog = 4096;  // the system may have less
constexpr int kFolder = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

Result refused(Log& log, const std::string& path, const std::string& why) {
    log.error(path, ": ", why);
    return VORN_BUS_SYSTEM_ERROR;
}

// Why a folder of the path cannot be trusted; null: it can.
const char* distrust(const struct stat& status, bool is_last) {
    if (status.st_uid != geteuid() && status.st_uid != 0) return "belongs to another user";
    const bool others_write = (status.st_mode & (S_IWGRP | S_IWOTH)) != 0;
    if (others_write && (is_last || (status.st_mode & S_ISVTX) == 0)) return "others may write there";
    return nullptr;
}

// A socket's name holds 107 bytes: it is reached by the descriptor of its folder.
bool name_of(const std::string& path, sockaddr_un& name, socklen_t& size) {
    name = {};
    name.sun_family = AF_UNIX;
    if (path.size() >= sizeof name.sun_path) return false;
    std::memcpy(name.sun_path, path.c_str(), path.size() + 1);
    size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + path.size() + 1);
    return true;
}

Descriptor make_socket() {
    return Descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
}

}  // namespace

Result Folder::open(const std::string& path, bool make, Log& log) {
    std::error_code error;
    const std::filesystem::path whole =
        std::filesystem::absolute(path.empty() ? default_folder() : path, error).lexically_normal();
    if (error) return refused(log, path, error.message());
    path_ = whole.string();
    while (path_.size() > 1 && path_.back() == '/') path_.pop_back();

    Descriptor at(::open("/", kFolder));
    std::string seen = "/";
    const std::filesystem::path below = std::filesystem::path(path_).relative_path();
    const auto parts = std::distance(below.begin(), below.end());
    std::ptrdiff_t part = 0;
    for (const auto& name : below) {
        const bool is_last = ++part == parts;
        seen += (seen.size() > 1 ? "/" : "") + name.string();
        if (make && part + 1 >= parts && mkdirat(at.get(), name.c_str(), S_IRWXU) != 0 && errno != EEXIST) {
            return refused(log, seen, system_error_text());
        }
        Descriptor next(openat(at.get(), name.c_str(), kFolder));
        if (!next) {
            const bool is_link = errno == ELOOP || errno == ENOTDIR;
            return refused(log, seen,
                           is_link ? "is no folder, or a link to one; a bus wants the folder's own path"
                                   : system_error_text());
        }
        struct stat status = {};
        if (fstat(next.get(), &status) != 0) return refused(log, seen, system_error_text());
        if (const char* const why = distrust(status, is_last); why != nullptr) {
            return refused(log, seen,
                           std::string(why) + "; a bus keeps its sockets in a folder of this user alone");
        }
        at = std::move(next);
    }
    folder_ = std::move(at);
    return VORN_BUS_OK;
}

std::string Folder::descriptor_path() const { return "/proc/self/fd/" + std::to_string(folder_.get()); }

// The lock's file stays: were it removed, one process could lock the old file and another a new one.
Result Folder::lock(std::uint32_t address, Log& log, Descriptor& lock) const {
    const std::string name = lock_name(address);
    Descriptor made(
        openat(folder_.get(), name.c_str(), O_CREAT | O_RDWR | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR));
    if (!made) return refused(log, path_ + "/" + name, system_error_text());
    struct flock whole = {};
    whole.l_type = F_WRLCK;
    if (fcntl(made.get(), F_OFD_SETLK, &whole) != 0) {
        if (errno == EAGAIN || errno == EACCES) return VORN_BUS_ADDRESS_TAKEN;
        return refused(log, path_ + "/" + name, system_error_text());
    }
    const std::string holder = std::to_string(getpid()) + "\n";
    if (ftruncate(made.get(), 0) != 0 ||
        pwrite(made.get(), holder.data(), holder.size(), 0) != static_cast<ssize_t>(holder.size())) {
        return refused(log, path_ + "/" + name, system_error_text());
    }
    lock = std::move(made);
    return VORN_BUS_OK;
}

pid_t Folder::holder(std::uint32_t address) const {
    const std::string name = lock_name(address);
    const Descriptor file(openat(folder_.get(), name.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW));
    struct flock held = {};
    held.l_type = F_WRLCK;
    if (!file || fcntl(file.get(), F_OFD_GETLK, &held) != 0 || held.l_type == F_UNLCK) return 0;
    std::array<char, 16> text = {};
    const ssize_t size = pread(file.get(), text.data(), text.size(), 0);
    pid_t process = 0;
    std::from_chars(text.data(), text.data() + std::max<ssize_t>(size, 0), process);
    return process;
}

// Whether a name is free for a socket, or has one that a killed process left.
bool Folder::is_ours(const std::string& name, Log& log) const {
    struct stat status = {};
    if (fstatat(folder_.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return errno == ENOENT;
    if (S_ISSOCK(status.st_mode)) return true;
    log.error(path_, "/", name,
              ": is no socket of a bus, and is left as it is; use another folder or address");
    return false;
}

Result Folder::listen(std::uint32_t address, Log& log, Descriptor& lock, Descriptor& listener) const {
    Descriptor held;
    if (const Result result = this->lock(address, log, held); result != VORN_BUS_OK) return result;
    // Under another name until it listens: who sees the name can connect.
    const std::string name = socket_name(address);
    const std::string name_until_then = name + ".new";
    if (!is_ours(name, log) || !is_ours(name_until_then, log)) return VORN_BUS_SYSTEM_ERROR;
    unlinkat(folder_.get(), name_until_then.c_str(), 0);
    sockaddr_un bound;
    socklen_t size = 0;
    name_of(descriptor_path() + "/" + name_until_then, bound, size);
    Descriptor made = make_socket();
    if (!made || fchmod(made.get(), S_IRUSR | S_IWUSR) != 0 ||
        bind(made.get(), reinterpret_cast<const sockaddr*>(&bound), size) != 0 ||
        ::listen(made.get(), kBacklog) != 0 ||
        renameat(folder_.get(), name_until_then.c_str(), folder_.get(), name.c_str()) != 0) {
        return refused(log, socket_path(address), system_error_text());
    }
    lock = std::move(held);
    listener = std::move(made);
    return VORN_BUS_OK;
}

void Folder::unlisten(std::uint32_t address, const Descriptor& listener) const {
    // Who holds the address's lock owns what has its name; a process without descriptors has lost both.
    if (listener) unlinkat(folder_.get(), socket_name(address).c_str(), 0);
}

Result Folder::remove(std::uint32_t address, Log& log) const {
    const std::string name = socket_name(address);
    if (faccessat(folder_.get(), name.c_str(), F_OK, AT_SYMLINK_NOFOLLOW) != 0) return VORN_BUS_NO_PEER;
    Descriptor held;
    if (const Result result = lock(address, log, held); result != VORN_BUS_OK) return result;
    if (!is_ours(name, log)) return VORN_BUS_SYSTEM_ERROR;
    if (unlinkat(folder_.get(), name.c_str(), 0) == 0) return VORN_BUS_OK;
    return errno == ENOENT ? VORN_BUS_NO_PEER : refused(log, socket_path(address), system_error_text());
}

Folder::Connected Folder::connect(std::uint32_t address, Descriptor& socket) const {
    sockaddr_un name;
    socklen_t size = 0;
    name_of(descriptor_path() + "/" + socket_name(address), name, size);
    Descriptor made = make_socket();
    if (!made) return Connected::failed;
    if (::connect(made.get(), reinterpret_cast<const sockaddr*>(&name), size) != 0) {
        if (errno == ENOENT || errno == ECONNREFUSED) return Connected::nobody;
        return errno == EAGAIN || errno == EINTR ? Connected::later : Connected::failed;
    }
    socket = std::move(made);
    return Connected::yes;
}

bool Folder::address_of(const char* name, std::uint32_t& address) {
    const std::string_view text(name);
    const auto [rest, fault] = std::from_chars(text.data(), text.data() + text.size(), address);
    return fault == std::errc() && std::string_view(rest) == ".sock" && socket_name(address) == text;
}

bool Folder::list(std::vector<std::uint32_t>& addresses) const {
    const int copy = openat(folder_.get(), ".", kFolder);
    if (copy < 0) return false;
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(fdopendir(copy), closedir);
    if (entries == nullptr) {
        ::close(copy);
        return false;
    }
    for (errno = 0;;) {
        const dirent* const entry =
            readdir(entries.get());  // NOLINT(concurrency-mt-unsafe): a stream of its own
        if (entry == nullptr) break;
        std::uint32_t address = 0;
        if (address_of(entry->d_name, address)) addresses.push_back(address);
    }
    std::sort(addresses.begin(), addresses.end());
    return errno == 0;
}

}  // namespace vorn
