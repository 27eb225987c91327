// SPDX-License-Identifier: MIT
/* ByteUnits: the binary multiples (Ki, Mi) in which memory limits, buffer
 * sizes and sizes shown to people are stated. Not the protocol's frame
 * size, which is a protocol/ constant of its own and only shares the value;
 * the wire-constant check knows this file as the one place that spells the
 * multiple out. */
#ifndef TETHERHOST_SUPPORT_BYTEUNITS_H
#define TETHERHOST_SUPPORT_BYTEUNITS_H

#include <cstdint>

namespace tetherhost::units {

inline constexpr std::uint64_t kibi = std::uint64_t{1} << 10;
inline constexpr std::uint64_t mebi = kibi * kibi;

}  // namespace tetherhost::units

#endif
