// SPDX-License-Identifier: Apache-2.0
// Promise: nothing that a server or another client says makes either end of nats: or a watcher misbehave, or
// keeps a sender's batches from its receiver.
//
// Input: a choice of what it is: bytes of a packet, a subject, an answer; or packets that a receiver and a
// watcher are given; or what becomes of the packets of a sender.
#include <algorithm>
#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/supply.h"
#include "vorn/nats/nats_intake.h"
#include "vorn/nats/nats_outbox.h"
#include "vorn/nats/nats_packet.h"
#include "vorn/nats/nats_seen.h"

namespace {

using vorn::NatsPacket;

void check_bytes(const std::vector<std::uint8_t>& bytes) {
    if (const auto packet = vorn::read_nats_packet(bytes)) {
        std::array<std::uint8_t, NatsPacket::kBytes> written = {};
        write_packet(written.data(), *packet);
        fuzz::promise(std::equal(written.begin(), written.end(), bytes.begin()),
                      "a packet is written as it was read");
        fuzz::promise(packet->last() >= packet->first && packet->pending < packet->first,
                      "numbers do not wrap");
    }
    const std::string text(bytes.begin(), bytes.end());
    const auto position = vorn::read_stream_number(text);
    fuzz::promise(!position || text.find(std::to_string(*position)) != std::string::npos,
                  "a message's number stands in its subject");
    const vorn::NatsAnswer answer = vorn::read_answer(text);
    fuzz::promise(answer.position == 0 || answer.error == 0, "what is refused is not stored");
}

// Packets of others between those of an honest sender, whose session only its receiver knows.
void check_receiver(fuzz::Supply& supply) {
    constexpr std::uint64_t kHonest = 1'000'000;
    static vorn::Journal::Contents memory;
    vorn::Journal journal;
    journal.open(memory);
    journal.begin(1, 1, supply.take<std::uint8_t>() % 4);
    vorn::NatsIntake intake(journal, supply.take<std::uint8_t>());
    vorn::NatsSeen seen;
    std::uint64_t honest = 0;
    for (int messages = 0; messages < 40; ++messages) {
        const std::uint8_t choice = supply.take<std::uint8_t>();
        const std::uint64_t next = intake.next();
        if (choice % 8 == 0) {
            intake.take_damaged();
        } else if (choice % 8 == 1) {
            intake.pass_over_to(next + choice);
            continue;
        } else if (choice % 2 == 0) {
            NatsPacket packet = {kHonest, honest + 1, 1U + choice % 7, 0, 1};
            honest = packet.last();
            const auto verdict = intake.take(packet);
            fuzz::promise(verdict.is_taken && verdict.skip == 0 && !verdict.is_early,
                          "an honest batch is taken");
            fuzz::promise(seen.add(packet) && !seen.add(packet), "a watcher sees an honest batch once");
        } else {
            std::array<std::uint8_t, NatsPacket::kBytes> bytes = {};
            NatsPacket forged = {1U + supply.take<std::uint8_t>(), supply.take<std::uint16_t>(),
                                 supply.take<std::uint8_t>(), supply.take<std::uint8_t>(),
                                 supply.take<std::uint8_t>()};
            if (choice % 16 == 3) forged.first = UINT64_MAX - forged.first;
            write_packet(bytes.data(), forged);
            const auto packet = vorn::read_nats_packet(bytes);
            if (!packet) continue;
            const auto verdict = intake.take(*packet);
            fuzz::promise(!verdict.is_taken || verdict.skip < packet->count,
                          "what is taken holds a batch that is new");
            fuzz::promise(!verdict.is_taken || !verdict.is_early, "what comes early is not taken");
            static_cast<void>(seen.add(*packet));
        }
        fuzz::promise(intake.next() == next + 1, "each message is taken once");
    }
}

void check_sender(fuzz::Supply& supply) {
    vorn::NatsOutbox outbox(7);
    vorn::Deadline now = {};
    std::uint64_t batches = 0;
    std::uint64_t position = 0;
    std::uint64_t lost = 0;
    std::vector<NatsPacket> published;
    const auto publish = [&] {
        while (const auto* const packet = outbox.publish(now)) {
            const auto read = vorn::read_nats_packet(packet->bytes);
            fuzz::promise(read && read->session == 7 && read->last() <= batches,
                          "a packet says what it holds");
            published.push_back(*read);
        }
    };
    for (int events = 0; events < 60; ++events) {
        const std::uint8_t choice = supply.take<std::uint8_t>();
        now += std::chrono::milliseconds(choice);
        const NatsPacket of =
            published.empty() ? NatsPacket{} : published[supply.take<std::uint8_t>() % published.size()];
        if (choice % 4 == 0) {
            static_cast<void>(
                outbox.add(40U + choice * 200U, choice % 8 == 0 ? 300 : vorn::NatsOutbox::kMostBytes));
            ++batches;
        } else if (choice % 4 == 1) {
            outbox.stored(of.first, of.attempt, ++position, now);
        } else if (choice % 4 == 2) {
            outbox.not_stored(of.first, of.attempt, now);
        } else if (choice % 32 == 3) {
            lost += outbox.too_large(of.first);
        } else if (choice % 32 == 7) {
            outbox.interrupted(now);
        } else if (choice % 32 == 11) {
            outbox.handled_before(position);
        } else {
            publish();
        }
        fuzz::promise(outbox.pending_batches() <= batches && outbox.batches() <= batches,
                      "batches are counted once");
    }
    for (int rounds = 0; rounds < 200 && outbox.pending_batches() != 0; ++rounds) {
        now += std::chrono::seconds(1);
        published.clear();
        publish();
        for (const NatsPacket& packet : published)
            outbox.stored(packet.first, packet.attempt, ++position, now);
    }
    fuzz::promise(outbox.pending_batches() == 0 && outbox.pending_bytes() == 0,
                  "in the end all batches are stored");
    fuzz::promise(lost <= batches, "a batch is lost once");
    outbox.handled_before(UINT64_MAX);
    fuzz::promise(outbox.batches() == 0, "in the end all batches are handled");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::Supply supply(data, size);
    switch (supply.take<std::uint8_t>() % 3) {
        case 0:
            check_bytes(supply.rest());
            break;
        case 1:
            check_receiver(supply);
            break;
        default:
            check_sender(supply);
    }
    return 0;
}
