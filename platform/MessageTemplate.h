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
void appendLogLine(msgManager& messages, FILE*& logFile, const std::string& logFileName,
                   const std::string& id, va_list args);

}  // namespace tetherhost

#endif
