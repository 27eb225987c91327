// SPDX-License-Identifier: MIT
/* TransferMemory: the budget shared by all connections for the chunked data
 * they hold between its arrival and its use (a scan's TDI, expected TDO and
 * mask, a pump block). A transfer that does not fit is still taken off the
 * wire, in step, but not kept, and answered as busy. */
#ifndef TETHERHOST_SERVER_TRANSFERMEMORY_H
#define TETHERHOST_SERVER_TRANSFERMEMORY_H

#include <cstddef>

namespace tetherhost::sim {

class TransferMemory {
public:
    explicit TransferMemory(std::size_t capacity) : capacity(capacity) {}

    /** Bytes a connection holds; given back when it ends or is cleared. */
    class Hold {
    public:
        explicit Hold(TransferMemory& memory) : memory(memory) {}
        ~Hold() { clear(); }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

        /** Takes `bytes` more from the budget; false (nothing taken) when
         * they do not fit. */
        bool add(std::size_t bytes);
        void clear();

    private:
        TransferMemory& memory;
        std::size_t held = 0;
    };

    std::size_t inUse() const { return used; }

private:
    std::size_t capacity;
    std::size_t used = 0;
};

}  // namespace tetherhost::sim

#endif
