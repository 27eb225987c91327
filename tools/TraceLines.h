// SPDX-License-Identifier: MIT
/* TraceLines: a simulator trace (tetherhost --trace FILE) read back into the
 * lines tetherctl decode prints, one connection after another. The trace
 * names every frame already; it gives data blocks by their length only and
 * texts C-escaped, cut after 64 characters. */
#ifndef TETHERCTL_TRACELINES_H
#define TETHERCTL_TRACELINES_H

#include <istream>
#include <string>
#include <vector>

#include "protocol/DecodedConversation.h"

namespace tetherctl {

struct DecodedConnection {
    std::string name;    // the recording's "conn", or the trace's "c<number>"
    std::string client;  // the name the client introduced itself with; "" if it did not
    std::vector<tetherhost::protocol::DecodedLine> lines;
};

/** The connections of a trace, in the order of their first line; throws
 * std::runtime_error "origin:line: what" at a line that is not a trace
 * line. */
std::vector<DecodedConnection> readTrace(std::istream& in, const std::string& origin);

}  // namespace tetherctl

#endif
