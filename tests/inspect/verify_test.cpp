// SPDX-License-Identifier: Apache-2.0
// Verification: the verdict is unpack's own, and each fault has a position, a path and a sentence.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>

#include "tests/inspect/inspected.h"
#include "tests/support/message.h"
#include "tests/support/message_types.h"

namespace {

using namespace tests;
using Json = nlohmann::ordered_json;

class Verify : public MessageTest {};

const Bytes kSetting =
    hex("0c 00 00 00"    // root reference
        "08 00 0c 00"    // vtable length, table length
        "04 00 08 00"    // offsets of f0, f1
        "08 00 00 00"    // soffset
        "07 00 00 00"    // f0
        "09 00 00 00");  // f1

// A list of two flows, whose elements' references are at 22 and 26.
Bytes two_flows() {
    const Nac_UserDataFlowInfo flows[2] = {{1, 2, {}, {}, {}, {}}, {3, 4, {}, {}, {}, {}}};
    return packed(Nac_UserDataFlowMsg{2, const_cast<Nac_UserDataFlowInfo*>(flows)});
}

TEST_F(Verify, FindsNothingWrongWithAValidMessage) {
    const Verified setting = verified(inspected_type("Nac_SetPortMsg"), kSetting);
    EXPECT_EQ(setting.verdict, VORN_VERDICT_VALID);
    EXPECT_EQ(setting.faults, Lines());
    EXPECT_EQ(logged(), Lines());
}

TEST_F(Verify, SaysWhatIsWrongWithAHeader) {
    Bytes damaged = kSetting;
    put32(damaged, 0, 0x60);
    const Verified made = verified(inspected_type("Nac_SetPortMsg"), damaged);
    EXPECT_EQ(made.verdict, VORN_VERDICT_HEADER);
    EXPECT_EQ(made.faults,
              Lines{"at 0, header of Nac_SetPortMsg: the table would be at 96, outside of 4 to 20"});
    EXPECT_EQ(logged(), Lines()) << "it logs nothing";
}

TEST_F(Verify, SaysWhatIsWrongWithAField) {
    Bytes damaged = kSetting;
    put16(damaged, 10, 0x100);  // the offset of f1
    const Verified made = verified(inspected_type("Nac_SetPortMsg"), damaged);
    EXPECT_EQ(made.verdict, VORN_VERDICT_FIELD);
    EXPECT_EQ(made.faults,
              Lines{"at 10, f1 of Nac_SetPortMsg: 4 bytes at 268 do not end inside the message of 24"});
}

TEST_F(Verify, GoesOnAfterAFaultAndNamesThePathToEach) {
    Bytes damaged = two_flows();
    put32(damaged, 22, 0xFFFFFFF0);  // the references to the elements
    put32(damaged, 26, 0xFFFFFFF1);
    const Verified made = verified(inspected_type("Nac_UserDataFlowMsg"), damaged);
    EXPECT_EQ(made.verdict, VORN_VERDICT_FIELD);
    EXPECT_EQ(made.faults,
              (Lines{"at 22, f0[0] of Nac_UserDataFlowMsg: the reference 4294967280 leads beyond 32 bits",
                     "at 26, f0[1] of Nac_UserDataFlowMsg: the reference 4294967281 leads beyond 32 bits"}));
}

TEST_F(Verify, StopsTellingWhenAskedTo) {
    Bytes damaged = two_flows();
    put32(damaged, 22, 0xFFFFFFF0);
    put32(damaged, 26, 0xFFFFFFF0);
    int heard = 0;
    const auto stop = [](const vorn_fault*, void* context) { return ++*static_cast<int*>(context); };
    EXPECT_EQ(vorn_inspect_verify(&inspected_type("Nac_UserDataFlowMsg"), damaged.data(), damaged.size(),
                                  stop, &heard),
              VORN_VERDICT_FIELD);
    EXPECT_EQ(heard, 1);
}

TEST_F(Verify, RefusesWhatIsNoMessageAtAll) {
    const vorn_type& type = inspected_type("Nac_SetPortMsg");
    EXPECT_EQ(verified(type, hex("0c 00 00")).faults,
              Lines{"at 0, header of Nac_SetPortMsg: 3 bytes are no message, which has 4 to 2147483647"});
    EXPECT_EQ(verified(type, hex("0c 00 00")).verdict, VORN_VERDICT_ARGUMENT);
    EXPECT_EQ(vorn_inspect_verify(&type, nullptr, 24, nullptr, nullptr), VORN_VERDICT_ARGUMENT);
    EXPECT_EQ(vorn_inspect_verify(&type, kSetting.data(), std::size_t{1} << 32 | 24, nullptr, nullptr),
              VORN_VERDICT_ARGUMENT);
    EXPECT_EQ(vorn_inspect_verify(nullptr, kSetting.data(), 24, nullptr, nullptr), VORN_VERDICT_ARGUMENT);
}

TEST_F(Verify, TakesAMessageOfThePackageByItsId) {
    std::vector<std::string> faults;
    const auto verify = [&faults](std::uint32_t id, const Bytes& bytes) {
        return vorn_nac_verify(id, bytes.data(), static_cast<std::uint32_t>(bytes.size()), keep_fault,
                               &faults);
    };
    EXPECT_EQ(verify(0x09B58155, kSetting), 0);
    EXPECT_EQ(faults.size(), 0U);
    EXPECT_EQ(verify(0x09B58155, hex("0c 00 00")), 1);
    EXPECT_EQ(faults.size(), 1U);
    EXPECT_LT(verify(1, kSetting), 0);
}

TEST_F(Verify, UnpacksWithAVerdictAndLogsAsUnpackDoes) {
    const vorn_type& type = inspected_type("Nac_SetPortMsg");
    Nac_SetPortMsg record = {};
    EXPECT_EQ(vorn_inspect_unpack(&type, kSetting.data(), kSetting.size(), &record), VORN_VERDICT_VALID);
    EXPECT_EQ(record.f1, 9U);
    EXPECT_EQ(vorn_inspect_unpack(&type, kSetting.data(), 3, &record), VORN_VERDICT_ARGUMENT);
    const auto of_inspect = logged();
    services.reset();
    Nac_SetPortMsg__unpack(kSetting.data(), 3, &record);
    EXPECT_EQ(of_inspect.size(), 1U);
    EXPECT_EQ(of_inspect[0].substr(0, of_inspect[0].find("0x")),
              logged().at(0).substr(0, logged()[0].find("0x")));
}

TEST_F(Verify, TellsALackOfMemoryFromDamage) {
    const Bytes message = two_flows();
    const vorn_type& type = inspected_type("Nac_UserDataFlowMsg");
    services.fail_allocation(0);
    Nac_UserDataFlowMsg record = {};
    EXPECT_EQ(vorn_inspect_unpack(&type, message.data(), message.size(), &record), VORN_VERDICT_NO_MEMORY);
    type.free_unpacked(&record);
}

// Each case of the corpus: verify, unpack and the JSON of the record agree with the reference.
class VerifyCorpus : public MessageTest, public testing::WithParamInterface<MessageType> {};
NAC_FOR_ALL_MESSAGES(VerifyCorpus);

TEST_P(VerifyCorpus, AgreesWithTheReference) {
    const vorn_type& type = inspected_type(GetParam().name);
    std::ifstream file(NAC_CORPUS_FOLDER "/" + GetParam().name + ".jsonl");
    int cases = 0;
    for (std::string text; std::getline(file, text); ++cases) {
        const Json line = Json::parse(text);
        const auto expected = line.at("verdict").get<std::string>();
        if (line.contains("length") || line.contains("null")) continue;
        SCOPED_TRACE(line.at("name").get<std::string>() + ", where the reference expects " + expected);
        const Bytes bytes = hex(line.at("hex").get<std::string>());
        const Verified made = verified(type, bytes);
        if (expected != "memory") {
            EXPECT_EQ(vorn_inspect_verdict_text(made.verdict), expected);
        }
        EXPECT_EQ(made.faults.empty(), made.verdict == VORN_VERDICT_VALID);

        services.reset();
        if (line.contains("fail_allocation")) services.fail_allocation(line.at("fail_allocation"));
        alignas(std::max_align_t) std::array<std::uint8_t, RecordingBus::kRecordCapacity> record = {};
        EXPECT_EQ(
            vorn_inspect_verdict_text(vorn_inspect_unpack(&type, bytes.data(), bytes.size(), record.data())),
            expected == "memory" && made.verdict == VORN_VERDICT_FIELD ? "field" : expected)
            << "damage counts more than a lack of memory";
        if (line.at("record").is_object()) {
            EXPECT_EQ(Json::parse(record_json(type, record.data())), line.at("record"));
        }
        EXPECT_EQ(logged().size(), line.at("log").size());
        type.free_unpacked(record.data());
    }
    EXPECT_GE(cases, 150) << "the corpus is not there";
}

}  // namespace
