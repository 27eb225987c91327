// SPDX-License-Identifier: MIT
/* Symbol visibility for the exported interface of libtetherhost_client.
 * The library is built with hidden visibility by default; only what is
 * marked TETHERHOST_API is part of the dynamic symbol table. */
#ifndef TETHERHOST_EXPORT_H
#define TETHERHOST_EXPORT_H

#if defined(__GNUC__) || defined(__clang__)
#define TETHERHOST_API __attribute__((visibility("default")))
#else
#define TETHERHOST_API
#endif

#endif
