// SPDX-License-Identifier: MIT
/* BaseSystem: the running executable's directory, read from /proc/self/exe. */
#include "platform/BaseSystem.h"

#include <QFileInfo>

QDir BaseSystem::getBinaryPath() {
    const QFileInfo executable(QStringLiteral("/proc/self/exe"));
    const QString target = executable.symLinkTarget();
    if (target.isEmpty()) return QDir::current();
    return QFileInfo(target).absoluteDir();
}
