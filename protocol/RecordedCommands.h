// SPDX-License-Identifier: MIT
/* RecordedCommands: what each byte a client sent on a recorded connection
 * was, read from those bytes alone the way the simulator receives them:
 * the introduction, then command after command, each command frame (the
 * NUL-terminated number that starts it) followed by its arguments in the
 * shape protocol/Commands.h gives them (a sub-command and its arguments for
 * command 44, blocks and chunks for the transfers). Between the arguments
 * of one command and the frame of the next the client sends only "+"
 * tokens (reply, lock and go requests), which belong to the command before
 * them. The simulator's replay names with it the command a divergence
 * falls in; tetherctl decode names every item of a recording with it. */
#ifndef TETHERHOST_PROTOCOL_RECORDEDCOMMANDS_H
#define TETHERHOST_PROTOCOL_RECORDEDCOMMANDS_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace tetherhost::protocol {

/** One item of the client's bytes: a token, a block, a chunk. */
struct ClientItem {
    enum class Role {
        Introduction,  // the client's name
        CommandFrame,  // the number that starts a command
        Argument,      // a sub-command, an argument, a block, a chunk
        Request,       // a "+" between commands: a reply or go request
        LockRequest,   // the "+" that asks for the lock of command 4 or 33
        Unexplained,   // bytes the protocol does not account for
    };
    std::size_t begin = 0;  // offset in the connection's client bytes
    std::size_t length = 0;
    Role role = Role::Unexplained;
    int command = 0;  // the command it belongs to, when hasCommand
    bool hasCommand = false;
    int sub = 0;  // command 44's sub-command, when hasSub
    bool hasSub = false;
    std::string item;  // its name, as the trace names items: "name", "command", "bits", "tdi", ...
    bool raw = false;  // data bytes or a fixed frame, not a token

    /** The command as the trace's command field shows it: "44/12", "38",
     * "-" before the first. */
    std::string label() const;
    /** In words, for a report: "command 44 (JTAG interface), sub-command
     * 12 (JTAG shift), bits". */
    std::string describe() const;
};

class RecordedCommands {
public:
    /** Reads `clientBytes`, every byte one connection's client sent. */
    explicit RecordedCommands(std::string_view clientBytes);

    /** The items, in order, covering every byte. */
    const std::vector<ClientItem>& items() const { return all; }
    /** The item that holds byte `offset`; past the end, an Unexplained item
     * there. */
    ClientItem at(std::size_t offset) const;
    /** The client's name (its introduction without the NUL). */
    const std::string& clientName() const { return name; }

private:
    std::vector<ClientItem> all;
    std::string name;
    std::size_t total = 0;
};

}  // namespace tetherhost::protocol

#endif
