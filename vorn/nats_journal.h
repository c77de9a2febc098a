// SPDX-License-Identifier: Apache-2.0
// What a receiver has handled, where the kill of its process does not reach: a small file, written through
// memory.
#ifndef VORN_NATS_JOURNAL_H
#define VORN_NATS_JOURNAL_H

#include <cstdint>
#include <string>

#include "vorn/support.h"

namespace vorn {

// Units are handled one at a time, in the stream's order: two numbers say it all.
class Journal {
  public:
    Journal() = default;
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Throws system_error.
    void open(const std::string& file);

    // Says which stream it is about; another one, or the same made anew, begins at 0.
    void begin(std::int64_t stream_created);

    std::uint64_t finished() const;  // number of the last unit whose handler has returned
    std::uint64_t started() const;   // and of the last one whose handler was called
    void start(std::uint64_t number);
    void finish(std::uint64_t number);

  private:
    struct Numbers {
        std::uint64_t mark;
        std::int64_t stream_created;
        std::uint64_t started;
        std::uint64_t finished;
    };
    volatile Numbers* numbers_ = nullptr;
    int file_ = -1;
};

}  // namespace vorn

#endif
