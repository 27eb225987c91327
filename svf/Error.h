// SPDX-License-Identifier: MIT
/* Error: what the SVF reader and the scan composer throw for a file they
 * cannot play, a syntax error and a broken rule alike, so the front end
 * handles both the same way. what() reads "FILE:LINE:COLUMN: message". */
#ifndef TETHERHOST_SVF_ERROR_H
#define TETHERHOST_SVF_ERROR_H

#include <stdexcept>
#include <string>

namespace tetherhost::svf {

struct Error : std::runtime_error {
    Error(std::string file, long line, long column, std::string message);

    std::string file;
    long line;    // 1-based
    long column;  // 1-based, in bytes (a tab counts one)
    std::string message;
};

}  // namespace tetherhost::svf

#endif
