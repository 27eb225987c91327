// SPDX-License-Identifier: MIT
/* ChainFile: reads the JSON file given with --chain, which replaces the
 * built-in cable: the JTAG devices (with the instructions and registers
 * that tools interrogate) and, optionally, the SSPI memory size, the I2C
 * device's bus address and size, and the pump buffer's capacity; and finds
 * the file a shipped chain's name stands for. */
#ifndef TETHERHOST_SERVER_CHAINFILE_H
#define TETHERHOST_SERVER_CHAINFILE_H

#include <string>
#include <vector>

#include "server/Cable.h"

namespace tetherhost::sim {

/** The configuration described by the JSON text `text`; throws
 * std::runtime_error naming the first problem. */
CableConfig parseCableConfig(const std::string& text);
/** The same for the file at `path`. */
CableConfig loadCableConfig(const std::string& path);

/** Where shipped chains are looked for, in order: share/tetherhost/chains of
 * the installation the running program belongs to, then the chains/ folder
 * of the source tree it was built from. */
std::vector<std::string> shippedChainFolders();
/** The file that `--chain argument` stands for. An argument with a '/' or
 * ending in ".json" is a path and is returned as it is; any other is the
 * name of a shipped chain, NAME.json in the first of `folders` that holds
 * one. Throws std::runtime_error when none does. */
std::string chainFilePath(const std::string& argument, const std::vector<std::string>& folders);

}  // namespace tetherhost::sim

#endif
