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
    {status::success, "success", "success"},
    {status::withheld, "withheld",
     "the command was withheld because the client does not hold both locks; the server was polled with 8888 "
     "instead"},
    {status::lockRefused, "lockRefused", "the server refused the lock (or the log file could not be opened)"},
    {status::commandFrameUnsent, "commandFrameUnsent",
     "the command frame could not be sent (recorded for an instant before -1001)"},
    {status::sendFailed, "sendFailed", "could not send to the server"},
    {status::receiveFailed, "receiveFailed",
     "no answer from the server, or its answer was not an acknowledgement"},
    {status::socketUnavailable, "socketUnavailable", "could not create a socket"},
    {status::noDescriptor, "noDescriptor", "the socket descriptor was -1 after connecting"},
    {status::farewellRefused, "farewellRefused", "the server refused the disconnect"},
    {status::shutdownFailed, "shutdownFailed", "could not shut the connection down"},
    {status::noLogFileName, "noLogFileName", "no log file name"},
    {status::noLogFileDetail, "noLogFileDetail", "the log file has no detail text"},
    {status::firstBlockMissing, "firstBlockMissing", "the shift has no data: its first data block is missing"},
    {status::laterBlockMissing, "laterBlockMissing", "a further data block announced by the shift is missing"},
    {status::noScanData, "noScanData", "no scan return data to collect"},
    {status::noDestination, "noDestination", "no destination for the scan return data"},
};

namespace reply {
inline constexpr int done = 0;
inline constexpr int locksNotHeld = -1;
inline constexpr int outOfRange = -2;
inline constexpr int noAcknowledge = -3;
inline constexpr int bufferFull = -4;
inline constexpr int tooLong = -5;
inline constexpr int busy = -6;
}  // namespace reply

/* The negative integer replies the simulator gives to a command it could
 * not carry out. */
inline constexpr Code serverReplies[] = {
    {reply::locksNotHeld, "locksNotHeld",
     "the command needs both locks, and this connection does not hold them; or the reply was not an integer in "
     "range: the library reads 9223372036854775807 and every larger number as -1"},
    {reply::outOfRange, "outOfRange", "an address, length or mode that the target does not have"},
    {reply::noAcknowledge, "noAcknowledge", "no I2C device answers that bus address"},
    {reply::bufferFull, "bufferFull", "the pump buffer cannot take the block"},
    {reply::tooLong, "tooLong", "the scan is longer than the simulator handles"},
    {reply::busy, "busy", "the simulator's transfer memory is in use by other clients; try again"},
};

}  // namespace tetherhost::protocol

#endif
