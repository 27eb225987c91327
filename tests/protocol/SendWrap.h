// SPDX-License-Identifier: MIT
/* The protocol tests link with -Wl,--wrap=send: every send of the library
 * (and of the test peer) goes through a wrapper that, for one watched
 * descriptor, counts the calls, records the flags and can cut the next send
 * short, the way the kernel may transfer only part of a frame. */
#ifndef TETHERHOST_TESTS_SENDWRAP_H
#define TETHERHOST_TESTS_SENDWRAP_H

namespace tetherhost::test::sendwrap {

/** Watches `descriptor` (and forgets what was recorded before); -1 watches nothing. */
void watch(int descriptor);
/** Calls of send on the watched descriptor. */
int calls();
/** The flags of the last send on the watched descriptor. */
int lastFlags();
/** The next send on the watched descriptor transfers at most `bytes` bytes. */
void limitNext(long bytes);

}  // namespace tetherhost::test::sendwrap

#endif
