// SPDX-License-Identifier: MIT
/* Helpers of the SVF tests: a text read to its statements, scans or error. */
#ifndef TETHERHOST_TESTS_SVF_SVFTESTING_H
#define TETHERHOST_TESTS_SVF_SVFTESTING_H

#include <sstream>
#include <string>
#include <vector>

#include "svf/Error.h"
#include "svf/Reader.h"
#include "svf/ScanComposer.h"

namespace tetherhost::svf::testing {

inline const std::string fileName = "t.svf";

inline std::vector<Statement> readAll(const std::string& text) {
    std::istringstream in(text);
    Reader reader(in, fileName);
    std::vector<Statement> statements;
    while (std::optional<Statement> statement = reader.next()) statements.push_back(std::move(*statement));
    return statements;
}

/** The only statement of `text`. */
inline Statement readOne(const std::string& text) {
    std::vector<Statement> statements = readAll(text);
    if (statements.size() != 1) throw std::logic_error(std::to_string(statements.size()) + " statements in " + text);
    return statements.front();
}

/** The scans the SIR and SDR statements of `text` make. */
inline std::vector<Scan> composeAll(const std::string& text) {
    ScanComposer composer;
    std::vector<Scan> scans;
    for (const Statement& statement : readAll(text)) {
        if (std::optional<Scan> scan = composer.take(statement, fileName)) scans.push_back(std::move(*scan));
    }
    return scans;
}

/** what() of the Error that reading and composing `text` throws, or "no error". */
inline std::string errorOf(const std::string& text) {
    try {
        composeAll(text);
    } catch (const Error& error) {
        return error.what();
    }
    return "no error";
}

}  // namespace tetherhost::svf::testing

#endif
