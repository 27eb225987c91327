// SPDX-License-Identifier: MIT
/* Filling a message template: "$$s" takes the next argument as a text,
 * "$$d" the next argument as an int (written in decimal by itoa); every other
 * character, a "$" that starts neither placeholder included, is copied. */
#ifndef TETHERHOST_PLATFORM_MESSAGETEMPLATE_H
#define TETHERHOST_PLATFORM_MESSAGETEMPLATE_H

#include <cstdarg>
#include <cstdio>
#include <string>

class msgManager;

namespace tetherhost {

/** Appends the filled template to `line`, consuming arguments from `args`.
 * A null text argument is written as the empty text. */
void fillTemplate(const std::string& messageTemplate, va_list args, std::string& line);

/** Appends message `id`, filled from `args`, as one line to the log file:
 * the file is opened in append mode, written and closed again, and `logFile`
 * keeps the closed stream as the marker that logging is on. When the file
 * cannot be opened the line is skipped and `logFile` becomes null. */
void appendLogLine(msgManager& messages, FILE*& logFile, const std::string& logFileName, const std::string& id,
                   va_list args);

/* Where a message goes when debugging is on and a log file is set. */
enum class WhenBothOn {
    CatalogueAndLog,  // a Client's messages
    CatalogueOnly,    // a ClientUtils' messages
};

/** Posts message `id`: to the catalogue when `debugFlag` is exactly 1, and as
 * a log line when a log file is set, except that with both on a ClientUtils
 * message reaches the catalogue only. The catalogue reads its own copy of
 * `args`, so the log line still starts at the message's first argument. */
void postMessage(msgManager& messages, int debugFlag, FILE*& logFile, const std::string& logFileName,
                 const std::string& id, va_list args, WhenBothOn whenBothOn);

}  // namespace tetherhost

#endif
