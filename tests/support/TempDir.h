// SPDX-License-Identifier: MIT
/* TempDir: a private temporary directory for one test, removed with its
 * contents when the test is done. */
#ifndef TETHERHOST_TESTS_TEMPDIR_H
#define TETHERHOST_TESTS_TEMPDIR_H

#include <string>

namespace tetherhost::test {

class TempDir {
public:
    /** A fresh directory under the system's temporary directory. */
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& path() const { return directory; }
    std::string file(const std::string& name) const { return directory + "/" + name; }

private:
    std::string directory;
};

}  // namespace tetherhost::test

#endif
