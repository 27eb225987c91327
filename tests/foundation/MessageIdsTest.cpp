// SPDX-License-Identifier: MIT
/* The message names of platform/MessageIds.h against the catalogue: every
 * name stands for an identifier of its own, every identifier the library
 * posts has a name, and the catalogue text of each carries the placeholders
 * of the arguments it is posted with (tests/data/message_signatures.txt). */
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "CatalogueFiles.h"

namespace {

using namespace tetherhost::test;

struct NamedId {
    std::string name;
    int id;
};

std::string readFile(const char* path) {
    std::ifstream in(path);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

/* The names of MessageIds.h in the order they are declared. */
std::vector<NamedId> declaredNames() {
    std::vector<NamedId> names;
    const std::string header = readFile(TETHERHOST_MESSAGE_IDS);
    const std::regex declaration(R"re(inline constexpr const char\* (\w+) = "([0-9]+)";)re");
    for (auto it = std::sregex_iterator(header.begin(), header.end(), declaration); it != std::sregex_iterator(); ++it)
        names.push_back({(*it)[1], std::stoi((*it)[2])});
    return names;
}

std::size_t declarationCount() {
    const std::string header = readFile(TETHERHOST_MESSAGE_IDS);
    std::size_t count = 0;
    for (auto at = header.find("constexpr"); at != std::string::npos; at = header.find("constexpr", at + 1)) ++count;
    return count;
}

}  // namespace

TEST(MessageIds, EveryDeclarationIsANamedIdentifier) {
    const auto names = declaredNames();
    ASSERT_FALSE(names.empty()) << "no names read from " << TETHERHOST_MESSAGE_IDS;
    // A declaration in any other form would escape the checks below.
    EXPECT_EQ(names.size(), declarationCount());
}

TEST(MessageIds, NoTwoNamesShareAnIdentifier) {
    std::map<int, std::string> nameOf;
    std::set<std::string> seen;
    for (const auto& [name, id] : declaredNames()) {
        EXPECT_TRUE(seen.insert(name).second) << name << " is declared twice";
        const auto [at, added] = nameOf.emplace(id, name);
        EXPECT_TRUE(added) << id << " is named both " << at->second << " and " << name;
    }
}

TEST(MessageIds, NamesStandInTheOrderOfTheirNumbers) {
    const auto names = declaredNames();
    for (std::size_t i = 1; i < names.size(); ++i)
        EXPECT_LT(names[i - 1].id, names[i].id) << names[i - 1].name << " before " << names[i].name;
}

TEST(MessageIds, EveryPostedIdentifierHasAName) {
    std::set<int> named;
    for (const auto& entry : declaredNames()) named.insert(entry.id);
    std::set<int> posted;
    for (const auto& entry : postedSignatures()) posted.insert(entry.first);
    EXPECT_EQ(named, posted);
}

TEST(MessageIds, EachNamedTextTakesTheArgumentsItIsPostedWith) {
    const auto templates = catalogueTemplates();
    const auto signatures = postedSignatures();
    for (const auto& [name, id] : declaredNames()) {
        const auto text = templates.find(id);
        ASSERT_NE(text, templates.end()) << name << " (" << id << ") is not in the catalogue";
        const auto signature = signatures.find(id);
        ASSERT_NE(signature, signatures.end()) << name << " (" << id << ") has no argument list";
        const std::string kinds = placeholders(text->second);
        EXPECT_EQ(kinds.size(), signature->second.size()) << name << " (" << id << "): " << text->second;
        EXPECT_EQ(kinds, signature->second) << name << " (" << id << "): " << text->second;
    }
}
