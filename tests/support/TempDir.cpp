// SPDX-License-Identifier: MIT
/* TempDir: mkdtemp on the way in, remove_all on the way out. */
#include "TempDir.h"

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <system_error>

namespace tetherhost::test {

TempDir::TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tetherhost-test-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("cannot make a temporary directory");
    directory = pattern;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

}  // namespace tetherhost::test
