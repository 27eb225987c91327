/* ChainFile: reads the JSON file given with --chain, which replaces the
 * built-in cable: the JTAG devices and, optionally, the SSPI memory size,
 * the I2C device's bus address and size, and the pump buffer's capacity. */
#ifndef TETHERHOST_SERVER_CHAINFILE_H
#define TETHERHOST_SERVER_CHAINFILE_H

#include <string>

#include "server/Cable.h"

namespace tetherhost::sim {

/** The configuration described by the JSON text `text`; throws
 * std::runtime_error naming the first problem. */
CableConfig parseCableConfig(const std::string& text);
/** The same for the file at `path`. */
CableConfig loadCableConfig(const std::string& path);

}  // namespace tetherhost::sim

#endif
