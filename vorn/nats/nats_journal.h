// SPDX-License-Identifier: Apache-2.0
// What a receiver has handled, where the kill of its process does not reach: a file, written through memory.
#ifndef VORN_NATS_JOURNAL_H
#define VORN_NATS_JOURNAL_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

namespace vorn {

// Batches are handled one at a time, in the stream's order. So two numbers hold how far the stream is
// handled, and one for each session of a sender what is known of it: it may have stored its last batch twice.
class Journal {
  public:
    // Beyond this number, those that were silent longest are forgotten.
    static constexpr std::size_t kSessions = 4096;

    Journal() = default;
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Throws system_error; EWOULDBLOCK: another process has it open.
    void open(const std::string& file);

    // Sets the stream that it is about; another one, or the same made anew, begins at 0.
    void begin(std::int64_t stream_created);

    std::uint64_t finished() const;  // number of the last batch whose handler has returned
    std::uint64_t started() const;   // and of the last one whose handler was called
    void start(std::uint64_t number);
    void finish(std::uint64_t number);

    struct Session {
        std::uint64_t name;    // 0: none
        std::uint64_t last;    // the session's number of the last batch that was handled
        std::uint64_t number;  // the stream's number of it
    };
    std::vector<Session> sessions() const;
    void remember(const Session& session);  // before finish(session.number)

  private:
    struct Contents {
        std::uint64_t mark;
        std::int64_t stream_created;
        std::uint64_t started;
        std::uint64_t finished;
        Session sessions[kSessions];
    };

    void find_sessions();
    std::size_t entry_for(std::uint64_t session);

    volatile Contents* contents_ = nullptr;
    std::unordered_map<std::uint64_t, std::size_t> entries_;  // of sessions
    int file_ = -1;
};

}  // namespace vorn

#endif
