// SPDX-License-Identifier: Apache-2.0
// The two ends of nats: against each other, without a server: thousands of seeds, each a run of its own with
// losses, doubled and late packets, refusals, lost answers and acknowledgements, kills of senders and
// receivers, receivers that are cut off and followed by another one without their journal, and forged
// numbers. What a handler sees is compared with the promises of docs/nats.md. Faults that are planted have to
// be found.
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "vorn/nats/nats_intake.h"
#include "vorn/nats/nats_lease.h"
#include "vorn/nats/nats_outbox.h"

#ifndef SEEDS
#define SEEDS 500
#endif

namespace {

using namespace vorn;
using namespace std::chrono_literals;

enum class Fault {
    none,
    takes_early_batches,         // a gap is no reason to wait for what is missing
    believes_refusals,           // a packet that was refused counts as stored
    repeats_under_another_name,  // a packet that is published again is a new one
    journal_loses_sessions,
    acknowledges_before_handling,
    handles_without_lease,
    does_not_note_the_begin,  // of a handler's call
    trusts_a_lost_journal,
};

struct Message {
    NatsPacket head;
    bool is_forged = false;
};

// A batch as its handler sees it.
struct Handled {
    std::uint64_t session;
    std::uint64_t number;
    bool repeated;
    std::uint64_t receiver;
};

template <Fault planted>
class World {
  public:
    explicit World(std::uint64_t seed) : random_(seed), loses_journals_(chance(40)), forges_(chance(50)) {
        for (int i = 0; i < 2; ++i) senders_.push_back(std::make_unique<Sender>(next_name_++));
        open_receiver(false);
    }

