// SPDX-License-Identifier: Apache-2.0
// The hooks into a host that has them all: who allocates, who frees, what is logged, and when each is
// resolved.
//
// A unit resolves its hooks once in a process, so the tests of first uses count on CTest, which runs every
// test in a process of its own.
#include <malloc.h>

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <tuple>

#include "runtime/kaplo_runtime.h"
#include "tests/support/message.h"
#include "tests/support/units.h"

namespace tests {

static bool operator==(const Allocation& left, const Allocation& right) {
    return std::tie(left.allocator, left.size, left.owner_code, left.caller) ==
           std::tie(right.allocator, right.size, right.owner_code, right.caller);
}

static bool operator==(const Release& left, const Release& right) {
    return std::tie(left.owner_code, left.caller, left.allocated_by) ==
           std::tie(right.owner_code, right.caller, right.allocated_by);
}

static void PrintTo(const Allocation& allocation, std::ostream* out) {
    *out << (allocation.allocator == Allocator::cache ? "cache " : "general ") << allocation.size << " for "
         << allocation.owner_code << " by " << allocation.caller;
}

static void PrintTo(const Release& release, std::ostream* out) {
    *out << "of " << release.allocated_by << " for " << release.owner_code << " by " << release.caller;
}

}  // namespace tests

namespace {

using namespace tests;

constexpr std::uint32_t kReceiveOwner = 12;
constexpr std::uint32_t kSendOwner = 0x6200;

Allocation received(std::uint32_t size, const char* caller) {
    return {Allocator::cache, nullptr, size, kReceiveOwner, caller};
}
Allocation to_send(std::uint32_t size, const char* caller) {
    return {Allocator::general, nullptr, size, kSendOwner, caller};
}

using Allocations = std::vector<Allocation>;
using Releases = std::vector<Release>;

class Hooks : public MessageTest {};

// ---- memory of the receive side ---------------------------------------------------------------------

// A list of one all-zero element whose six fields are absent.
const Bytes kListOfOne =
    hex("0a 00 00 00"        // root reference: table at 10
        "06 00 10 00 04 00"  // vtable: length, table length, offset of f0
        "06 00 00 00"        // soffset
        "04 00 00 00"        // reference of f0: vector at 18
        "01 00 00 00"        // one element
        "08 00 00 00"        // its table at 22 + 8 = 30
        "04 00 04 00"        // its vtable at 26, without slots
        "04 00 00 00");      // its soffset

TEST_F(Hooks, ReceivedArrayComesFromTheCacheAllocatorAndReturnsToFree) {
    { const Unpacked<Nac_UserDataFlowMsg> list(kListOfOne); }
    EXPECT_EQ(services.allocations(), (Allocations{received(136, "Nac_UserDataFlowMsg_unpack_non_root")}));
    EXPECT_EQ(services.releases(), (Releases{{nullptr, kReceiveOwner, "Nac_UserDataFlowMsg_free_unpacked",
                                              "Nac_UserDataFlowMsg_unpack_non_root"}}));
}

TEST_F(Hooks, FreeHandsBackTheVeryBlock) {
    void* array = nullptr;
    {
        const Unpacked<Nac_UserDataFlowMsg> list(kListOfOne);
        array = list->f0;
    }
    EXPECT_EQ(services.allocations().at(0).block, array);
    EXPECT_EQ(services.releases().at(0).block, array);
}

TEST_F(Hooks, ArrayOfAFailedUnpackIsReleasedUnderTheNameOfFree) {
    Bytes bad = kListOfOne;
    put32(bad, 22, 0xFFFFFFFF);  // the element's reference leads below itself
    const Unpacked<Nac_UserDataFlowMsg> list(bad);
    EXPECT_EQ(services.releases(), (Releases{{nullptr, kReceiveOwner, "Nac_UserDataFlowMsg_free_unpacked",
                                              "Nac_UserDataFlowMsg_unpack_non_root"}}));
    EXPECT_EQ(list->f0, nullptr);
}

TEST_F(Hooks, NullFromTheCacheAllocatorIsLoggedAndNothingIsReleased) {
    services.fail_allocation(0);
    { const Unpacked<Nac_UserDataFlowMsg> list(kListOfOne); }
    EXPECT_EQ(logged_texts(), Lines{"[KAPLO]:Malloc unpack data unsuccess,                size(136)"});
    EXPECT_TRUE(services.releases().empty());
}

// ---- memory of the send side ------------------------------------------------------------------------

TEST_F(Hooks, BufferOfASingleSendComesFromTheGeneralAllocatorAndReturnsToFree) {
    const Nac_UserDataFlowMsg empty = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__sendmsg(1, &empty, 1), 0U);
    EXPECT_EQ(services.allocations(), (Allocations{to_send(14, "Nac_UserDataFlowMsg__sendsingle")}));
    EXPECT_EQ(services.releases(), (Releases{{nullptr, kSendOwner, "Nac_UserDataFlowMsg__sendsingle",
                                              "Nac_UserDataFlowMsg__sendsingle"}}));
}

