// SPDX-License-Identifier: Apache-2.0
// Stands in for a VORN bus: keeps what is registered and sent, and answers as a test asks it to.
//
// It implements the four VORN functions, which act on the process's one RecordingBus.
#ifndef TESTS_SUPPORT_RECORDING_BUS_H
#define TESTS_SUPPORT_RECORDING_BUS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "bus/vorn_bus_api.h"

namespace tests {

// One call of VORN_SendMsg or VORN_SendToMsg, with the bytes as they were during the call.
struct Sent {
    std::uint32_t destination;
    std::optional<std::uint64_t> target;              // of VORN_SendToMsg
    const VORN_SendDescriptor* descriptors_at;        // where the sender had them; dangling by now
    std::vector<VORN_SendDescriptor> descriptors;     // their buffers dangle too
    std::vector<std::vector<std::uint8_t>> messages;  // the bytes of each
};

struct Registered {
    std::uint32_t message_id;
    VORN_IDLUnpackFunc unpack;
    VORN_IDLFreeFunc free_unpacked;
};

// Every function may be called from any thread.
class RecordingBus {
  public:
    // Enough for any record: a bus learns a record's size only from its unpack.
    static constexpr std::size_t kRecordCapacity = 4096;

    static RecordingBus& instance();

    // Forgets all registrations, sends and answers.
    void reset();

    // Answers the n-th registration from now (0 is the next) with `result`; it is not registered.
    void refuse_registration(std::size_t nth, std::int32_t result);

    // Answers every send from now with `result`.
    void answer_sends(std::int32_t result);

    std::vector<Registered> registrations() const;  // in the order of the calls
    std::size_t registration_calls() const;         // refused ones included
    std::vector<VORN_IDLResourceCleanFunc> resource_cleans() const;
    std::vector<Sent> sends() const;
    std::vector<Sent> take_sends();  // and forgets them

    // Unpacks each message of a send with what is registered last for its id, hands the record and its size
    // to `handle`, and frees it. Every id must be registered.
    void deliver(const Sent& sent,
                 const std::function<void(const void* record, std::uint32_t record_bytes)>& handle) const;

    std::int32_t register_functions(const Registered& entry);
    std::int32_t register_resource_clean(VORN_IDLResourceCleanFunc clean);
    std::int32_t send(std::uint32_t destination, const VORN_SendDescriptor* descriptors, std::uint32_t count,
                      std::optional<std::uint64_t> target);

  private:
    mutable std::mutex lock_;
    std::vector<Registered> registered_;
    std::size_t registration_calls_ = 0;
    std::optional<std::size_t> refused_registration_;
    std::int32_t refusal_ = 0;
    std::vector<VORN_IDLResourceCleanFunc> cleans_;
    std::vector<Sent> sent_;
    std::int32_t send_answer_ = 0;
};

}  // namespace tests

#endif
