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
        {-1, "the command needs both locks, and this connection does not hold them"},
        {-2, "an address, length or mode that the target does not have"},
        {-3, "no I2C device answers that bus address"},
        {-4, "the pump buffer cannot take the block"},
        {-5, "the scan is longer than the simulator handles"},
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

}  // namespace tetherctl