TEST_F(Hooks, BlockOfAFixedBatchComesFromTheGeneralAllocatorAndReturnsToFree) {
    const Nac_UserDataFlowCfg settings[3] = {};
    EXPECT_EQ(Nac_UserDataFlowCfg__sendmsg(1, settings, 3), 0U);
    EXPECT_EQ(services.allocations(), (Allocations{to_send(216, "Nac_UserDataFlowCfg__sendbatch")}));
    EXPECT_EQ(services.releases(), (Releases{{nullptr, kSendOwner, "Nac_UserDataFlowCfg__sendbatch",
                                              "Nac_UserDataFlowCfg__sendbatch"}}));
}

TEST_F(Hooks, BlockOfAVariableBatchComesFromTheGeneralAllocatorAndReturnsToFree) {
    const Nac_UserDataFlowMsg lists[2] = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__sendmsg(1, lists, 2), 0U);
    EXPECT_EQ(services.allocations(), (Allocations{to_send(65568, "Nac_UserDataFlowMsg__sendbatch")}));
    EXPECT_EQ(services.releases(), (Releases{{nullptr, kSendOwner, "Nac_UserDataFlowMsg__sendbatch",
                                              "Nac_UserDataFlowMsg__sendbatch"}}));
}

TEST_F(Hooks, SingleSendOfAnImageTakesNoMemory) {
    const Nac_SetPortMsg port = {1, 2};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(1, &port, 1), 0U);
    EXPECT_TRUE(services.allocations().empty());
    EXPECT_TRUE(services.releases().empty());
}

TEST_F(Hooks, PackTakesNoMemory) {
    Nac_UserDataFlowInfo element = {};
    packed(Nac_UserDataFlowMsg{1, &element});
    EXPECT_TRUE(services.allocations().empty());
    EXPECT_TRUE(services.releases().empty());
}

TEST_F(Hooks, SendersComplainAboutMissingMemoryByTheirResultOnly) {
    const Nac_UserDataFlowMsg lists[2] = {};
    services.fail_allocation(0);
    EXPECT_EQ(Nac_UserDataFlowMsg__sendmsg(1, lists, 1), kRefused);
    services.fail_allocation(0);
    EXPECT_EQ(Nac_UserDataFlowMsg__sendmsg(1, lists, 2), kRefused);
    EXPECT_TRUE(services.log_lines().empty());
    EXPECT_TRUE(services.releases().empty());
}

// ---- sizes of 0x80000000 and above ------------------------------------------------------------------

TEST_F(Hooks, BatchBlockOf0x80000000BytesIsAskedForAsThatNumber) {
    const Nac_CfgUclGroupIp entry = {};
    services.fail_allocation(0);
    EXPECT_EQ(Nac_CfgUclGroupIp__sendbatch(1, &entry, 0x80000000 / 64, 0), kRefused);
    EXPECT_EQ(services.allocations(), (Allocations{to_send(0x80000000, "Nac_CfgUclGroupIp__sendbatch")}));
}

TEST_F(Hooks, ReceivedArrayAbove0x80000000BytesIsAskedForAsThatNumber) {
    constexpr std::uint32_t count = 15790321;  // of 136 bytes: 0x80000008
    GuardedBuffer message(22 + std::size_t{4} * count);
    const Bytes head =
        hex("0a 00 00 00"        // root reference: table at 10
            "06 00 04 00 04 00"  // vtable: length, table length, offset of f0
            "06 00 00 00"        // soffset
            "04 00 00 00"        // reference of f0: vector at 18
            "f1 f0 f0 00");      // count
    std::memcpy(message.data(), head.data(), head.size());
    services.fail_allocation(0);
    Nac_UserDataFlowMsg list = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__unpack(message.data(), message.size(), &list), sizeof list);
    EXPECT_EQ(services.allocations(),
              (Allocations{received(0x80000008, "Nac_UserDataFlowMsg_unpack_non_root")}));
    EXPECT_EQ(logged_texts(), Lines{"[KAPLO]:Malloc unpack data unsuccess,                size(2147483656)"});
}

