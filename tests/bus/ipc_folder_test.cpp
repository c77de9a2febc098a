// SPDX-License-Identifier: Apache-2.0
// The folder of ipc: whose it must be, and what is left alone in it.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <utility>

#include "tests/bus/ipc_speaker.h"

namespace {

using namespace tests;

std::string folder_of(const TestUrl& at) { return at.url().substr(6); }

void expect_refused(const std::string& folder, const std::string& why) {
    TestBus bus("ipc://" + folder, 5);
    EXPECT_EQ(bus.opened(), VORN_BUS_SYSTEM_ERROR);
    ASSERT_EQ(bus.log().size(), 1U);
    EXPECT_NE(bus.log()[0].find(why), std::string::npos) << bus.log()[0];
}

void expect_folder_refused(const std::string& folder, const std::string& why) {
    expect_refused(folder, why);
    EXPECT_EQ(TestWatch("ipc://" + folder).opened(), VORN_BUS_SYSTEM_ERROR);
}

TEST(IpcFolder, ItAndItsSocketsAreTheUsersAlone) {
    const auto at = make_test_url("ipc");
    const std::string folder = folder_of(*at) + "/inner";
    TestBus bus("ipc://" + folder, 5);
    ASSERT_EQ(bus.opened(), VORN_BUS_OK);
    struct stat status = {};
    ASSERT_EQ(stat(folder.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0700U);
    for (const char* const name : {"/5.sock", "/5.lock"}) {
        ASSERT_EQ(stat((folder + name).c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600U);
    }
    bus.close();
    EXPECT_NE(stat((folder + "/5.sock").c_str(), &status), 0);
}

TEST(IpcFolder, WhereOthersMayWriteIsRefused) {
    const auto at = make_test_url("ipc");
    ASSERT_EQ(chmod(folder_of(*at).c_str(), 0770), 0);
    expect_folder_refused(folder_of(*at), "others may write there");
    expect_folder_refused(folder_of(*at) + "/inner", "others may write there");  // and replace it
    expect_folder_refused("/tmp", "others may write there");
}

TEST(IpcFolder, ALinkIsRefusedWhereverItIs) {
    const auto at = make_test_url("ipc");
    const std::string folder = folder_of(*at);
    std::filesystem::create_directory(folder + "/real");
    std::filesystem::create_directory_symlink(folder + "/real", folder + "/link");
    expect_folder_refused(folder + "/link", "a link");
    expect_folder_refused(folder + "/link/inner", "a link");
    EXPECT_FALSE(std::filesystem::exists(folder + "/real/inner"));
}

TEST(IpcFolder, WhatIsDoneToItsPathLaterDoesNotMatter) {
    const auto at = make_test_url("ipc");
    const std::string folder = folder_of(*at) + "/bus";
    TestBus receiver("ipc://" + folder, kReceiver);
    TestBus sender("ipc://" + folder, kSender);
    std::filesystem::rename(folder, folder + "-moved");
    std::filesystem::create_directory(folder);
    ASSERT_EQ(nac_fwm_port_recv_init(), 0);
    EXPECT_EQ(sender.send(kReceiver, {1, 2}), 0U);
    EXPECT_TRUE(receiver.poll_until(1));
    receiver.close();
    EXPECT_FALSE(std::filesystem::exists(folder + "-moved/2.sock"));
}

TEST(IpcFolder, PathsMayBeLongerThanASocketsName) {
    const auto at = make_test_url("ipc");
    const std::string url = at->url() + "/" + std::string(150, 'x');
    std::filesystem::create_directory(url.substr(6));
    std::filesystem::permissions(url.substr(6), std::filesystem::perms::owner_all);
    TestBus receiver(url + "/" + std::string(150, 'y'), kReceiver);
    ASSERT_EQ(receiver.opened(), VORN_BUS_OK);
    TestBus sender(url + "/" + std::string(150, 'y'), kSender);
    ASSERT_EQ(nac_fwm_port_recv_init(), 0);
    EXPECT_EQ(sender.send(kReceiver, {1, 2}), 0U);
    EXPECT_TRUE(receiver.poll_until(1));
}

TEST(IpcFolder, NothingIsDeletedThatIsNoSocket) {
    const auto at = make_test_url("ipc");
    std::ofstream(folder_of(*at) + "/5.sock") << "mine";
    expect_refused(folder_of(*at), "is no socket of a bus");
    EXPECT_EQ(std::filesystem::file_size(folder_of(*at) + "/5.sock"), 4U);
}

TEST(IpcFolder, ASocketThatAKilledProcessLeftIsReplaced) {
    const auto at = make_test_url("ipc");
    {
        Listener killed(at->url());
        killed.lock.reset();
        Descriptor left = std::move(killed.listener);  // so that its file stays
    }
    ASSERT_TRUE(std::filesystem::exists(folder_of(*at) + "/2.sock"));
    TestBus sender(at->url(), kSender, [](vorn_bus_options& options) { options.send_timeout_ms = 10; });
    EXPECT_EQ(sender.send(kReceiver, {1, 2}), std::uint32_t{VORN_BUS_NO_PEER});
    TestBus receiver(at->url(), kReceiver);
    EXPECT_EQ(receiver.opened(), VORN_BUS_OK);
}

TEST(IpcFolder, ALockDoesNotLiveOnInAForkedChild) {
    const auto at = make_test_url("ipc");
    std::array<int, 2> said = {};
    ASSERT_EQ(pipe2(said.data(), O_CLOEXEC), 0);
    const pid_t child = fork();
    if (child == 0) {  // opens a bus, and ends while a child of its own goes on
        const TestBus bus(at->url(), 5);
        if (fork() == 0) {
            const pid_t self = getpid();
            if (write(said[1], &self, sizeof self) == sizeof self) pause();
            _exit(0);
        }
        pause();
    }
    pid_t sleeper = 0;
    ASSERT_EQ(read(said[0], &sleeper, sizeof sleeper), static_cast<ssize_t>(sizeof sleeper));
    kill(child, SIGKILL);
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    const TestBus next(at->url(), 5);
    EXPECT_EQ(next.opened(), VORN_BUS_OK);
    kill(sleeper, SIGKILL);
    close(said[0]);
    close(said[1]);
}

TEST(IpcFolder, WithoutANameItIsThatOfTheUsersSession) {
    const auto at = make_test_url("ipc");
    setenv("XDG_RUNTIME_DIR", folder_of(*at).c_str(), 1);
    const TestBus bus("ipc://", 3);
    EXPECT_STREQ(vorn_bus_endpoint(bus.get()), ("ipc://" + folder_of(*at) + "/vorn/3.sock").c_str());
    unsetenv("XDG_RUNTIME_DIR");
    setenv("HOME", folder_of(*at).c_str(), 1);
    const TestBus other("ipc://", 3);
    EXPECT_STREQ(vorn_bus_endpoint(other.get()), ("ipc://" + folder_of(*at) + "/.vorn/3.sock").c_str());
}

}  // namespace
