// SPDX-License-Identifier: MIT
/* Readers of the two files that describe the library's messages: the
 * catalogue source (one "id text" line per message) and the list of the
 * argument kinds each identifier is posted with
 * (tests/data/message_signatures.txt). */
#ifndef TETHERHOST_TESTS_FOUNDATION_CATALOGUEFILES_H
#define TETHERHOST_TESTS_FOUNDATION_CATALOGUEFILES_H

#include <map>
#include <string>

namespace tetherhost::test {

/** Identifier -> its text, from the catalogue source TETHERHOST_MSG_SOURCE. */
std::map<int, std::string> catalogueTemplates();

/** Identifier -> the kinds of the arguments it is posted with, "s" for a text
 * and "d" for a number, in order ("" for none), from TETHERHOST_SIGNATURES. */
std::map<int, std::string> postedSignatures();

/** The kinds of the placeholders of a template, in order: 's' for "$$s",
 * 'd' for "$$d". */
std::string placeholders(const std::string& text);

}  // namespace tetherhost::test

#endif