// ---- log lines --------------------------------------------------------------------------------------

// What every line has in common, and the category that it must have.
void expect_line(const LogLine& line, std::uint32_t category, const char* function, const char* format,
                 const char* text) {
    EXPECT_EQ(line.module_name, "KAPLO");
    EXPECT_EQ(line.log_module_name, "KAPLO_TORINEX_SERIAL");
    EXPECT_EQ(line.owner_code, 0x6200);
    EXPECT_EQ(line.level, 2U);
    EXPECT_EQ(line.category, category);
    EXPECT_EQ(line.file, "");
    EXPECT_GT(line.line, 0U);
    EXPECT_EQ(line.function, function);
    EXPECT_EQ(line.format, format);
    EXPECT_EQ(line.text, text);
}

class LogLines : public Hooks {
  protected:
    LogLine the_line() {
        const std::vector<LogLine> lines = services.log_lines();
        EXPECT_EQ(lines.size(), 1U);
        return lines.empty() ? LogLine{} : lines[0];
    }
};

TEST_F(LogLines, ArgumentFaultOfUnpackHasCategory22) {
    Nac_SetPortMsg port = {};
    Nac_SetPortMsg__unpack(nullptr, 0x80000000, &port);
    expect_line(the_line(), 22, "Nac_SetPortMsg_unpack", "[KAPLO]:Param invalid(%s, %d, %s)",
                "[KAPLO]:Param invalid(null, -2147483648, nonNull)");
}

TEST_F(LogLines, ArgumentFaultOfPackHasCategory22) {
    const Nac_SetPortMsg port = {};
    std::uint32_t length = 0xFFFFFFFE;
    EXPECT_EQ(Nac_SetPortMsg__pack(&port, nullptr, &length), 0U);
    expect_line(the_line(), 22, "Nac_SetPortMsg_pack", "[KAPLO]:Param invalid(%s, %u, %s)",
                "[KAPLO]:Param invalid(null, 4294967294, nonNull)");
}

TEST_F(LogLines, TableOutOfRangeHasCategory22) {
    const Unpacked<Nac_SetPortMsg> port(hex("04 00 00 00"));
    expect_line(the_line(), 22, "Nac_SetPortMsg_unpack", "[KAPLO]:Table offset(%u) is out of range(4 - %u)",
                "[KAPLO]:Table offset(4) is out of range(4 - 4)");
}

TEST_F(LogLines, VtableOutOfRangeHasCategory22) {
    const Unpacked<Nac_SetPortMsg> port(
        hex("06 00 00 00"           // root reference: table at 6
            "00 00 03 00 00 00"));  // soffset: vtable at 3
    expect_line(the_line(), 22, "Nac_SetPortMsg_unpack", "[KAPLO]:Vtable offset(%u) is out of range(4 - %u)",
                "[KAPLO]:Vtable offset(6) is out of range(4 - 6)");
}

TEST_F(LogLines, VtableTooLongHasCategory22) {
    const Unpacked<Nac_SetPortMsg> port(
        hex("08 00 00 00"     // root reference: table at 8
            "09 00 04 00"     // vtable at 4: length 9, one more than there is
            "04 00 00 00"));  // soffset
    expect_line(the_line(), 22, "Nac_SetPortMsg_unpack", "[KAPLO]:Vtable Len(%u) is out of range(0 - %u)",
                "[KAPLO]:Vtable Len(9) is out of range(0 - 8)");
}

TEST_F(LogLines, FailedAllocationHasCategory12) {
    services.fail_allocation(0);
    const Unpacked<Nac_UserDataFlowMsg> list(kListOfOne);
    expect_line(the_line(), 12, "Nac_UserDataFlowMsg_unpack_non_root",
                "[KAPLO]:Malloc unpack data unsuccess,                size(%u)",
                "[KAPLO]:Malloc unpack data unsuccess,                size(136)");
}

