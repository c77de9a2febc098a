// SPDX-License-Identifier: Apache-2.0
// The folder in which addresses of ipc:// are: a socket and a lock for each.
#ifndef VORN_FOLDER_H
#define VORN_FOLDER_H

#include <sys/types.h>

#include <cstdint>
#include <string>
#include <vector>

#include "vorn/core/support.h"
#include "vorn/ipc/descriptor.h"

namespace vorn {

// Resolved once: what becomes of its path later does not matter. Others must not be able to replace it:
// neither it nor a folder above it is a link, belongs to another user than this one and root, or
// may be written by others; where the sticky bit protects entries of others, as in /tmp, it may above.
class Folder {
  public:
    // `path` of a URL, empty: the default. `make`: it and its parent are made where they are missing.
    Result open(const std::string& path, bool make, Log& log);

    // Takes the address, and listens. Nobody can connect before that.
    Result listen(std::uint32_t address, Log& log, Descriptor& lock, Descriptor& listener) const;
    // Removes the socket, where it is this one still.
    void unlisten(std::uint32_t address, const Descriptor& listener) const;

    // Removes the socket that a killed process left.
    Result remove(std::uint32_t address, Log& log) const;

    enum class Connected : std::uint8_t { yes, nobody, later, failed };
    Connected connect(std::uint32_t address, Descriptor& socket) const;

    // The process that holds the address's lock; 0: none, or unknown.
    pid_t holder(std::uint32_t address) const;

    // Addresses that have a socket, in order. False: the system refused, by errno.
    bool list(std::vector<std::uint32_t>& addresses) const;

    // The address whose socket has this name; false: none.
    static bool address_of(const char* name, std::uint32_t& address);

    const std::string& path() const { return path_; }
    std::string socket_path(std::uint32_t address) const { return path_ + "/" + socket_name(address); }
    // A path to the folder itself, short enough for any call.
    std::string descriptor_path() const;

  private:
    static std::string socket_name(std::uint32_t address) { return std::to_string(address) + ".sock"; }
    static std::string lock_name(std::uint32_t address) { return std::to_string(address) + ".lock"; }
    Result lock(std::uint32_t address, Log& log, Descriptor& lock) const;
    bool is_ours(const std::string& name, Log& log) const;

    std::string path_;
    Descriptor folder_;
};

}  // namespace vorn

#endif
