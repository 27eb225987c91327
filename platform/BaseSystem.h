// SPDX-License-Identifier: MIT
/* BaseSystem: facts about the running program that the library needs. */
#ifndef TETHERHOST_PLATFORM_BASESYSTEM_H
#define TETHERHOST_PLATFORM_BASESYSTEM_H

#include <QDir>

class BaseSystem {
public:
    /** The directory of the running executable (from /proc/self/exe); the
     * current directory when that link cannot be read. */
    static QDir getBinaryPath();
};

#endif
