/* The status codes of libtetherhost_client as tetherctl names them, and the
 * negative integer replies of the tetherhost simulator: one short meaning
 * per code, used for every failure line and for `tetherctl codes`. */
#ifndef TETHERCTL_STATUSCODES_H
#define TETHERCTL_STATUSCODES_H

#include <string>
#include <vector>

namespace tetherctl {

struct StatusCode {
    int code;
    const char* meaning;
};

/** Every code the library can report, in the order of the user guide. */
const std::vector<StatusCode>& statusCodes();

/** The negative integer replies the simulator gives to a command it could
 * not carry out. */
const std::vector<StatusCode>& serverReplies();

/** The meaning of library status `code`. */
std::string describeStatus(int code);
/** The meaning of the server's integer reply `code`. */
std::string describeServerReply(int code);

/** "CODE: MEANING", the form of every failure line. */
std::string statusLine(int code);
std::string serverReplyLine(int code);
/** "CODE: MEANING" for the result of command 4 or 33 when the lock was not
 * granted. */
std::string lockAnswerLine(int code);

}  // namespace tetherctl

#endif
