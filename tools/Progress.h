// SPDX-License-Identifier: MIT
/* The progress bar that `tetherctl pump` and `svf` draw on standard error while a
 * file's data goes to the server: bytes done, rate and time left. It draws
 * only when the stream is a terminal, so logs and pipes stay clean. */
#ifndef TETHERCTL_PROGRESS_H
#define TETHERCTL_PROGRESS_H

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>

namespace tetherctl {

class ProgressBar {
public:
    /** Draws on `stream` only when `enabled` (the caller passes whether the
     * stream is a terminal). */
    ProgressBar(std::FILE* stream, std::uint64_t total, bool enabled);

    /** Redraws for `done` bytes, at most ten times a second; the first and the
     * last (done == total) call always draw. `detail` follows the bar. */
    void update(std::uint64_t done, const std::string& detail = {});
    /** Ends the bar's line, when anything was drawn. */
    void finish();

    /** One frame of the bar, as drawn after a carriage return. */
    static std::string render(std::uint64_t done, std::uint64_t total, double seconds);

private:
    std::FILE* stream;
    std::uint64_t total;
    bool enabled;
    bool drawn = false;
    std::chrono::steady_clock::time_point start;
    std::chrono::steady_clock::time_point lastDraw;
};

/** A byte count as people read it: 512 B, 4.0 KiB, 1.5 MiB. */
std::string humanBytes(double bytes);

}  // namespace tetherctl

#endif
