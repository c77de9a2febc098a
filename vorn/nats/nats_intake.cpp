// SPDX-License-Identifier: Apache-2.0
#include "vorn/nats/nats_intake.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace vorn {

NatsIntake::NatsIntake(const Journal& journal, std::uint64_t first)
    : delivered_before_(journal.delivered_before()),
      next_(journal.finished() + 1),
      interrupted_position_(journal.started() > journal.finished() ? journal.started() : 0),
      interrupted_(journal.started_batch()),
      forgot_(journal.forgot()) {
    for (const Journal::Session& session : journal.sessions()) {
        taken_[session.name] = {session.last, session.position, 0, 0};
    }
    if (first > next_) pass_over_to(first);
}

void NatsIntake::pass_over_to(std::uint64_t next) {
    next_ = next;
    taken_.clear();
    forgot_ = true;
    forgets_ = true;
}

NatsIntake::Verdict NatsIntake::take(const NatsPacket& packet) {
    if (taken_.size() >= 2 * Journal::kSessions) forget_the_silent();
    Verdict verdict = judge(packet);
    verdict.repeats_first = next_ == interrupted_position_ && packet.first + verdict.skip == interrupted_;
    verdict.repeats_all |= next_ <= delivered_before_;
    verdict.forgets = std::exchange(forgets_, false);
    ++next_;
    return verdict;
}

NatsIntake::Verdict NatsIntake::judge(const NatsPacket& packet) {
    const auto found = taken_.find(packet.session);
    if (found == taken_.end() && forgot_) return take_of_unknown(packet);
    const std::uint64_t last = found == taken_.end() ? 0 : found->second.last;
    if (packet.last() <= last) return take_open(packet, found->second);
    Verdict verdict;
    verdict.is_early = packet.first > last + 1;
    if (verdict.is_early) return verdict;
    Taken& taken = taken_[packet.session];
    taken.position = next_;
    return take_next(packet, taken);
}

NatsIntake::Verdict NatsIntake::take_next(const NatsPacket& packet, Taken& taken) {
    Verdict verdict;
    verdict.is_taken = true;
    verdict.skip = static_cast<std::uint32_t>(taken.last + 1 - packet.first);
    // What was never published before comes after all that was.
    if (packet.attempt == 1 && packet.first - packet.pending >= taken.open_end) taken.open_end = 0;
    verdict.is_in_doubt = taken.open_end != 0;
    verdict.repeats_all = verdict.is_in_doubt && packet.attempt != 1;
    taken.last = packet.last();
    return verdict;
}

// A session that was silent for long, of which another receiver knew, or a new one.
NatsIntake::Verdict NatsIntake::take_of_unknown(const NatsPacket& packet) {
    Taken taken = {packet.last(), next_, 0, 0};
    if (!packet.is_sure()) {
        taken.open = packet.first - packet.pending;
        taken.open_end = packet.first;
    }
    taken_[packet.session] = taken;
    Verdict verdict;
    verdict.is_taken = true;
    verdict.repeats_all = !packet.is_sure();
    verdict.is_in_doubt = verdict.repeats_all;
    return verdict;
}

NatsIntake::Verdict NatsIntake::take_open(const NatsPacket& packet, const Taken& taken) {
    Verdict verdict;
    verdict.is_taken = packet.first >= taken.open && packet.last() < taken.open_end;
    verdict.repeats_all = verdict.is_taken;
    verdict.is_in_doubt = verdict.is_taken;
    return verdict;
}

void NatsIntake::forget_the_silent() {
    std::vector<std::uint64_t> positions;
    for (const auto& [session, taken] : taken_) positions.push_back(taken.position);
    const auto middle = positions.begin() + static_cast<std::ptrdiff_t>(positions.size() / 2);
    std::nth_element(positions.begin(), middle, positions.end());
    std::erase_if(taken_, [oldest = *middle](const auto& entry) { return entry.second.position < oldest; });
    forgot_ = true;
}

}  // namespace vorn