TEST_F(LogLines, FailedAllocationOfAnAddressListIsWordedWithOneBlank) {
    services.fail_allocation(0);
    const Unpacked<Nac_UclGroupIpArray> list(
        hex("0c 00 00 00"              // root reference: table at 12
            "08 00 0c 00 00 00 04 00"  // vtable: length, table length, f0 absent, offset of f1
            "08 00 00 00"              // soffset
            "04 00 00 00"              // reference of f1: vector at 20
            "01 00 00 00"              // one element
            "08 00 00 00"              // its table at 24 + 8 = 32
            "04 00 04 00"              // its vtable at 28, without slots
            "04 00 00 00"));           // its soffset
    expect_line(the_line(), 12, "Nac_UclGroupIpArray_unpack",
                "[KAPLO]:Malloc unpack data unsuccess, size(%u)",
                "[KAPLO]:Malloc unpack data unsuccess, size(24)");
}

TEST_F(LogLines, SuccessAndFaultsInsideFieldsLogNothing) {
    unpack_nothing<Nac_SetPortMsg>();
    pack_zeros<Nac_SetPortMsg>();
    const Unpacked<Nac_SetPortMsg> port(
        hex("0a 00 00 00"        // root reference: table at 10
            "06 00 04 00 04 00"  // vtable at 4: length, table length, offset of f0, where the buffer ends
            "06 00 00 00"));     // soffset
    EXPECT_EQ(logged(), Lines{});
}

// ---- first use --------------------------------------------------------------------------------------

class FirstUse : public Hooks {
  protected:
    std::size_t units_that_asked() const { return services.use_flag_calls(); }
};

class FirstUseOfUnit : public FirstUse, public testing::WithParamInterface<UnitCalls> {};
INSTANTIATE_TEST_SUITE_P(, FirstUseOfUnit, testing::ValuesIn(kUnits), unit_name);

TEST_P(FirstUseOfUnit, AsksForTheUseFlagOnce) {
    GetParam().use();
    EXPECT_EQ(units_that_asked(), 1U);
    GetParam().use();
    GetParam().complain();
    EXPECT_EQ(units_that_asked(), 1U);
}

TEST_P(FirstUseOfUnit, MayBeARefusedCallWithALine) {
    GetParam().complain();
    EXPECT_EQ(units_that_asked(), 1U);
    ASSERT_EQ(services.log_lines().size(), 1U);
    EXPECT_EQ(services.log_lines()[0].module_name, "KAPLO");
    EXPECT_EQ(services.log_lines()[0].log_module_name, "KAPLO_TORINEX_SERIAL");
    EXPECT_EQ(services.log_lines()[0].owner_code, 0x6200);
}

TEST_F(FirstUse, EachOfTheFourteenUnitsAsksForItself) {
    EXPECT_EQ(units_that_asked(), 0U) << "nothing is resolved while the library is loaded";
    for (std::size_t i = 0; i < kUnits.size(); ++i) {
        kUnits[i].use();
        EXPECT_EQ(units_that_asked(), i + 1) << kUnits[i].name;
    }
    for (const UnitCalls& unit : kUnits) unit.use();
    EXPECT_EQ(units_that_asked(), 14U);
}

