// SPDX-License-Identifier: Apache-2.0
// Structs of the public header that begin with their size, as earlier and later headers define them.
#ifndef VORN_SIZED_H
#define VORN_SIZED_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vorn/core/support.h"

namespace vorn {

// Where the struct ended in version 1.0, and its name for the log.
template <class T>
struct Sized;
template <>
struct Sized<vorn_bus_options> {
    static constexpr std::size_t kFirst = offsetof(vorn_bus_options, reserved) + sizeof(std::uint32_t);
    static constexpr const char* kName = "vorn_bus_options";
};
template <>
struct Sized<vorn_bus_counters> {
    static constexpr std::size_t kFirst =
        offsetof(vorn_bus_counters, damaged_messages) + sizeof(std::uint64_t);
    static constexpr const char* kName = "vorn_bus_counters";
};
template <>
struct Sized<vorn_bus_watch_options> {
    static constexpr std::size_t kFirst = offsetof(vorn_bus_watch_options, log_context) + sizeof(void*);
    static constexpr const char* kName = "vorn_bus_watch_options";
};
template <>
struct Sized<vorn_bus_watch_counters> {
    static constexpr std::size_t kFirst =
        offsetof(vorn_bus_watch_counters, interruptions) + sizeof(std::uint64_t);
    static constexpr const char* kName = "vorn_bus_watch_counters";
};

// What a caller never set is rarely a size: beyond this nothing is read or written.
inline constexpr std::size_t kLargestSize = 4096;

template <class T>
bool has_valid_size(const T& given, const Log& log) {
    if (given.size >= Sized<T>::kFirst && given.size <= kLargestSize) return true;
    log.error(Sized<T>::kName, ".size is ", given.size, ", and must be ", sizeof(T), ": initialise it with ",
              Sized<T>::kName, "_init()");
    return false;
}

// Copies what a caller has set. False: refused, and logged.
template <class T>
bool take_sized(const T& given, const Log& log, T& taken) {
    if (!has_valid_size(given, log)) return false;
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(&given);
    const std::size_t known = std::min<std::size_t>(given.size, sizeof(T));
    if (std::any_of(bytes + known, bytes + given.size, [](std::uint8_t byte) { return byte != 0; })) {
        log.error(Sized<T>::kName, " has members set that this library does not know, after byte ", known,
                  ": leave them 0, or install a later libvorn_bus");
        return false;
    }
    taken = {};
    std::memcpy(&taken, bytes, known);
    taken.size = sizeof(T);
    return true;
}

// Fills as many bytes as the caller's struct has. False: refused, and logged.
template <class T>
bool fill_sized(const T& values, const Log& log, T& filled) {
    if (!has_valid_size(filled, log)) return false;
    const std::uint32_t size = filled.size;
    const std::size_t known = std::min<std::size_t>(size, sizeof(T));
    auto* const bytes = reinterpret_cast<std::uint8_t*>(&filled);
    std::memcpy(bytes, &values, known);
    std::memset(bytes + known, 0, size - known);
    filled.size = size;
    return true;
}

}  // namespace vorn

#endif
