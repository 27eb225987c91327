// SPDX-License-Identifier: MIT
/* Lists tetherctl's subcommands, options and positionals from the CLI::App
 * itself (see CompletionWords.h). */
#include "tools/CompletionWords.h"

#include <vector>

namespace tetherctl {

namespace {

/* "=" for an option or positional that takes a value, and "={a,b}" when a
 * member check fixes its choices (CLI11 appends them to the type name). */
std::string valueWords(const CLI::Option& option) {
    if (option.get_expected_max() == 0) return "";
    const std::string type = option.get_type_name();
    const std::size_t open = type.find(":{");
    if (open == std::string::npos || type.back() != '}') return "=";
    return "=" + type.substr(open + 1);
}

std::string levelWords(const CLI::App& level) {
    std::string line;
    std::vector<const CLI::Option*> positionals;
    for (const CLI::Option* option : level.get_options()) {
        if (option->get_group().empty()) continue;
        if (!option->nonpositional()) {
            positionals.push_back(option);
            continue;
        }
        for (const std::string& name : option->get_snames()) line += " -" + name + valueWords(*option);
        for (const std::string& name : option->get_lnames()) line += " --" + name + valueWords(*option);
    }
    for (const CLI::Option* positional : positionals)
        line += " " + positional->get_name(true) + valueWords(*positional);
    return line;
}

}  // namespace

std::string completionWords(const CLI::App& app) {
    std::string text = "tetherctl" + levelWords(app) + "\n";
    for (const CLI::App* subcommand : app.get_subcommands([](const CLI::App*) { return true; }))
        text += "tetherctl " + subcommand->get_name() + levelWords(*subcommand) + "\n";
    return text;
}

}  // namespace tetherctl
