// SPDX-License-Identifier: Apache-2.0
// The stub of a bus: code that packs links with it and nothing else, and a test sees what is sent.
#include "bus/stub_bus.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "nac/nac_messages.h"

namespace {

struct Sent {
    std::uint32_t destination;
    std::uint64_t target;
    std::vector<std::uint32_t> ids;
    std::vector<Nac_SetPortMsg> records;
};

std::int32_t keep(std::uint32_t destination, const VORN_SendDescriptor* descriptors, std::uint32_t count,
                  std::uint64_t target, void* context) {
    Sent sent = {destination, target, {}, {}};
    for (std::uint32_t k = 0; k < count; ++k) {
        Nac_SetPortMsg record = {};
        Nac_SetPortMsg__unpack(descriptors[k].buffer, descriptors[k].length, &record);
        sent.ids.push_back(descriptors[k].message_id);
        sent.records.push_back(record);
    }
    static_cast<std::vector<Sent>*>(context)->push_back(sent);
    return 0;
}

TEST(StubBus, PackingNeedsNoMore) {
    const Nac_SetPortMsg record = {24, 1};
    std::uint8_t bytes[64];
    std::uint32_t length = sizeof bytes;
    EXPECT_EQ(Nac_SetPortMsg__pack(&record, bytes, &length), 0U);
    EXPECT_EQ(length, 24U);
}

TEST(StubBus, IsClosedUntilATestTakesWhatIsSent) {
    const Nac_SetPortMsg record = {24, 1};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(2, &record, 1), std::uint32_t{VORN_STUB_BUS_CLOSED});
}

TEST(StubBus, HandsWhatIsSentToTheTest) {
    std::vector<Sent> sent;
    vorn_stub_bus_on_send(keep, &sent);
    const Nac_SetPortMsg records[] = {{24, 1}, {31, 0}};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(2, records, 2), 0U);
    EXPECT_EQ(Nac_SetPortMsg__sendtomsg(3, records, 1, 77), 0U);
    vorn_stub_bus_on_send(nullptr, nullptr);
    ASSERT_EQ(sent.size(), 2U);
    EXPECT_EQ(sent[0].destination, 2U);
    EXPECT_EQ(sent[0].target, 0U);
    EXPECT_EQ(sent[0].ids, (std::vector<std::uint32_t>{Nac_SetPortMsg_ID, Nac_SetPortMsg_ID}));
    EXPECT_EQ(sent[0].records[1].f0, 31U);
    EXPECT_EQ(sent[1].destination, 3U);
    EXPECT_EQ(sent[1].target, 77U);
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(2, records, 1), std::uint32_t{VORN_STUB_BUS_CLOSED});
}

TEST(StubBus, TakesRegistrations) { EXPECT_EQ(nac_fwm_port_recv_init(), 0); }

}  // namespace
