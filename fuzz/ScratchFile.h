// SPDX-License-Identifier: MIT
/* A scratch file of this process's own in /tmp: its path names the target
 * and the process, and the file is removed when the process ends. */
#ifndef TETHERHOST_FUZZ_SCRATCHFILE_H
#define TETHERHOST_FUZZ_SCRATCHFILE_H

#include <unistd.h>

#include <cstdio>
#include <string>

namespace tetherhost::fuzz {

class ScratchFile {
public:
    explicit ScratchFile(const std::string& name)
        : path("/tmp/tetherhost-fuzz-" + name + "-" + std::to_string(getpid())) {}
    ~ScratchFile() { std::remove(path.c_str()); }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string path;
};

}  // namespace tetherhost::fuzz

#endif
