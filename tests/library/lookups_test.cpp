// SPDX-License-Identifier: Apache-2.0
// What each unit looks up in the host, in which order, and how often: this program listens to dlsym.
//
// Not for sanitizers, whose own runtimes call dlsym before this one is ready. A unit looks things up once in
// a process, so the tests count on CTest, which runs every test in a process of its own.
#include <dlfcn.h>

#include <latch>
#include <mutex>
#include <thread>

#include "runtime/kaplo_runtime.h"
#include "tests/support/give_up.h"
#include "tests/support/message.h"
#include "tests/support/units.h"

namespace {

std::mutex lookups_lock;
std::vector<std::string>& lookups() {
    static std::vector<std::string> names;
    return names;
}

std::vector<std::string> looked_up() {
    const std::lock_guard locked(lookups_lock);
    return lookups();
}

using Lookup = void* (*)(void*, const char*);

// dlsym itself cannot be asked for the next dlsym. Its version is that of the C library in use, or, before
// 2.34, of the architecture's first.
Lookup next_dlsym() {
    for (const char* version : {"GLIBC_2.34", "GLIBC_2.2.5", "GLIBC_2.17", "GLIBC_2.27", "GLIBC_2.0"}) {
        if (void* const found = dlvsym(RTLD_NEXT, "dlsym", version)) return reinterpret_cast<Lookup>(found);
    }
    tests::give_up("no dlsym in the C library");
}

}  // namespace

// In the offset of the C library's, for every object of the process.
extern "C" void* dlsym(void* handle, const char* name) noexcept {
    static const Lookup next = next_dlsym();
    if (std::string_view(name).starts_with("ZEB_")) {
        const std::lock_guard locked(lookups_lock);
        lookups().push_back(handle == RTLD_DEFAULT ? name : std::string(name) + " by another handle");
    }
    return next(handle, name);
}

namespace {

using namespace tests;

const Lines kMemoryLookups = {"ZEB_OsalMemUseFlagGet", "ZEB_OsalMemCacheAlloc", "ZEB_OsalMemFree"};
const Lines kLogLookups = {"ZEB_OsalLogWrite", "ZEB_OsalMemAlloc", "ZEB_OsalMemFree"};

Lines both_groups() {
    Lines names = kMemoryLookups;
    names.insert(names.end(), kLogLookups.begin(), kLogLookups.end());
    return names;
}

class Lookups : public MessageTest {};

TEST_F(Lookups, NoneHappensWhileTheLibraryLoads) {
    EXPECT_EQ(looked_up(), Lines{});
    EXPECT_NE(dlsym(RTLD_DEFAULT, "ZEB_OsalLogWrite"), nullptr);
    EXPECT_EQ(looked_up(), Lines{"ZEB_OsalLogWrite"}) << "these are the lookups that are counted";
}

TEST_F(Lookups, NoneIsMadeByInitialisationResourceCleanAndFreeOfRecordsWithoutArrays) {
#define RUN(module, prefix, messages)   \
    EXPECT_EQ(prefix##_recv_init(), 0); \
    EXPECT_EQ(prefix##_send_init(), 0); \
    prefix##__send_resource_clean();
    NAC_ALL_MODULES(RUN)
#undef RUN
    Nac_SetPortMsg port = {};
    Nac_SetPortMsg_free__unpacked(&port);
    Nac_UserDataFlowMsg_free__unpacked(nullptr);
    EXPECT_EQ(looked_up(), Lines{});
}

class LookupsOfUnit : public Lookups, public testing::WithParamInterface<UnitCalls> {};
INSTANTIATE_TEST_SUITE_P(, LookupsOfUnit, testing::ValuesIn(kUnits), unit_name);

TEST_P(LookupsOfUnit, AreThoseOfTheMemoryHooksUntilALineIsLogged) {
    GetParam().use();
    GetParam().use();
    EXPECT_EQ(looked_up(), kMemoryLookups);
    GetParam().complain();
    GetParam().complain();
    EXPECT_EQ(looked_up(), both_groups());
}

TEST_P(LookupsOfUnit, HappenOnceHoweverManyThreadsCallFirst) {
    constexpr int thread_count = 64;
    std::latch start(thread_count);
    std::vector<std::thread> threads;
    for (int i = 0; i < thread_count; ++i) {
        threads.emplace_back([&] {
            start.arrive_and_wait();
            GetParam().complain();
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(looked_up(), both_groups());
    EXPECT_EQ(services.log_lines().size(), std::size_t{thread_count});
}

TEST_F(Lookups, EveryUnitMakesItsOwn) {
    for (const UnitCalls& unit : kUnits) unit.complain();
    for (const UnitCalls& unit : kUnits) unit.complain();
    EXPECT_EQ(looked_up().size(), kUnits.size() * both_groups().size());
}

TEST_F(Lookups, WithoutTheUseFlagTheCacheAllocatorIsNotLookedFor) {
    services.set_use_flag(0);
    unpack_nothing<Nac_SetPortMsg>();
    EXPECT_EQ(looked_up(), Lines{"ZEB_OsalMemUseFlagGet"});
}

TEST_F(Lookups, SingleSendOfAnImageNeedsTheMemoryHooksOnly) {
    const Nac_SetPortMsg port = {};
    EXPECT_EQ(Nac_SetPortMsg__sendmsg(1, &port, 1), 0U);
    EXPECT_EQ(looked_up(), kMemoryLookups);
}

TEST_F(Lookups, RefusedSendOfNoRecordsNeedsNone) {
    const Nac_UserDataFlowMsg list = {};
    EXPECT_EQ(Nac_UserDataFlowMsg__sendmsg(1, &list, 0), kRefused);
    EXPECT_EQ(looked_up(), Lines{});
}

// ---- one unit from the inside -----------------------------------------------------------------------

class UnitLookups : public Lookups {
  protected:
    kaplo::Unit unit;
};

TEST_F(UnitLookups, AreNoneAtStartUp) {
    unit.start_up();
    EXPECT_EQ(looked_up(), Lines{});
}

TEST_F(UnitLookups, OfTheMemoryHooksAreMadeOnce) {
    KaploMemHooksInit(unit);
    KaploMemHooksInit(unit);
    kaplo::resolve_memory_hooks(unit);  // as a thread that found the word 0 and then waited for the lock
    EXPECT_EQ(looked_up(), kMemoryLookups);
}

TEST_F(UnitLookups, OfTheLogHooksAreMadeOnce) {
    KaploLogHooksInit(unit);
    KaploLogHooksInit(unit);
    kaplo::resolve_log_hooks(unit);
    EXPECT_EQ(looked_up(), kLogLookups);
}

TEST_F(UnitLookups, LeaveOutALogWriterThatIsAlreadyThere) {
    unit.state.log_write = ZEB_OsalLogWrite;
    KaploLogHooksInit(unit);
    EXPECT_EQ(looked_up(), (Lines{"ZEB_OsalMemAlloc", "ZEB_OsalMemFree"}));
}

}  // namespace
