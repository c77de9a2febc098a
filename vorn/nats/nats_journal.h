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

// Batches are handled one at a time, in the stream's order. So the journal holds the message and the batch in
// hand, the last message that is handled, and for each session of a sender the number of its last batch: it
// may have stored later ones twice. Positions are numbers of messages in the stream.
class Journal {
  public:
    // Beyond this number, those that were silent longest are forgotten.
    static constexpr std::size_t kSessions = 4096;

    struct Session {
        std::uint64_t name;      // 0: none
        std::uint64_t last;      // number of its last batch that was handled
        std::uint64_t position;  // of the message of that batch
    };
    struct Contents {
        std::uint64_t mark;
        std::int64_t stream_created;
        std::uint64_t name;
        std::uint64_t delivered_before;  // to receivers of which it knows nothing, up to this position
        std::uint64_t forgot;            // not 0: sessions that it does not have may have been handled
        std::uint64_t started;
        std::uint64_t started_batch;
        std::uint64_t finished;
        Session sessions[kSessions];
    };

    Journal() = default;
    ~Journal();
    Journal(const Journal&) = delete;
    Journal& operator=(const Journal&) = delete;

    // Throws system_error; EWOULDBLOCK: another process has it open.
    void open(const std::string& file);
    // In memory that the caller keeps.
    void open(Contents& contents);

    // Whether it goes on for this stream; else begin() makes it anew, under a random name.
    bool is_about(std::int64_t stream_created) const;
    void begin(std::int64_t stream_created, std::uint64_t name, std::uint64_t delivered_before);

    // Names the receiver at its server, through all restarts with this journal.
    std::uint64_t name() const { return contents_->name; }

    std::uint64_t finished() const { return contents_->finished; }
    std::uint64_t started() const { return contents_->started; }
    std::uint64_t started_batch() const { return contents_->started_batch; }
    std::uint64_t delivered_before() const { return contents_->delivered_before; }
    bool forgot() const { return contents_->forgot != 0; }

    // Around each batch, and after the last one of a message.
    void start(std::uint64_t position, std::uint64_t batch);
    void remember(const Session& session);
    void finish(std::uint64_t position) { contents_->finished = position; }

    void forget();  // all sessions
    std::vector<Session> sessions() const;

  private:
    void find_sessions();
    std::size_t entry_for(std::uint64_t session);

    volatile Contents* contents_ = nullptr;
    std::unordered_map<std::uint64_t, std::size_t> entries_;  // of sessions
    int file_ = -1;                                           // negative: the memory is the caller's
};

}  // namespace vorn

#endif