    // Empty: all promises are kept.
    std::string run() {
        for (int step = 0; step < 500 && wrong_.empty(); ++step) disturb(), work();
        heals_ = true;
        for (int step = 0; step < 20'000 && wrong_.empty() && !is_quiet(); ++step) work();
        if (wrong_.empty() && !is_quiet()) wrong_ = "it does not come to an end";
        if (wrong_.empty()) judge();
        return wrong_;
    }

  private:
    struct Sender {
        explicit Sender(std::uint64_t given) : name(given), outbox(given) {}
        std::uint64_t name;
        NatsOutbox outbox;
        std::uint64_t accepted = 0;
    };
    struct Machine {
        Journal::Contents memory = {};
        Journal journal;
        Machine() { journal.open(memory); }
    };
    struct InHand {
        std::uint64_t position;
        NatsPacket head;
        NatsIntake::Verdict verdict;
        std::uint64_t next;
        bool begun = false;
    };
    struct Receiver {
        std::uint64_t number;
        std::shared_ptr<Machine> machine;
        std::unique_ptr<NatsIntake> intake;
        NatsLease lease;
        std::deque<InHand> inbox;
        bool is_cut_off = false;
    };

    std::uint64_t below(std::uint64_t end) { return random_() % end; }
    bool chance(std::uint64_t percent) { return below(100) < percent; }

    bool is_quiet() const {
        for (const auto& sender : senders_)
            if (sender->outbox.pending_batches() != 0) return false;
        return stream_.empty() && on_their_way_.empty();
    }

    void work() {
        now_ += std::chrono::milliseconds(heals_ ? 5 + below(30) : below(8));
        for (auto& sender : senders_) {
            const int batches = heals_ ? 0 : static_cast<int>(below(3));
            for (int i = 0; i < batches && sender->outbox.pending_batches() < 60; ++i) {
                sender->outbox.add(static_cast<std::uint32_t>(40 + below(9000)));
                ++sender->accepted;
            }
            publish(*sender);
        }
        for (auto i = 1 + below(6); i != 0 && !on_their_way_.empty(); --i) arrive_at_server();
        for (auto i = 1 + below(6); i != 0 && !answers_.empty(); --i) answer();
        renew_leases();
        for (auto i = 1 + below(6); i != 0; --i) deliver();
        for (auto i = 1 + below(8); i != 0; --i) {
            for (auto& cut_off : cut_off_) handle(*cut_off);
            handle(*receiver_);
        }
    }

    void publish(Sender& sender) {
        for (auto i = 1 + below(4); i != 0; --i) {
            const NatsOutbox::Packet* const packet = sender.outbox.publish(now_);
            if (packet == nullptr) return;
            const auto read = read_nats_packet(packet->bytes);
            if (!read) {
                wrong_ = "a packet cannot be read";
                return;
            }
            Message message = {*read};
            if (planted == Fault::repeats_under_another_name && read->attempt > 1)
                message.head.session += 1'000'000;
            if (chance(heals_ ? 0 : 2)) continue;  // lost
            on_their_way_.push_back(message);
            if (!loses_journals_ && chance(heals_ ? 0 : 2)) on_their_way_.push_back(message);
        }
    }

    void arrive_at_server() {
        const Message message = on_their_way_.front();
        on_their_way_.pop_front();
        if (!heals_ && chance(3) && !message.is_forged) {
            const bool says_so = chance(50);
            if (says_so) answers_.push_back({message.head, 0});
            return;
        }
        stream_[++last_position_] = message;
        if (!chance(heals_ ? 0 : 3) && !message.is_forged) answers_.push_back({message.head, last_position_});
    }

    void answer() {
        const auto [head, position] = answers_.front();
        answers_.pop_front();
        for (auto& sender : senders_) {
            if (sender->name != head.session) continue;
            if (position != 0) {
                sender->outbox.stored(head.first, head.attempt, position, now_);
            } else if (planted == Fault::believes_refusals) {
                sender->outbox.stored(head.first, head.attempt, last_position_ + 1, now_);
            } else if (!heals_ && chance(2)) {
                const std::uint32_t lost = sender->outbox.too_large(head.first);
                for (std::uint32_t i = 0; i < lost; ++i) lost_.insert({head.session, head.first + i});
            } else {
                sender->outbox.not_stored(head.first, head.attempt, now_);
            }
            // A sender may know late what is handled, or never.
            if (chance(20))
                sender->outbox.handled_before(stream_.empty() ? last_position_ + 1 : stream_.begin()->first);
        }
    }

    void disturb() {
        if (chance(1)) kill_sender();
        if (chance(2)) open_receiver(false);
        if (loses_journals_ && chance(1)) open_receiver(true);
        if (chance(2) && on_their_way_.size() > 1) {  // another leader: some come late
            std::swap(on_their_way_.front(), on_their_way_[below(on_their_way_.size())]);
        }
        if (chance(1)) on_their_way_.resize(below(on_their_way_.size() + 1));
        if (chance(2)) {
            for (auto& sender : senders_) sender->outbox.interrupted(now_);
        }
        if (forges_ && chance(3)) {
            // Of another receiver's sessions the name is all that a receiver has.
            const bool knows = !loses_journals_ && chance(70);
            NatsPacket head = {knows ? senders_[0]->name : next_name_++, UINT64_MAX - 1 - below(3), 1, 0, 1};
            if (chance(30)) head.first = senders_[0]->accepted + 1000 + below(5);
            on_their_way_.push_back({head, true});
        }
    }

    void kill_sender() {
        killed_[senders_[0]->name] = senders_[0]->accepted;
        senders_[0] = std::make_unique<Sender>(next_name_++);
        std::swap(senders_[0], senders_[1]);
    }

    // In the stead of one that is killed, or of one that is cut off, on another machine and without its
    // journal.
    void open_receiver(bool elsewhere) {
        auto opened = std::make_unique<Receiver>();
        opened->number = ++receivers_;
        if (receiver_ == nullptr || elsewhere) {
            opened->machine = std::make_shared<Machine>();
            opened->machine->journal.begin(1, next_name_++, delivered_);
        } else {
            opened->machine = receiver_->machine;
            if (planted == Fault::journal_loses_sessions) {
                for (auto& session : opened->machine->memory.sessions) session.name = 0;
                opened->machine->journal.open(opened->machine->memory);
            }
        }
        Journal& journal = opened->machine->journal;
        if (planted == Fault::trusts_a_lost_journal && elsewhere) journal.begin(1, journal.name(), 0);
        opened->intake = std::make_unique<NatsIntake>(journal, stream_.empty() ? 0 : stream_.begin()->first);
        if (journal.delivered_before() != 0 && journal.started() == 0) opened->lease.wait_for_another(now_);
        opened->lease.renew(now_);
        if (elsewhere) {
            receiver_->is_cut_off = true;
            on_their_way_.clear();  // the other is named seconds later: nothing is on its way for that long
            cut_off_.push_back(std::move(receiver_));
        } else if (receiver_ != nullptr) {
            ++kills_;
        }
        receiver_ = std::move(opened);
    }

    void renew_leases() {
        if (!chance(20) && !heals_) return;
        receiver_->lease.renew(now_);
        // One that was cut off hears sooner or later who is named.
        if (!cut_off_.empty() && chance(5)) cut_off_[below(cut_off_.size())]->lease.lose();
    }

    void deliver() {
        Receiver& to = *receiver_;
        if (to.inbox.size() > 12) return;
        const auto message = stream_.lower_bound(to.intake->next());
        if (message == stream_.end()) return acknowledge_the_known();
        if (message->first > to.intake->next()) to.intake->pass_over_to(message->first);
        delivered_ = std::max(delivered_, message->first);
        const NatsIntake::Verdict made = to.intake->take(message->second.head);
        NatsIntake::Verdict verdict = made;
        if (planted == Fault::takes_early_batches && made.is_early) verdict.is_taken = true;
        if (planted == Fault::acknowledges_before_handling) {
            to.machine->journal.finish(message->first);
            to.inbox.push_back({message->first, message->second.head, verdict, 0});
            stream_.erase(message);
            return;
        }
        to.inbox.push_back({message->first, message->second.head, verdict, 0});
    }

    // Acknowledgements were lost: what is handled leaves the stream in the end.
    void acknowledge_the_known() {
        const std::uint64_t handled = receiver_->machine->journal.finished();
        while (!stream_.empty() && stream_.begin()->first <= handled) stream_.erase(stream_.begin());
    }

    // A step of the handling of a batch: its handler is called, or returns.
    void handle(Receiver& by) {
        if (by.inbox.empty()) return;
        InHand& in_hand = by.inbox.front();
        Journal& journal = by.machine->journal;
        if (in_hand.next == 0 && in_hand.verdict.forgets) journal.forget();
        if (in_hand.next == 0) in_hand.next = in_hand.head.first + in_hand.verdict.skip;
        const bool is_over = !in_hand.verdict.is_taken || in_hand.next > in_hand.head.last();
        if (!in_hand.begun && !is_over) {
            if (!by.lease.holds(now_) && planted != Fault::handles_without_lease) return;
            if (by.is_cut_off && by.number < latest_that_handled_)
                wrong_ = "one that is cut off handles another batch";
            latest_that_handled_ = std::max(latest_that_handled_, by.number);
            if (planted != Fault::does_not_note_the_begin) journal.start(in_hand.position, in_hand.next);
            in_hand.begun = true;
            const bool is_first = in_hand.next == in_hand.head.first + in_hand.verdict.skip;
            handled_.push_back({in_hand.head.session, in_hand.next,
                                in_hand.verdict.repeats_all || (is_first && in_hand.verdict.repeats_first),
                                by.number});
            return;
        }
        if (in_hand.begun) {
            if (!in_hand.verdict.is_in_doubt)
                journal.remember({in_hand.head.session, in_hand.next, in_hand.position});
            ++in_hand.next;
            in_hand.begun = false;
            if (in_hand.next <= in_hand.head.last()) return;
        }
        journal.finish(in_hand.position);
        if (!by.is_cut_off && !chance(heals_ ? 0 : 5)) stream_.erase(in_hand.position);
        by.inbox.pop_front();
    }

    void judge() {
        std::map<std::uint64_t, std::vector<Handled>> by_session;
        std::uint64_t repeated = 0;
        for (const Handled& one : handled_) {
            by_session[one.session].push_back(one);
            repeated += one.repeated ? 1 : 0;
        }
        for (const auto& sender : senders_)
            judge_session(sender->name, sender->accepted, true, by_session[sender->name]);
        for (const auto& [name, accepted] : killed_) judge_session(name, accepted, false, by_session[name]);
        if (!loses_journals_ && repeated > kills_)
            wrong_ = "more batches are repeated than receivers were killed";
    }

    void judge_session(std::uint64_t name, std::uint64_t accepted, bool all,
                       const std::vector<Handled>& handled) {
        std::set<std::uint64_t> seen;
        std::uint64_t last = 0;
        std::uint64_t end = all ? accepted : 0;
        for (const Handled& one : handled) {
            if (one.number > accepted) continue;  // forged
            const std::string which = std::to_string(name) + ":" + std::to_string(one.number);
            if (!seen.insert(one.number).second && !one.repeated)
                wrong_ = which + " is doubled without a mark";
            if (one.number < last && !one.repeated) wrong_ = which + " is out of order";
            last = std::max(last, one.number);
            // Of a killed sender a beginning arrives; where the journal was lost, later ones may follow with
            // a mark.
            if (!all && !one.repeated) end = std::max(end, one.number);
        }
        for (std::uint64_t number = 1; number <= end; ++number) {
            if (!seen.contains(number) && !lost_.contains({name, number})) {
                wrong_ = std::to_string(name) + ":" + std::to_string(number) + " is lost";
            }
        }
    }

    std::mt19937_64 random_;
    const bool loses_journals_;
    const bool forges_;
    bool heals_ = false;
    Deadline now_ = Deadline() + 1h;
    std::uint64_t next_name_ = 1;
    std::vector<std::unique_ptr<Sender>> senders_;
    std::map<std::uint64_t, std::uint64_t> killed_;
    std::set<std::pair<std::uint64_t, std::uint64_t>> lost_;
    std::deque<Message> on_their_way_;
    std::map<std::uint64_t, Message> stream_;
    std::uint64_t last_position_ = 0;
    std::deque<std::pair<NatsPacket, std::uint64_t>> answers_;
    std::unique_ptr<Receiver> receiver_;
    std::vector<std::unique_ptr<Receiver>> cut_off_;
    std::uint64_t receivers_ = 0;
    std::uint64_t latest_that_handled_ = 0;
    std::uint64_t delivered_ = 0;
    std::uint64_t kills_ = 0;
    std::vector<Handled> handled_;
    std::string wrong_;
};

template <Fault planted>
void expect_found() {
    for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
        if (!World<planted>(seed).run().empty()) return;
    }
    FAIL() << "a thousand seeds do not find the planted fault";
}

TEST(NatsSimulation, EverySeedKeepsThePromises) {
    for (std::uint64_t seed = 1; seed <= SEEDS; ++seed) {
        const std::string wrong = World<Fault::none>(seed).run();
        ASSERT_EQ(wrong, "") << "seed " << seed;
    }
}

TEST(NatsSimulation, FindsAReceiverThatTakesEarlyBatches) { expect_found<Fault::takes_early_batches>(); }
TEST(NatsSimulation, FindsASenderThatBelievesRefusals) { expect_found<Fault::believes_refusals>(); }
TEST(NatsSimulation, FindsASenderThatRepeatsUnderAnotherName) {
    expect_found<Fault::repeats_under_another_name>();
}
TEST(NatsSimulation, FindsAJournalThatLosesSessions) { expect_found<Fault::journal_loses_sessions>(); }
TEST(NatsSimulation, FindsAReceiverThatAcknowledgesBeforeHandling) {
    expect_found<Fault::acknowledges_before_handling>();
}
TEST(NatsSimulation, FindsAReceiverThatHandlesWithoutItsLease) {
    expect_found<Fault::handles_without_lease>();
}
TEST(NatsSimulation, FindsAReceiverThatDoesNotNoteWhatItBegins) {
    expect_found<Fault::does_not_note_the_begin>();
}
TEST(NatsSimulation, FindsAReceiverThatTrustsALostJournal) { expect_found<Fault::trusts_a_lost_journal>(); }

}  // namespace
