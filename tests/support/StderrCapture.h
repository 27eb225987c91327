// SPDX-License-Identifier: MIT
/* Captures what the process writes to standard error (file descriptor 2)
 * while an object of this class lives: the catalogue service posts there. */
#ifndef TETHERHOST_TESTS_STDERRCAPTURE_H
#define TETHERHOST_TESTS_STDERRCAPTURE_H

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

class StderrCapture {
public:
    StderrCapture() {
        std::fflush(stderr);
        char pattern[] = "/tmp/tetherhost-stderr-XXXXXX";
        const int fd = mkstemp(pattern);
        path = pattern;
        saved = dup(2);
        dup2(fd, 2);
        close(fd);
    }
    ~StderrCapture() {
        restore();
        std::remove(path.c_str());
    }
    /** Restores standard error and returns everything written meanwhile. */
    std::string text() {
        restore();
        std::ifstream in(path);
        std::stringstream all;
        all << in.rdbuf();
        return all.str();
    }

private:
    void restore() {
        if (saved < 0) return;
        std::fflush(stderr);
        dup2(saved, 2);
        close(saved);
        saved = -1;
    }
    std::string path;
    int saved = -1;
};

#endif
