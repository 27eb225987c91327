// SPDX-License-Identifier: MIT
/* Output: what a tetherctl command prints on standard output. In text mode
 * lines go out as the command produces them; with --json the command fills
 * one JSON object instead, printed once when the command ends (also when it
 * fails, with an "error" member). */
#ifndef TETHERCTL_OUTPUT_H
#define TETHERCTL_OUTPUT_H

#include <string>

#include "tools/Json.h"

namespace tetherctl {

class Output {
public:
    explicit Output(bool json) : json(json) {}

    bool isJson() const { return json; }
    /** A line of the text output; nothing in JSON mode. */
    void line(const std::string& text) const;
    /** The JSON object; filled in both modes, printed only in JSON mode. */
    Json& data() { return document; }
    /** Prints the JSON object in JSON mode. */
    void finish() const;

private:
    bool json;
    Json document;
};

}  // namespace tetherctl

#endif
