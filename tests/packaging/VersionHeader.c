// SPDX-License-Identifier: MIT
/* tetherhost/version.h read by a C compiler and by a C++11 one: its numbers
 * are the project's (EXPECTED_* come from CMake's project version) and
 * TETHERHOST_VERSION_AT_LEAST orders versions. Compiled only: any #error
 * below fails the test. */
#include <tetherhost/version.h>

#if TETHERHOST_VERSION_MAJOR != EXPECTED_MAJOR || TETHERHOST_VERSION_MINOR != EXPECTED_MINOR || \
    TETHERHOST_VERSION_PATCH != EXPECTED_PATCH
#error "version.h's numbers are not the project's version"
#endif
#if !TETHERHOST_VERSION_AT_LEAST(EXPECTED_MAJOR, EXPECTED_MINOR, EXPECTED_PATCH)
#error "a version is not at least itself"
#endif
#if TETHERHOST_VERSION_AT_LEAST(EXPECTED_MAJOR, EXPECTED_MINOR, EXPECTED_PATCH + 1) || \
    TETHERHOST_VERSION_AT_LEAST(EXPECTED_MAJOR, EXPECTED_MINOR + 1, 0) ||              \
    TETHERHOST_VERSION_AT_LEAST(EXPECTED_MAJOR + 1, 0, 0)
#error "a later version compares as reached"
#endif
#if !TETHERHOST_VERSION_AT_LEAST(0, 99, 99)
#error "an earlier version compares as not reached"
#endif

/* The string's own value is checked where it is printed (the consumer). */
typedef char
    versionStringHasTheProjectVersionLength[sizeof(TETHERHOST_VERSION_STRING) == sizeof(EXPECTED_STRING) ? 1 : -1];
