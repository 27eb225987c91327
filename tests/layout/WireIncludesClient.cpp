// SPDX-License-Identifier: MIT
/* Compiled as part of the wire layer, this file must not build: the wire
 * layer sees protocol/ and itself, never the client layer above it. */
#include "client/ClientSink.h"
