// SPDX-License-Identifier: MIT
/* The words of tetherctl's command line, as the build reads them to write
 * the bash completion and the man page's subcommand sections: both then come
 * from the same CLI::App as --help and cannot disagree with it. */
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tetherctl {

/* One line for the program and one for each subcommand, in the order --help
 * shows them:
 *   tetherctl --help --version --name= ...
 *   tetherctl <subcommand> --help --read= --erase REGISTER={ir,dr} FILE= ...
 * An option that takes a value ends in "=", followed by its choices in
 * braces when it has a fixed set; a positional is named in capitals the same
 * way. Hidden options are left out. */
std::string completionWords(const CLI::App& app);

}  // namespace tetherctl
