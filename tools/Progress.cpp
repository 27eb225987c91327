// SPDX-License-Identifier: MIT
/* Drawing the progress bar. */
#include "tools/Progress.h"

#include <cmath>

#include "support/ByteUnits.h"

namespace tetherctl {

namespace {

constexpr int barWidth = 30;
constexpr auto redrawInterval = std::chrono::milliseconds(100);

std::string clockText(double seconds) {
    const long whole = std::lround(seconds);
    char text[32];
    std::snprintf(text, sizeof text, "%ld:%02ld", whole / 60, whole % 60);
    return text;
}

}  // namespace

std::string humanBytes(double bytes) {
    static const char* const units[] = {"B", "KiB", "MiB", "GiB"};
    constexpr auto perKibibyte = static_cast<double>(tetherhost::units::kibi);
    int unit = 0;
    while (bytes >= perKibibyte && unit < 3) {
        bytes /= perKibibyte;
        ++unit;
    }
    char text[32];
    if (unit == 0)
        std::snprintf(text, sizeof text, "%.0f B", bytes);
    else
        std::snprintf(text, sizeof text, "%.1f %s", bytes, units[unit]);
    return text;
}

ProgressBar::ProgressBar(std::FILE* stream, std::uint64_t total, bool enabled)
    : stream(stream), total(total), enabled(enabled), start(std::chrono::steady_clock::now()), lastDraw(start) {}

std::string ProgressBar::render(std::uint64_t done, std::uint64_t total, double seconds) {
    const double fraction = total == 0 ? 1.0 : static_cast<double>(done) / static_cast<double>(total);
    const int filled = static_cast<int>(fraction * barWidth);
    std::string bar = "[" + std::string(static_cast<std::size_t>(filled), '#') +
                      std::string(static_cast<std::size_t>(barWidth - filled), '-') + "]";
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0.0;
    std::string left = "--:--";
    if (done >= total)
        left = "0:00";
    else if (rate > 0)
        left = clockText(static_cast<double>(total - done) / rate);
    char percent[8];
    std::snprintf(percent, sizeof percent, "%3d%%", static_cast<int>(fraction * 100));
    return bar + " " + percent + "  " + humanBytes(static_cast<double>(done)) + " / " +
           humanBytes(static_cast<double>(total)) + "  " + humanBytes(rate) + "/s  " + left + " left";
}

void ProgressBar::update(std::uint64_t done, const std::string& detail) {
    if (!enabled) return;
    const auto now = std::chrono::steady_clock::now();
    if (drawn && done < total && now - lastDraw < redrawInterval) return;
    lastDraw = now;
    drawn = true;
    const double seconds = std::chrono::duration<double>(now - start).count();
    // The trailing blanks wipe what a longer earlier frame left behind.
    const std::string frame = render(done, total, seconds) + (detail.empty() ? "" : "  " + detail);
    std::fprintf(stream, "\r%s   ", frame.c_str());
    std::fflush(stream);
}

void ProgressBar::finish() {
    if (!drawn) return;
    std::fputc('\n', stream);
    std::fflush(stream);
    drawn = false;
}

}  // namespace tetherctl
