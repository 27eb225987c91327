// SPDX-License-Identifier: MIT
/* The command table of docs/client-api.md against protocol/Commands.h: every
 * command number the table of shapes knows (and 0) is listed once, and each
 * row's argument and reply columns say what its commands' shapes send and
 * read. */
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "protocol/Commands.h"

namespace tetherhost::protocol {
namespace {

struct Row {
    std::vector<int> numbers;
    std::string arguments;
    std::string reply;
};

/* "5, 7, 15–18" or "46 / 48": single numbers and ranges (an en dash). */
std::vector<int> numbersIn(const std::string& cell) {
    std::vector<int> numbers;
    const std::regex item(R"((\d+)(?:–(\d+))?)");
    for (std::sregex_iterator it(cell.begin(), cell.end(), item), end; it != end; ++it) {
        const int first = std::stoi((*it)[1].str());
        const int last = (*it)[2].matched ? std::stoi((*it)[2].str()) : first;
        for (int n = first; n <= last; ++n) numbers.push_back(n);
    }
    return numbers;
}

std::vector<std::string> cellsOf(const std::string& line) {
    std::vector<std::string> cells;
    std::size_t start = 1;
    for (std::size_t bar; (bar = line.find(" |", start)) != std::string::npos; start = bar + 2)
        cells.push_back(line.substr(start + 1, bar - start - 1));
    return cells;
}

/* The rows of the table under the heading "### The command table". */
std::vector<Row> commandTable(const std::string& path) {
    std::ifstream file(path);
    std::vector<Row> rows;
    bool inSection = false;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind('#', 0) == 0) inSection = line == "### The command table";
        if (!inSection || line.rfind("| ", 0) != 0 || line.rfind("| command", 0) == 0) continue;
        const std::vector<std::string> cells = cellsOf(line);
        if (cells.size() != 3) continue;
        rows.push_back({numbersIn(cells[0]), cells[1], cells[2]});
    }
    return rows;
}

bool startsWith(const std::string& text, const std::string& prefix) { return text.rfind(prefix, 0) == 0; }

/* What a row's argument column must say for a command of this shape. */
bool argumentsSay(const Command& shape, const std::string& text) {
    const char* counted[] = {"none", "one", "two"};
    switch (shape.marshal) {
    case Marshal::Nothing:
    case Marshal::Unknown:
    case Marshal::CommandLock:
    case Marshal::ReleaseCommandLock:
    case Marshal::ReleaseSessionLock:
    case Marshal::Farewell: return startsWith(text, "none");
    case Marshal::Ints: return shape.count <= 2 && startsWith(text, std::string(counted[shape.count]) + " int");
    case Marshal::TextsLenient:
    case Marshal::TextsStrict: return shape.count <= 2 && startsWith(text, std::string(counted[shape.count]) + " text");
    case Marshal::HeaderTrailer: return startsWith(text, "int, text, int, text, int, text, int, text");
    case Marshal::OpenSession: return startsWith(text, "text, text, int n, n ints");
    case Marshal::GenericShift: return startsWith(text, "generic shift");
    case Marshal::SharedApps: return startsWith(text, "int count, then count texts");
    case Marshal::PumpData: return startsWith(text, "pump data");
    case Marshal::JtagInterface: return startsWith(text, "a JTAG-interface sub-command");
    case Marshal::I2C: return text.find("I2C transfer") != std::string::npos;
    case Marshal::SSPI: return text.find("SSPI transfer") != std::string::npos;
    }
    return false;
}

/* The commands the table of shapes knows, and 0, the one unknown number the
 * page lists (it travels like the commands without arguments). */
std::set<int> knownCommands() {
    std::set<int> known = {0, command::farewell};
    for (int n = 1; n < command::farewell; ++n)
        if (shapeOf(n).marshal != Marshal::Unknown) known.insert(n);
    return known;
}

class CommandDocs : public ::testing::Test {
protected:
    const std::vector<Row> rows = commandTable(TETHERHOST_CLIENT_API_PAGE);
};

TEST_F(CommandDocs, TheTableListsEveryKnownCommandOnce) {
    std::multiset<int> listed;
    for (const Row& row : rows) listed.insert(row.numbers.begin(), row.numbers.end());
    const std::set<int> known = knownCommands();
    EXPECT_EQ(std::set<int>(listed.begin(), listed.end()), known);
    for (const int number : known) EXPECT_EQ(listed.count(number), 1U) << "command " << number;
}

TEST_F(CommandDocs, EachRowSaysWhatItsCommandsSend) {
    ASSERT_FALSE(rows.empty());
    for (const Row& row : rows)
        for (const int number : row.numbers)
            EXPECT_TRUE(argumentsSay(shapeOf(number), row.arguments))
                << "command " << number << ": \"" << row.arguments << "\"";
}

TEST_F(CommandDocs, EachRowSaysWhatItsCommandsRead) {
    ASSERT_FALSE(rows.empty());
    for (const Row& row : rows)
        for (const int number : row.numbers) {
            const bool integer = startsWith(row.reply, "integer") || startsWith(row.reply, "as ");
            EXPECT_EQ(integer, readsIntegerReply(number)) << "command " << number << ": \"" << row.reply << "\"";
            if (!integer) {
                EXPECT_NE(row.reply.find("lock verdict"), std::string::npos) << "command " << number;
            }
        }
}

}  // namespace
}  // namespace tetherhost::protocol
