// SPDX-License-Identifier: MIT
/* `tetherctl pump FILE`: the file's data go to the cable's pump buffer in
 * pieces of command 42, with a progress bar on a terminal and, on request,
 * each piece read back and compared with what was sent. Ctrl-C stops the
 * run between two pieces (StopSignals). */
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>

#include "Client.h"
#include "tools/Commands.h"
#include "tools/Failure.h"
#include "tools/Progress.h"
#include "tools/StopSignals.h"

namespace tetherctl {

namespace {

/* Pump modes of the simulator's buffer. */
constexpr int appendMode = 0;
constexpr int replaceMode = 2;

constexpr int maxPiece = static_cast<int>(tetherhost::units::mebi);

std::size_t firstDifference(const Bytes& sent, const Bytes& back) {
    std::size_t i = 0;
    while (i < sent.size() && i < back.size() && sent[i] == back[i]) ++i;
    return i;
}

}  // namespace

void runPump(const CommonOptions& common, const PumpOptions& options, Output& out) {
    const int limit = options.verify ? maxVerifiedPiece : maxPiece;
    if (options.pieceBytes < 1 || options.pieceBytes > limit)
        throw UsageError("pump: --piece takes 1 to " + std::to_string(limit) + " bytes" +
                         (options.verify ? " with --verify" : ""));
    std::ifstream file(options.file, std::ios::binary | std::ios::ate);
    if (!file) throw UsageError("pump: cannot read " + options.file);
    const auto total = static_cast<std::uint64_t>(file.tellg());
    file.seekg(0);

    catchStopSignals();
    ServerSession session(common);
    session.begin();
    Client& client = session.client();
    ProgressBar bar(stderr, total, isatty(STDERR_FILENO) == 1);
    const auto start = std::chrono::steady_clock::now();

    Json& data = out.data();
    data["command"] = "pump";
    data["file"] = options.file;
    data["size"] = total;
    std::uint64_t done = 0;
    int pieces = 0;
    int held = 0;
    Bytes piece(static_cast<std::size_t>(options.pieceBytes));
    bar.update(0);
    while (done < total && !stopRequested) {
        const auto length = static_cast<std::size_t>(std::min<std::uint64_t>(piece.size(), total - done));
        piece.resize(length);
        if (!file.read(reinterpret_cast<char*>(piece.data()), static_cast<std::streamsize>(length)))
            throw UsageError("pump: cannot read " + options.file);
        // Unless asked to append, the first piece replaces what the buffer
        // held, so the buffer ends holding exactly the file.
        const int mode = pieces == 0 && !options.append ? replaceMode : appendMode;
        held = client.Send(command::pumpData, static_cast<const unsigned char*>(piece.data()),
                           static_cast<int>(length * 8), mode, options.verify ? 1 : 0);
        session.check(held, "pumping bytes " + std::to_string(done) + " to " + std::to_string(done + length - 1) +
                                " (command 42)");
        if (options.verify) {
            const Bytes back = collectReturnedData(client, length);
            if (back != piece) {
                bar.finish();
                data["verified"] = false;
                throw Mismatch("pump: the data read back differ from the data sent, first at byte " +
                               std::to_string(done + firstDifference(piece, back)));
            }
        }
        done += length;
        ++pieces;
        bar.update(done);
    }
    bar.finish();
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    data["bytes"] = done;
    data["pieces"] = pieces;
    data["held"] = held;
    data["seconds"] = seconds;
    data["verified"] = options.verify ? Json(true) : Json();
    if (stopRequested) {
        session.end();
        data["interrupted"] = true;
        throw Interrupted("pump: interrupted after " + std::to_string(done) + " of " + std::to_string(total) +
                          " bytes; the locks were released");
    }
    session.end();
    data["interrupted"] = false;
    out.line("pumped " + std::to_string(done) + " bytes from " + options.file + " in " + std::to_string(pieces) +
             " piece" + (pieces == 1 ? "" : "s") + " (" +
             humanBytes(seconds > 0 ? static_cast<double>(done) / seconds : 0.0) + "/s); the pump buffer holds " +
             std::to_string(held) + " bytes");
    if (options.verify) out.line("read back and compared: identical");
}

}  // namespace tetherctl
