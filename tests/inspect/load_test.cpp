// SPDX-License-Identifier: Apache-2.0
// What is refused as a package's catalogue, and in which words. tests/packages/own_package.py loads a whole
// one.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <string>

#include "inspect/vorn_inspect.h"

namespace {

const std::string kNext =
    "; a catalogue is a file that CMake's vorn_add_package makes, libvorn_NAME_catalogue.so";

std::string refusal(const char* path) {
    std::array<char, 1024> why = {};
    EXPECT_EQ(vorn_inspect_load(path, why.data(), why.size()), nullptr);
    return why.data();
}

TEST(Load, NamesWhatIsNotThere) {
    EXPECT_EQ(refusal("/none/lease.so"), "there is no file /none/lease.so" + kNext);
    EXPECT_EQ(refusal(""), "no file was named" + kNext);
    EXPECT_EQ(refusal(nullptr), refusal(""));
}

TEST(Load, LooksForANameHereAndBesideTheLibrary) {
    const std::string said = refusal("lease");
    EXPECT_TRUE(said.starts_with("there is neither a file lease here nor /")) << said;
    EXPECT_TRUE(said.ends_with("/vorn_nac/libvorn_lease_catalogue.so" + kNext)) << said;
}

TEST(Load, RefusesAFileThatIsNoLibrary) {
    const std::string path = testing::TempDir() + "no_library";
    std::ofstream(path) << "no library";
    const std::string said = refusal(path.c_str());
    EXPECT_TRUE(said.starts_with(path + " cannot be loaded: ")) << said;
    EXPECT_TRUE(said.ends_with(kNext)) << said;
}

TEST(Load, RefusesALibraryThatIsNoCatalogue) {
    const std::string library = INSPECT_LIBRARY;
    EXPECT_EQ(refusal(library.c_str()),
              library + " is a library, but no catalogue: it has no vorn_package_catalogue" + kNext);
}

TEST(Load, RefusesTablesOfAnotherVersion) {
    const std::string library = LATER_CATALOGUE;
    EXPECT_EQ(refusal(library.c_str()),
              library +
                  " has tables of version 2, and this library reads version 1; build it again with the "
                  "headers of this version");
}

TEST(Load, KnowsNacsOwnByItsName) {
    EXPECT_EQ(vorn_inspect_load("nac", nullptr, 0), vorn_nac_catalogue());
    EXPECT_EQ(vorn_nac_catalogue()->tables_version, VORN_TABLES_VERSION);
}

TEST(Load, CutsItsWordsToTheCapacity) {
    std::array<char, 9> why = {};
    EXPECT_EQ(vorn_inspect_load("/none", why.data(), why.size()), nullptr);
    EXPECT_STREQ(why.data(), "there is");
    EXPECT_EQ(vorn_inspect_load("/none", nullptr, 100), nullptr);
}

}  // namespace
