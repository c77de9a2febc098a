// SPDX-License-Identifier: Apache-2.0
// A host whose ZEB_OsalMemUseFlagGet does not return: by an exception, a jump, or a fork in another thread.
// The unit stays usable. Each test is a process of its own, since a unit asks once.
#include <sys/wait.h>
#include <unistd.h>
#include <csetjmp>

#include <atomic>
#include <chrono>
#include <functional>
#include <stdexcept>
#include <thread>

#include "runtime/zeb_osal_api.h"
#include "tests/support/units.h"

namespace {

using namespace std::chrono_literals;

std::function<std::uint32_t()> answer;
std::atomic<int> calls = 0;

}  // namespace

extern "C" std::uint32_t ZEB_OsalMemUseFlagGet(std::uint32_t /*owner_code*/) {
    ++calls;
    return answer();
}

namespace {

const tests::UnitCalls& unit = tests::kUnits[0];

TEST(AbandonedUseFlag, AnExceptionLeavesTheUnitUsableByItsThreadAtOnce) {
    answer = []() -> std::uint32_t { throw std::runtime_error("no flag"); };
    EXPECT_THROW(unit.use(), std::runtime_error);
    EXPECT_THROW(unit.use(), std::runtime_error);
    answer = [] { return 0U; };
    const auto begin = std::chrono::steady_clock::now();
    unit.use();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 500ms);
    unit.use();
    EXPECT_EQ(calls, 3);
}

TEST(AbandonedUseFlag, AnExceptionLeavesTheUnitUsableByOtherThreads) {
    answer = []() -> std::uint32_t { throw std::runtime_error("no flag"); };
    EXPECT_THROW(unit.use(), std::runtime_error);
    answer = [] { return 0U; };
    std::thread([] { unit.use(); }).join();
    EXPECT_EQ(calls, 2);
}

TEST(AbandonedUseFlag, AJumpLeavesTheUnitUsable) {
    static std::jmp_buf before;
    answer = []() -> std::uint32_t { std::longjmp(before, 1); };
    if (setjmp(before) == 0) unit.use();
    answer = [] { return 0U; };
    unit.use();
    EXPECT_EQ(calls, 2);
}

TEST(AbandonedUseFlag, AForkWhileAnotherThreadAsksLeavesTheUnitUsableInTheChild) {
    static std::atomic<bool> asked = false;
    static std::atomic<bool> may_return = false;
    answer = [] {
        if (asked.exchange(true)) return 0U;  // in the child
        while (!may_return) std::this_thread::sleep_for(1ms);
        return 0U;
    };
    std::thread asking([] { unit.use(); });
    while (!asked) std::this_thread::sleep_for(1ms);
    const pid_t child = fork();
    if (child == 0) {
        alarm(20);
        unit.use();
        _exit(calls == 2 ? 0 : 1);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    may_return = true;
    asking.join();
    EXPECT_EQ(calls, 1);
}

TEST(AbandonedUseFlag, ASlowAnswerIsWaitedForAndThenAskedAgain) {
    static std::atomic<int> slow = 0;
    answer = [] {
        if (slow++ == 0) std::this_thread::sleep_for(4s);
        return 0U;
    };
    std::thread first([] { unit.use(); });
    while (slow == 0) std::this_thread::sleep_for(1ms);
    unit.use();
    EXPECT_EQ(calls, 2);
    first.join();
    unit.use();
    EXPECT_EQ(calls, 2);
}

}  // namespace
