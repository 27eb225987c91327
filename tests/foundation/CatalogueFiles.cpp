// SPDX-License-Identifier: MIT
/* Readers of the catalogue source and the posted-signature list. */
#include "CatalogueFiles.h"

#include <fstream>
#include <regex>

namespace tetherhost::test {

std::map<int, std::string> catalogueTemplates() {
    std::map<int, std::string> templates;
    std::ifstream in(TETHERHOST_MSG_SOURCE);
    const std::regex messageLine("^([0-9]+) (.*)$");
    for (std::string line; std::getline(in, line);) {
        std::smatch match;
        if (std::regex_match(line, match, messageLine)) templates[std::stoi(match[1])] = match[2];
    }
    return templates;
}

std::map<int, std::string> postedSignatures() {
    std::map<int, std::string> signatures;
    std::ifstream in(TETHERHOST_SIGNATURES);
    for (std::string line; std::getline(in, line);) {
        if (line.empty() || line[0] == '#') continue;
        const auto blank = line.find(' ');
        const std::string signature = line.substr(blank + 1);
        signatures[std::stoi(line.substr(0, blank))] = signature == "-" ? "" : signature;
    }
    return signatures;
}

std::string placeholders(const std::string& text) {
    std::string kinds;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text.compare(i, 3, "$$s") == 0 || text.compare(i, 3, "$$d") == 0) {
            kinds.push_back(text[i + 2]);
            i += 2;
        }
    }
    return kinds;
}

}  // namespace tetherhost::test
