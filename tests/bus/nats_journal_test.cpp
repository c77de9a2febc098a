// SPDX-License-Identifier: Apache-2.0
// The journal of a receiver on nats: what the process that opens it next finds in it.
#include "vorn/nats/nats_journal.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace {

using namespace vorn;

constexpr std::int64_t kStream = 17;  // when it was created
constexpr std::uint64_t kName = 5;

class NatsJournal : public testing::Test {
  protected:
    void SetUp() override {
        journal_.open(*memory_);
        journal_.begin(kStream, kName, 0);
    }

    // Those that the next process finds.
    std::vector<Journal::Session> sessions_of_the_next() {
        next_ = std::make_unique<Journal>();
        next_->open(*memory_);
        return next_->sessions();
    }

    std::unique_ptr<Journal::Contents> memory_ = std::make_unique<Journal::Contents>();
    Journal journal_;
    std::unique_ptr<Journal> next_;
};

TEST_F(NatsJournal, IsAboutOneStreamAndKeepsItsName) {
    EXPECT_TRUE(sessions_of_the_next().empty());
    EXPECT_TRUE(next_->is_about(kStream));
    EXPECT_FALSE(next_->is_about(kStream + 1));
    EXPECT_EQ(next_->name(), kName);
    *memory_ = {};
    EXPECT_FALSE(next_->is_about(0)) << "of a file of zeros";
}

TEST_F(NatsJournal, HasTheBatchInHandAndTheLastMessageThatIsHandled) {
    journal_.start(40, 2);
    journal_.finish(39);
    sessions_of_the_next();
    EXPECT_EQ(next_->started(), 40U);
    EXPECT_EQ(next_->started_batch(), 2U);
    EXPECT_EQ(next_->finished(), 39U);
}

TEST_F(NatsJournal, HasOfASessionItsHighestNumberAndItsLastPosition) {
    journal_.remember({7, 100, 1000});
    journal_.remember({7, 90, 1001});  // stored twice
    const auto found = sessions_of_the_next();
    ASSERT_EQ(found.size(), 1U);
    EXPECT_EQ(found[0].name, 7U);
    EXPECT_EQ(found[0].last, 100U);
    EXPECT_EQ(found[0].position, 1001U);
}

TEST_F(NatsJournal, ThatForgetsItsSessionsSaysSo) {
    journal_.remember({7, 100, 1000});
    EXPECT_FALSE(journal_.forgot());
    journal_.forget();
    EXPECT_TRUE(journal_.sessions().empty());
    EXPECT_TRUE(sessions_of_the_next().empty());
    EXPECT_TRUE(next_->forgot());
}

TEST_F(NatsJournal, ThatBeginsAnewHasNoSessionAndDoubtsWhatOthersWereGiven) {
    journal_.remember({7, 100, 1000});
    journal_.start(40, 2);
    journal_.finish(39);
    journal_.begin(kStream + 1, kName + 1, 0);
    EXPECT_TRUE(sessions_of_the_next().empty());
    EXPECT_TRUE(next_->is_about(kStream + 1));
    EXPECT_EQ(next_->name(), kName + 1);
    EXPECT_EQ(next_->started() + next_->started_batch() + next_->finished(), 0U);
    EXPECT_FALSE(next_->forgot());
    journal_.begin(kStream + 1, kName + 2, 30);
    EXPECT_EQ(next_->delivered_before(), 30U);
    EXPECT_TRUE(next_->forgot());
}

TEST_F(NatsJournal, ForgetsTheSessionThatWasSilentLongestWhereItIsFull) {
    for (std::uint64_t i = 0; i < Journal::kSessions; ++i) journal_.remember({i + 1, 1, 2000 - i % 2000});
    EXPECT_FALSE(journal_.forgot());
    journal_.remember({99999, 1, 3000});
    EXPECT_TRUE(journal_.forgot());
    const auto found = sessions_of_the_next();
    EXPECT_EQ(found.size(), Journal::kSessions);
    const auto has = [&](std::uint64_t name) {
        return std::ranges::any_of(found, [&](const auto& each) { return each.name == name; });
    };
    EXPECT_TRUE(has(99999));
    EXPECT_FALSE(has(2000));  // the first of position 1
}

TEST(NatsJournalFile, IsOpenOnceAndHoldsWhatItHeld) {
    const std::filesystem::path folder = testing::TempDir() + "journal_of_" + std::to_string(getpid());
    const std::string file = folder / "7";
    {
        Journal journal;
        journal.open(file);
        journal.begin(kStream, kName, 0);
        journal.remember({7, 100, 1000});
        try {
            Journal().open(file);
            FAIL() << "it was opened twice";
        } catch (const std::system_error& fault) {
            EXPECT_EQ(fault.code(), std::errc::operation_would_block);
        }
    }
    Journal journal;
    journal.open(file);
    EXPECT_TRUE(journal.is_about(kStream));
    EXPECT_EQ(journal.sessions().size(), 1U);
    std::filesystem::remove_all(folder);
}

TEST(NatsJournalFile, ThatCannotBeMadeIsNamed) {
    const std::string folder = testing::TempDir() + "no_folder_of_" + std::to_string(getpid());
    std::ofstream(folder) << "a file";
    try {
        Journal().open(folder + "/7");
        FAIL() << "it was opened";
    } catch (const std::system_error& fault) {
        EXPECT_NE(std::string(fault.what()).find(folder), std::string::npos) << fault.what();
    }
    std::filesystem::remove(folder);
}

}  // namespace
