// SPDX-License-Identifier: Apache-2.0
// A VORN bus inside one process: what is sent is recorded, or delivered before the send returns.
//
// It implements the four VORN functions, which act on the process's one LoopbackBus.
#ifndef HOST_LOOPBACK_BUS_H
#define HOST_LOOPBACK_BUS_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <vector>

#include "bus/vorn_bus_api.h"

namespace host {

// A record that has arrived; valid until the handler returns, when the bus frees it.
struct Arrival {
    std::uint32_t message_id;
    std::uint32_t destination;
    std::uint64_t target;  // 0: none
    const void* record;    // of the registered type
    std::uint32_t record_bytes;
    const std::vector<std::uint8_t>& packed;
};

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

// Every function may be called from any thread; handlers run in the sender's, one at a time.
class LoopbackBus {
  public:
    using Handler = std::function<void(const Arrival&)>;

    // Results of a send that cannot be delivered. The library's own refusal is all-ones.
    static constexpr std::int32_t kUnknownMessage = 1;  // no unpack is registered for an id
    static constexpr std::int32_t kRecordTooLarge = 2;  // its unpack claims more than kRecordRoom

    // A bus learns a record's size only from its unpack, so it brings room for any record.
    static constexpr std::size_t kRecordRoom = 4096;

    static LoopbackBus& instance();

    // Forgets all registrations, sends, answers and the handler.
    void reset();

    // Delivers what is sent from now on; without a handler, sends are only recorded.
    void deliver_to(Handler handler);

    // Whether sends are kept for sends(); they are, until told otherwise.
    void record_sends(bool on);

    // Answers the n-th registration from now (0 is the next) with `result`; it is not registered.
    void refuse_registration(std::size_t nth, std::int32_t result);

    // Answers every send from now with `result`.
    void answer_sends(std::int32_t result);

    std::vector<Registered> registrations() const;  // in the order of the calls
    std::size_t registration_calls() const;         // refused ones included
    std::vector<VORN_IDLResourceCleanFunc> resource_cleans() const;
    std::vector<Sent> sends() const;

    std::int32_t register_functions(const Registered& entry);
    std::int32_t register_resource_clean(VORN_IDLResourceCleanFunc clean);
    std::int32_t send(std::uint32_t destination, const VORN_SendDescriptor* descriptors, std::uint32_t count,
                      std::optional<std::uint64_t> target);

  private:
    std::int32_t deliver(const Sent& sent);

    mutable std::recursive_mutex lock_;  // recursive: a handler may send
    std::vector<Registered> registered_;
    std::size_t registration_calls_ = 0;
    std::optional<std::size_t> refused_registration_;
    std::int32_t refusal_ = 0;
    std::vector<VORN_IDLResourceCleanFunc> cleans_;
    std::vector<Sent> sent_;
    bool records_sends_ = true;
    std::int32_t send_answer_ = 0;
    Handler handler_;
};

}  // namespace host

#endif
