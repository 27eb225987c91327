/* The tables of status codes and server replies with their meanings. */
#include "StatusCodes.h"

namespace tetherctl {

namespace {

const char* lookUp(const std::vector<StatusCode>& table, int code) {
    for (const StatusCode& entry : table)
        if (entry.code == code) return entry.meaning;
    return nullptr;
}

}  // namespace

const std::vector<StatusCode>& statusCodes() {
    static const std::vector<StatusCode> table = {
        {0, "success"},
        {1, "the command was withheld because the client does not hold both locks; the server was polled with 8888 instead"},
        {-1, "the server refused the lock (or the log file could not be opened)"},
        {1001, "the command frame could not be sent (recorded for an instant before -1001)"},
        {-1001, "could not send to the server"},
        {-1002, "no answer from the server, or its answer was not an acknowledgement"},
        {-1004, "could not create a socket"},
        {-1005, "the socket descriptor was -1 after connecting"},
        {-1008, "the server refused the disconnect"},
        {-1009, "could not shut the connection down"},
        {-1016, "no log file name"},
        {-1017, "the log file has no detail text"},
        {-1020, "the shift has no data: its first data block is missing"},
        {-1021, "a further data block announced by the shift is missing"},
        {-1022, "no scan return data to collect"},
        {-1023, "no destination for the scan return data"},
    };
    return table;
}

const std::vector<StatusCode>& serverReplies() {
    static const std::vector<StatusCode> table = {
        {-1, "the command needs both locks, and this connection does not hold them; or the reply was not an "
             "integer in range: the library reads 9223372036854775807 and every larger number as -1"},
        {-2, "an address, length or mode that the target does not have"},
        {-3, "no I2C device answers that bus address"},
        {-4, "the pump buffer cannot take the block"},
        {-5, "the scan is longer than the simulator handles"},
        {-6, "the simulator's transfer memory is in use by other clients; try again"},
    };
    return table;
}

std::string describeStatus(int code) {
    const char* meaning = lookUp(statusCodes(), code);
    return meaning ? meaning : "a status code unknown to this version of tetherctl";
}

std::string describeServerReply(int code) {
    const char* meaning = lookUp(serverReplies(), code);
    return meaning ? meaning : "a reply unknown to this version of tetherctl";
}

std::string statusLine(int code) { return std::to_string(code) + ": " + describeStatus(code); }

std::string serverReplyLine(int code) { return std::to_string(code) + ": " + describeServerReply(code); }

std::string lockAnswerLine(int code) {
    // The library receives two characters of a lock answer: 0 gives -1, 1
    // grants the lock, and any other number is handed back as it reads.
    const char* const twoCharacters = "the library reads only the first two characters of a lock answer";
    if (code == -1)
        return "-1: the server refused the lock (it answered 0), or its answer began with -1 (" +
               std::string(twoCharacters) + ")";
    return std::to_string(code) + ": the server answered neither 1 (granted) nor 0 (refused); " + twoCharacters;
}

}  // namespace tetherctl
