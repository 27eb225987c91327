// SPDX-License-Identifier: MIT
/* docs/status-codes.md and the protocol's two tables name the same codes:
 * the first table of the page lists the library's status codes, the second
 * the simulator's replies, one row per code (a row may name two codes). */
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/Status.h"

namespace tetherhost::protocol {
namespace {

/* The codes in the first column of each Markdown table of the page, table
 * by table. */
std::vector<std::set<int>> tableCodes(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::set<int>> tables;
    bool inTable = false;
    const std::regex number(R"(-?\d+)");
    for (std::string line; std::getline(file, line);) {
        const bool row = line.rfind('|', 0) == 0;
        if (row && !inTable) tables.emplace_back();
        inTable = row;
        if (!row || line.rfind("|-", 0) == 0) continue;
        const std::string first = line.substr(2, line.find(" |", 2) - 2);
        if (first.find_first_not_of("-0123456789, ") != std::string::npos) continue;  // the heading row
        for (std::sregex_iterator it(first.begin(), first.end(), number), end; it != end; ++it)
            tables.back().insert(std::stoi(it->str()));
    }
    return tables;
}

template <std::size_t N>
std::set<int> numbersOf(const Code (&table)[N]) {
    std::set<int> numbers;
    for (const Code& code : table) numbers.insert(code.number);
    return numbers;
}

TEST(StatusDocs, ThePageListsExactlyTheCodesOfBothTables) {
    const std::vector<std::set<int>> tables = tableCodes(TETHERHOST_STATUS_PAGE);
    ASSERT_EQ(tables.size(), 2U);
    std::set<int> library = numbersOf(statusCodes);
    // Command 44's acknowledgement byte counts share the page's first table.
    library.insert(2);
    EXPECT_EQ(tables[0], library);
    EXPECT_EQ(tables[1], numbersOf(serverReplies));
}

TEST(StatusDocs, EveryCodeHasOneNameAndAMeaning) {
    std::set<std::string> names;
    for (const Code& code : statusCodes) {
        EXPECT_TRUE(names.insert(code.name).second) << code.name;
        EXPECT_STRNE(code.meaning, "");
    }
    names.clear();
    for (const Code& code : serverReplies) {
        EXPECT_TRUE(names.insert(code.name).second) << code.name;
        EXPECT_LT(code.number, 0);
    }
}

}  // namespace
}  // namespace tetherhost::protocol
