// SPDX-License-Identifier: MIT
/* Error: the located message. */
#include "svf/Error.h"

#include <utility>

namespace tetherhost::svf {

Error::Error(std::string file, long line, long column, std::string message)
    : std::runtime_error(file + ":" + std::to_string(line) + ":" + std::to_string(column) + ": " + message),
      file(std::move(file)),
      line(line),
      column(column),
      message(std::move(message)) {}

}  // namespace tetherhost::svf