TEST_F(FirstUse, InitialisationAndResourceCleanResolveNothing) {
#define RUN(module, prefix, messages)   \
    EXPECT_EQ(prefix##_recv_init(), 0); \
    EXPECT_EQ(prefix##_send_init(), 0); \
    prefix##__send_resource_clean();
    NAC_ALL_MODULES(RUN)
#undef RUN
    EXPECT_EQ(units_that_asked(), 0U);
}

TEST_F(FirstUse, FreeOfRecordsWithoutArraysResolvesNothing) {
    const auto free_zeroed = []<class Record>(void (*free)(Record*)) {
        Record record = {};
        free(&record);
    };
    free_zeroed(Nac_UserDataFlowCfg_free__unpacked);
    free_zeroed(Nac_UserDataFlowInfo_free__unpacked);
    free_zeroed(Nac_UserDataFlowQueryMsg_free__unpacked);
    free_zeroed(Nac_UserDataFlowQueryAckMsg_free__unpacked);
    free_zeroed(Nac_PortVlanChangeMsg_free__unpacked);
    free_zeroed(Nac_SetPortMsg_free__unpacked);
    free_zeroed(Nac_CfgUclGroupIp_free__unpacked);
    free_zeroed(Nac_ConfigAccessUserUclGroupIpMsg_free__unpacked);
    free_zeroed(Nac_ConfigAccessUserUclGroupIpAckMsg_free__unpacked);
    free_zeroed(Nac_SetUserTableAckMsg_free__unpacked);
    free_zeroed(Nac_UserTableHitMsg_free__unpacked);
    free_zeroed(Nac_L2NotifyNacUserOfflineMsg_free__unpacked);
    free_zeroed(Nac_TableVersionChangeMsg_free__unpacked);
    free_zeroed(Nac_UserTableSyncAckMsg_free__unpacked);
    free_zeroed(Nac_DaclRuleIpInfo_free__unpacked);
    free_zeroed(Nac_RadiusDaclRule_free__unpacked);
    free_zeroed(Nac_UserDetectInfo_free__unpacked);
    free_zeroed(Nac_IpsecDownReqMsg_free__unpacked);
    free_zeroed(Nac_IpsecDownAckMsg_free__unpacked);
    EXPECT_EQ(units_that_asked(), 0U);
}

TEST_F(FirstUse, FreeOfNoRecordResolvesNothing) {
    Nac_UserDataFlowMsg_free__unpacked(nullptr);
    Nac_UclGroupIpArray_free__unpacked(nullptr);
    Nac_UclGroupIpAckArray_free__unpacked(nullptr);
    Nac_SetUserTableMsg_free__unpacked(nullptr);
    Nac_IpsecAuthenReqMsg_free__unpacked(nullptr);
    Nac_IpsecAuthenAckMsg_free__unpacked(nullptr);
    EXPECT_EQ(units_that_asked(), 0U);
}

TEST_F(FirstUse, FreeOfAnArrayResolvesTheReceiveSide) {
    Nac_UserDataFlowMsg list = {};
    list.f0 = static_cast<Nac_UserDataFlowInfo*>(ZEB_OsalMemCacheAlloc(136, kReceiveOwner, "the host"));
    Nac_UserDataFlowMsg_free__unpacked(&list);
    EXPECT_EQ(units_that_asked(), 1U);
    EXPECT_EQ(services.releases(),
              (Releases{{nullptr, kReceiveOwner, "Nac_UserDataFlowMsg_free_unpacked", "the host"}}));
}

TEST_F(FirstUse, PackOfNoRecordResolvesBeforeItRefuses) {
    std::uint32_t length = 64;
    EXPECT_EQ(Nac_SetPortMsg__pack(nullptr, nullptr, &length), kRefused);
    EXPECT_EQ(units_that_asked(), 1U);
}

TEST_F(FirstUse, PackWithoutEnoughCapacityResolvesBeforeItRefuses) {
    const Nac_SetPortMsg port = {};
    std::uint8_t buffer[16];
    std::uint32_t length = 15;
    EXPECT_EQ(Nac_SetPortMsg__pack(&port, buffer, &length), kRefused);
    EXPECT_EQ(units_that_asked(), 1U);
}

TEST_F(FirstUse, UnpackOfATooShortBufferResolvesBeforeItRefuses) {
    const Unpacked<Nac_SetPortMsg> port(hex("00 00 00"));
    EXPECT_EQ(units_that_asked(), 1U);
}

TEST_F(FirstUse, SingleSendOfAnImageResolves) {
    const Nac_SetPortMsg port = {};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(1, &port, 1), 0U);
    EXPECT_EQ(units_that_asked(), 1U);
}

// ---- one unit from the inside -----------------------------------------------------------------------

TEST(UnitState, BeginsUnresolvedOnTheFallbacks) {
    const kaplo::Unit unit;
    EXPECT_EQ(unit.byte_swap, 0U);
    EXPECT_EQ(unit.state.memory_ready, 0U);
    EXPECT_EQ(unit.state.cache_allocate, kaplo::fallback_allocate);
    EXPECT_EQ(unit.state.cache_free, kaplo::fallback_free);
    EXPECT_STREQ(unit.state.log_module.module_name, "KAPLO");
    EXPECT_STREQ(unit.state.log_module.log_module_name, "KAPLO_TORINEX_SERIAL");
    EXPECT_EQ(unit.state.log_module.owner_code, 25088);
    EXPECT_EQ(unit.state.log_write, nullptr);
    EXPECT_EQ(unit.state.general_allocate, nullptr);
    EXPECT_EQ(unit.state.general_free, nullptr);
    EXPECT_EQ(unit.state.log_ready, 0U);
}

TEST(UnitState, LiesInMemoryAsItIsDocumented) {
    using State = kaplo::KaploUnitState;
    const std::size_t offsets[] = {offsetof(State, memory_lock),    offsetof(State, memory_ready),
                                   offsetof(State, cache_allocate), offsetof(State, cache_free),
                                   offsetof(State, log_module),     offsetof(State, log_lock),
                                   offsetof(State, log_write),      offsetof(State, general_allocate),
                                   offsetof(State, general_free),   offsetof(State, log_ready)};
    EXPECT_TRUE(std::is_sorted(std::begin(offsets), std::end(offsets)));
    EXPECT_EQ(offsetof(KaploLogModule, module_name), 0U);
    EXPECT_EQ(offsetof(KaploLogModule, log_module_name), sizeof(char*));
    EXPECT_EQ(offsetof(KaploLogModule, owner_code), 2 * sizeof(char*));
}

// A byte-swap flag that no build starts with.
constexpr std::uint32_t kOtherFlag = 7;

class UnitHooks : public Hooks {
  protected:
    kaplo::Unit unit;
};

TEST_F(UnitHooks, StartUpResetsTheByteSwapFlagAndNothingElse) {
    unit.byte_swap = kOtherFlag;
    unit.start_up();
    EXPECT_EQ(unit.byte_swap, kaplo::kByteSwap);
    EXPECT_EQ(unit.state.memory_ready, 0U);
    EXPECT_EQ(unit.state.log_ready, 0U);
    EXPECT_EQ(services.use_flag_calls(), 0U);
}

TEST_F(UnitHooks, FirstResolutionOfTheMemoryHooksResetsTheByteSwapFlagLaterCallsLeaveIt) {
    unit.byte_swap = kOtherFlag;
    KaploMemHooksInit(unit);
    EXPECT_EQ(unit.byte_swap, kaplo::kByteSwap);
    unit.byte_swap = kOtherFlag;
    KaploMemHooksInit(unit);
    EXPECT_EQ(unit.byte_swap, kOtherFlag);
}

TEST_F(UnitHooks, ResolutionOfTheLogHooksLeavesTheByteSwapFlag) {
    unit.byte_swap = kOtherFlag;
    KaploLogHooksInit(unit);
    EXPECT_EQ(unit.byte_swap, kOtherFlag);
}

TEST_F(UnitHooks, MemoryHooksAreTheCacheAllocatorAndFree) {
    KaploMemHooksInit(unit);
    EXPECT_EQ(unit.state.cache_allocate, ZEB_OsalMemCacheAlloc);
    EXPECT_EQ(unit.state.cache_free, ZEB_OsalMemFree);
    EXPECT_EQ(unit.state.memory_ready, 1U);
    EXPECT_EQ(unit.state.log_ready, 0U) << "the log hooks are resolved for themselves";
}

TEST_F(UnitHooks, LogHooksAreTheLogWriterTheGeneralAllocatorAndFree) {
    KaploLogHooksInit(unit);
    EXPECT_EQ(unit.state.log_write, ZEB_OsalLogWrite);
    EXPECT_EQ(unit.state.general_allocate, ZEB_OsalMemAlloc);
    EXPECT_EQ(unit.state.general_free, ZEB_OsalMemFree);
    EXPECT_EQ(unit.state.log_ready, 1U);
    EXPECT_EQ(unit.state.memory_ready, 0U) << "the memory hooks are resolved for themselves";
    EXPECT_EQ(services.use_flag_calls(), 0U) << "the flag is the receive side's";
}

TEST_F(UnitHooks, ChangeOfMindAboutTheUseFlagComesTooLate) {
    services.set_use_flag(0);
    KaploMemHooksInit(unit);
    services.set_use_flag(1);
    KaploMemHooksInit(unit);
    EXPECT_EQ(unit.state.cache_allocate, kaplo::fallback_allocate);
    EXPECT_EQ(services.use_flag_calls(), 1U);
}

void write_elsewhere(const KaploLogModule* /*module*/, std::uint32_t /*level*/, std::uint32_t /*category*/,
                     const char* /*file*/, std::uint32_t /*line*/, const char* /*function*/,
                     const char* /*format*/, ...) {}

TEST_F(UnitHooks, LogHookThatIsAlreadyThereIsKept) {
    unit.state.log_write = write_elsewhere;
    KaploLogHooksInit(unit);
    EXPECT_EQ(unit.state.log_write, write_elsewhere);
    EXPECT_EQ(unit.state.general_allocate, ZEB_OsalMemAlloc);
}

class UseFlag : public UnitHooks, public testing::WithParamInterface<std::uint32_t> {};
INSTANTIATE_TEST_SUITE_P(OtherThanOne, UseFlag, testing::Values(0U, 2U, 3U, 0x101U, 0x10001U, 0xFFFFFFFFU));

TEST_P(UseFlag, KeepsTheReceiveSideOnTheFallbackPair) {
    services.set_use_flag(GetParam());
    KaploMemHooksInit(unit);
    EXPECT_EQ(unit.state.cache_allocate, kaplo::fallback_allocate);
    EXPECT_EQ(unit.state.cache_free, kaplo::fallback_free);
    EXPECT_EQ(unit.state.memory_ready, 1U);
}

// Keeps the arguments of the last allocation, which fails, and of the last release.
struct Asked {
    std::uint32_t size;
    std::uint32_t owner_code;
    std::string caller;
    void* block;
};
Asked asked;

void* ask(std::uint32_t size, std::uint32_t owner_code, const char* caller) {
    asked = {size, owner_code, caller, nullptr};
    return nullptr;
}
void give_back(void* block, std::uint32_t owner_code, const char* caller) {
    asked = {0, owner_code, caller, block};
}

TEST_F(UnitHooks, ReceiveSideCallsItsHooksWithOwner12AndTheWhole32BitSize) {
    KaploMemHooksInit(unit);
    unit.state.cache_allocate = ask;
    unit.state.cache_free = give_back;
    EXPECT_EQ(kaplo::allocate_received(unit, 0x80000000, "the allocation"), nullptr);
    EXPECT_EQ(asked.size, 0x80000000U);
    EXPECT_EQ(asked.owner_code, kReceiveOwner);
    EXPECT_EQ(asked.caller, "the allocation");
    kaplo::free_received(unit, &unit, "the release");
    EXPECT_EQ(asked.block, &unit);
    EXPECT_EQ(asked.owner_code, kReceiveOwner);
    EXPECT_EQ(asked.caller, "the release");
}

TEST_F(UnitHooks, SendSideCallsItsHooksWithTheLogModulesOwnerCodeAndTheWhole32BitSize) {
    KaploLogHooksInit(unit);
    unit.state.general_allocate = ask;
    unit.state.general_free = give_back;
    EXPECT_EQ(kaplo::allocate_to_send(unit, 0xFFFFFFFF, "the allocation"), nullptr);
    EXPECT_EQ(asked.size, 0xFFFFFFFFU);
    EXPECT_EQ(asked.owner_code, kSendOwner);
    EXPECT_EQ(asked.caller, "the allocation");
    kaplo::free_sent(unit, &unit, "the release");
    EXPECT_EQ(asked.block, &unit);
    EXPECT_EQ(asked.owner_code, kSendOwner);
    EXPECT_EQ(asked.caller, "the release");
}

TEST_F(UnitHooks, SendSideResolvesItsHooksByAllocatingAndByReleasing) {
    void* const block = kaplo::allocate_to_send(unit, 8, "first");
    EXPECT_EQ(services.allocations(), (Allocations{to_send(8, "first")}));
    kaplo::Unit other;
    kaplo::free_sent(other, block, "second");
    EXPECT_EQ(services.releases(), (Releases{{nullptr, kSendOwner, "second", "first"}}));
}

TEST(Fallback, PassesASizeOf0x80000000ToMallocZeroExtended) {
    void* const block = kaplo::fallback_allocate(0x80000000, 12, "nobody");
    ASSERT_NE(block, nullptr) << "two gigabytes of address space are needed";
    EXPECT_GE(malloc_usable_size(block), 0x80000000U);
    EXPECT_LT(malloc_usable_size(block), 0x100000000U);
    kaplo::fallback_free(block, 12, "nobody");
}

}  // namespace
