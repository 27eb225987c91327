// SPDX-License-Identifier: MIT
/* Status: the numbers that report how an exchange went, in two tables that
 * must not be confused.
 *
 * - The library's status codes: what Send and the other calls return and
 *   record in the client's status (status::...). Negative codes are
 *   failures; 1001 is recorded for an instant before -1001 when a command
 *   frame could not be sent.
 * - The simulator's integer replies: the number the server answers a
 *   command with (reply::...). 0 is done; the negative ones say why a
 *   command was not carried out.
 *
 * The same number can mean different things in the two: -1 from a lock
 * command is the library's refusal, -1 as a reply is the server's "needs
 * both locks". Each table carries a name and a one-line meaning per code,
 * for tetherctl and for docs/status-codes.md, which a test keeps in step. */
#ifndef TETHERHOST_PROTOCOL_STATUS_H
#define TETHERHOST_PROTOCOL_STATUS_H

namespace tetherhost::protocol {

struct Code {
    int number;
    const char* name;
    const char* meaning;
};

namespace status {
inline constexpr int success = 0;
inline constexpr int withheld = 1;
inline constexpr int lockRefused = -1;
inline constexpr int commandFrameUnsent = 1001;
inline constexpr int sendFailed = -1001;
inline constexpr int receiveFailed = -1002;
inline constexpr int socketUnavailable = -1004;
inline constexpr int noDescriptor = -1005;
inline constexpr int farewellRefused = -1008;
inline constexpr int shutdownFailed = -1009;
inline constexpr int noLogFileName = -1016;
inline constexpr int noLogFileDetail = -1017;
inline constexpr int firstBlockMissing = -1020;
inline constexpr int laterBlockMissing = -1021;
inline constexpr int noScanData = -1022;
inline constexpr int noDestination = -1023;
}  // namespace status

/* Every code the library can report, in the order of the user guide. */
inline constexpr Code statusCodes[] = {
    {.number = status::success, .name = "success", .meaning = "success"},
    {.number = status::withheld,
     .name = "withheld",
     .meaning = "the command was withheld because the client does not hold both locks; the server was polled "
                "with 8888 instead"},
    {.number = status::lockRefused,
     .name = "lockRefused",
     .meaning = "the server refused the lock (or the log file could not be opened)"},
    {.number = status::commandFrameUnsent,
     .name = "commandFrameUnsent",
     .meaning = "the command frame could not be sent (recorded for an instant before -1001)"},
    {.number = status::sendFailed, .name = "sendFailed", .meaning = "could not send to the server"},
    {.number = status::receiveFailed,
     .name = "receiveFailed",
     .meaning = "no answer from the server, or its answer was not an acknowledgement"},
    {.number = status::socketUnavailable, .name = "socketUnavailable", .meaning = "could not create a socket"},
    {.number = status::noDescriptor,
     .name = "noDescriptor",
     .meaning = "the socket descriptor was -1 after connecting"},
    {.number = status::farewellRefused, .name = "farewellRefused", .meaning = "the server refused the disconnect"},
    {.number = status::shutdownFailed, .name = "shutdownFailed", .meaning = "could not shut the connection down"},
    {.number = status::noLogFileName, .name = "noLogFileName", .meaning = "no log file name"},
    {.number = status::noLogFileDetail, .name = "noLogFileDetail", .meaning = "the log file has no detail text"},
    {.number = status::firstBlockMissing,
     .name = "firstBlockMissing",
     .meaning = "the shift has no data: its first data block is missing"},
    {.number = status::laterBlockMissing,
     .name = "laterBlockMissing",
     .meaning = "a further data block announced by the shift is missing"},
    {.number = status::noScanData, .name = "noScanData", .meaning = "no scan return data to collect"},
    {.number = status::noDestination, .name = "noDestination", .meaning = "no destination for the scan return data"},
};

namespace reply {
inline constexpr int done = 0;
inline constexpr int locksNotHeld = -1;
inline constexpr int outOfRange = -2;
inline constexpr int noAcknowledge = -3;
inline constexpr int bufferFull = -4;
inline constexpr int tooLong = -5;
inline constexpr int busy = -6;
inline constexpr int chainOwned = -7;
}  // namespace reply

/* The negative integer replies the simulator gives to a command it could
 * not carry out. */
inline constexpr Code serverReplies[] = {
    {.number = reply::locksNotHeld,
     .name = "locksNotHeld",
     .meaning = "the command needs both locks, and this connection does not hold them; or the reply was not "
                "an integer in range: the library reads 9223372036854775807 and every larger number as -1"},
    {.number = reply::outOfRange,
     .name = "outOfRange",
     .meaning = "an address, length or mode that the target does not have"},
    {.number = reply::noAcknowledge, .name = "noAcknowledge", .meaning = "no I2C device answers that bus address"},
    {.number = reply::bufferFull, .name = "bufferFull", .meaning = "the pump buffer cannot take the block"},
    {.number = reply::tooLong, .name = "tooLong", .meaning = "the scan is longer than the simulator handles"},
    {.number = reply::busy,
     .name = "busy",
     .meaning = "the simulator's transfer memory is in use by other clients; try again"},
    {.number = reply::chainOwned,
     .name = "chainOwned",
     .meaning = "a remote_bitbang connection owns the JTAG chain: nothing was clocked; try again once it has "
                "closed"},
};

}  // namespace tetherhost::protocol

#endif
