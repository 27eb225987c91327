// SPDX-License-Identifier: MIT
/* The process-wide message catalogue behind every msgManager handle. */
#include "platform/msgManager.h"

#include <nl_types.h>

#include <cstddef>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <new>

#include "platform/MessageTemplate.h"

namespace {

struct BuiltinMessage {
    int number;
    const char* text;
};

constexpr BuiltinMessage builtinMessages[] = {
#include "BuiltinMessages.inc"
};

const char* builtinText(int number) {
    for (const BuiltinMessage& message : builtinMessages)
        if (message.number == number) return message.text;
    return "";
}

/* The texts live in set 1 of the catalogue, numbered by identifier. */
constexpr int messageSet = 1;

struct Catalogue {
    std::once_flag opened;
    bool available = false;  // catopen found a catalogue file
    nl_catd handle{};
    std::string module;
};

Catalogue& catalogue() {
    static Catalogue instance;
    return instance;
}

std::atomic<unsigned long> finishedLogs{0};

/* Handles have no state, so all of them share this one slot (see the header). */
alignas(std::max_align_t) unsigned char handleSlot[sizeof(msgManager)];

}  // namespace

void* msgManager::operator new(unsigned long) { return handleSlot; }

void msgManager::operator delete(void*) {}

msgManager::msgManager(const char* module) {
    Catalogue& shared = catalogue();
    std::call_once(shared.opened, [&shared, module] {
        shared.module = module;
        shared.handle = catopen(module, NL_CAT_LOCALE);
        shared.available = shared.handle !=
                           reinterpret_cast<nl_catd>(-1);  // NOLINT(performance-no-int-to-ptr): catopen's failure value
    });
}

int msgManager::queryMsgString(const char* id, std::string& text) {
    const int number = static_cast<int>(std::strtol(id, nullptr, 10));
    const char* builtin = builtinText(number);
    const Catalogue& shared = catalogue();
    text = shared.available ? catgets(shared.handle, messageSet, number, builtin) : builtin;
    return 0;
}

int msgManager::postMsgVaList(const char* id, va_list args, std::vector<std::string>&, unsigned int) {
    std::string messageTemplate;
    std::string line;
    queryMsgString(id, messageTemplate);
    va_list own;
    va_copy(own, args);
    tetherhost::fillTemplate(messageTemplate, own, line);
    va_end(own);
    std::fprintf(stderr, "%s %s: %s\n", catalogue().module.c_str(), id, line.c_str());
    return 0;
}

int msgManager::finishMsgLogFile(unsigned int) {
    finishedLogs.fetch_add(1, std::memory_order_relaxed);
    std::fflush(stderr);
    return 0;
}

unsigned long msgManager::finishedLogCount() { return finishedLogs.load(std::memory_order_relaxed); }
