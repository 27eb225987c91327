// SPDX-License-Identifier: MIT
/* The message catalogue: the 109 identifiers with the placeholders their
 * arguments call for, and the texts built into the library (this test runs
 * with NLSPATH pointing nowhere, so no catalogue file is found). */
#include <fstream>
#include <map>
#include <regex>
#include <set>

#include <gtest/gtest.h>

#include "CatalogueFiles.h"
#include "ClientUtils.h"
#include "support/HeapInUse.h"
#include "platform/itoa.h"
#include "platform/msgManager.h"

namespace {

using namespace tetherhost::test;

std::set<int> postedIdentifiers() {
    std::set<int> ids;
    const std::set<int> neverPosted = {1003, 1005, 1011, 1030, 1031, 1072, 1107, 1109};
    for (int id = 1001; id <= 1116; ++id)
        if (neverPosted.count(id) == 0) ids.insert(id);
    ids.insert(2000);
    return ids;
}

template <typename Map>
std::set<int> keys(const Map& map) {
    std::set<int> result;
    for (const auto& entry : map) result.insert(entry.first);
    return result;
}

}  // namespace

TEST(Catalogue, HoldsExactlyThe109PostedIdentifiers) {
    const auto templates = catalogueTemplates();
    EXPECT_EQ(templates.size(), 109u);
    EXPECT_EQ(keys(templates), postedIdentifiers());
    EXPECT_EQ(keys(postedSignatures()), postedIdentifiers());
}

TEST(Catalogue, EveryTemplateCarriesThePlaceholdersOfItsArguments) {
    const auto signatures = postedSignatures();
    for (const auto& [id, text] : catalogueTemplates()) {
        ASSERT_EQ(signatures.count(id), 1u) << id;
        EXPECT_EQ(placeholders(text), signatures.at(id)) << "message " << id << ": " << text;
    }
}

TEST(Catalogue, BuiltInTextsAreTheCatalogueSourceTexts) {
    msgManager messages("tetherhostclient");
    for (const auto& [id, text] : catalogueTemplates()) {
        std::string found;
        messages.queryMsgString(std::to_string(id).c_str(), found);
        EXPECT_EQ(found, text) << id;
    }
}

TEST(Catalogue, UnknownIdentifierHasTheEmptyTemplate) {
    msgManager messages("tetherhostclient");
    std::string found = "something";
    messages.queryMsgString("1003", found);
    EXPECT_EQ(found, "");
    messages.queryMsgString("not a number", found);
    EXPECT_EQ(found, "");
}

TEST(Itoa, WritesDecimalTextWithSign) {
    char buffer[40];
    EXPECT_STREQ(itoa(0, buffer, 10), "0");
    EXPECT_STREQ(itoa(42, buffer, 10), "42");
    EXPECT_STREQ(itoa(-5, buffer, 10), "-5");
    EXPECT_STREQ(itoa(2147483647, buffer, 10), "2147483647");
    EXPECT_STREQ(itoa(-2147483647 - 1, buffer, 10), "-2147483648");
}

TEST(Itoa, OtherRadixesWriteTheUnsignedPattern) {
    char buffer[40];
    EXPECT_STREQ(itoa(255, buffer, 16), "ff");
    EXPECT_STREQ(itoa(-1, buffer, 16), "ffffffff");
    EXPECT_STREQ(itoa(5, buffer, 2), "101");
    EXPECT_STREQ(itoa(5, buffer, 1), "");
}

TEST(CatalogueHandles, AMillionDroppedClientUtilsDoNotGrowTheHeap) {
    // Warm up: the first handle opens the shared catalogue.
    { ClientUtils first(0, nullptr, "warm", ""); }
    const std::size_t before = tetherhost::heapInUse();
    for (int i = 0; i < 1000000; ++i) {
        ClientUtils utils(0, nullptr, "board1", "");
    }
    const std::size_t after = tetherhost::heapInUse();
    EXPECT_LE(after, before + 4096) << "heap in use grew from " << before << " to " << after;
}
