// SPDX-License-Identifier: MIT
/* The status codes of libtetherhost_client and the negative integer replies
 * of the tetherhost simulator, as tetherctl explains them: every failure
 * line and `tetherctl codes`, from the protocol's two tables. */
#ifndef TETHERCTL_STATUSCODES_H
#define TETHERCTL_STATUSCODES_H

#include <span>
#include <string>

#include "protocol/Status.h"

namespace tetherctl {

using StatusCode = tetherhost::protocol::Code;

/** Every code the library can report, in the order of the user guide. */
inline std::span<const StatusCode> statusCodes() { return tetherhost::protocol::statusCodes; }

/** The negative integer replies the simulator gives to a command it could
 * not carry out. */
inline std::span<const StatusCode> serverReplies() { return tetherhost::protocol::serverReplies; }

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
