// SPDX-License-Identifier: MIT
/* Commands: the command vocabulary of the tetherhost protocol: which command
 * numbers exist, which are lock-guarded, how each one's arguments travel, and
 * the argument patterns of the 144 JTAG-interface sub-commands, with names
 * for the numbers that the library, the simulator and tetherctl use by
 * number. Written once and shared by all of them (and printed into the
 * Wireshark dissector's vocabulary by wireshark/Vocabulary.cpp), so no two
 * can drift apart. */
#ifndef TETHERHOST_PROTOCOL_COMMANDS_H
#define TETHERHOST_PROTOCOL_COMMANDS_H

#include <array>
#include <cstddef>

namespace tetherhost::protocol {

/* Command numbers named where code uses them. The interface itself gives
 * commands no names; these say what the simulator makes of them. */
namespace command {
inline constexpr int statusReport = 1;
inline constexpr int openSession = 4;
inline constexpr int genericShift = 19;
inline constexpr int commandLock = 33;
inline constexpr int releaseCommandLock = 34;
inline constexpr int releaseSessionLock = 35;
inline constexpr int sharedApps = 41;
inline constexpr int pumpData = 42;
inline constexpr int sharedAppList = 43;
inline constexpr int jtagInterface = 44;
inline constexpr int i2cWrite = 46;
inline constexpr int i2cReadThenWrite = 47;
inline constexpr int i2cWriteReadBack = 48;
inline constexpr int sspiWrite = 50;
inline constexpr int sspiReadThenWrite = 51;
inline constexpr int sspiWriteReadBack = 52;
inline constexpr int lockPoll = 8888;  // sent in place of a lock-guarded command while a lock is missing
inline constexpr int farewell = 9999;
}  // namespace command

/* Command 4 always sends this many option frames after its texts. */
inline constexpr int sessionOptionCount = 10;

/* JTAG-interface sub-commands (of command 44) named where code uses them.
 * Those after the JTAG shift are the simulator's control of the TAP for SVF
 * players and debuggers, each chosen from the sub-command numbers whose
 * argument pattern fits it: one integer for a state, a frequency or TRST;
 * five for RUNTEST, whose count and time may exceed 32 bits (each split
 * into high and low halves). */
namespace sub {
inline constexpr int resetTaps = 3;
inline constexpr int toRunTestIdle = 4;
inline constexpr int describeChain = 7;
inline constexpr int tapState = 8;
inline constexpr int clockReport = 9;  // no arguments; text "tck_hz=..;cycles=..;virtual_ns=..;trst=..;"
inline constexpr int jtagShift = 12;
inline constexpr int irEndState = 17;       // state: where instruction scans end (sticky)
inline constexpr int drEndState = 18;       // state: where data scans end (sticky)
inline constexpr int moveToState = 19;      // stable state, by the shortest TMS path
inline constexpr int stepToState = 20;      // the next state of an explicit path
inline constexpr int trst = 21;             // 1: TRST asserted, 0: released
inline constexpr int tckFrequency = 22;     // Hz
inline constexpr int deviceRegisters = 23;  // device index; text: its instruction and registers
inline constexpr int runTest = 89;          // count high, count low, ns high, ns low, clock (0: TCK, 1: SCK)
}  // namespace sub

/* The numbers named above, each with a name for code and display filters
 * and a few words for people: tetherctl decode and the Wireshark dissector
 * (whose vocabulary is generated from these tables) show them. */
struct NamedNumber {
    int number;
    const char* name;
    const char* description;
};

inline constexpr NamedNumber commandNames[] = {
    {.number = command::statusReport, .name = "statusReport", .description = "status report"},
    {.number = command::openSession, .name = "openSession", .description = "open session"},
    {.number = command::genericShift, .name = "genericShift", .description = "generic shift"},
    {.number = command::commandLock, .name = "commandLock", .description = "command lock"},
    {.number = command::releaseCommandLock, .name = "releaseCommandLock", .description = "release command lock"},
    {.number = command::releaseSessionLock, .name = "releaseSessionLock", .description = "release session lock"},
    {.number = command::sharedApps, .name = "sharedApps", .description = "shared apps"},
    {.number = command::pumpData, .name = "pumpData", .description = "pump data"},
    {.number = command::sharedAppList, .name = "sharedAppList", .description = "shared app list"},
    {.number = command::jtagInterface, .name = "jtagInterface", .description = "JTAG interface"},
    {.number = command::i2cWrite, .name = "i2cWrite", .description = "I2C write"},
    {.number = command::i2cReadThenWrite, .name = "i2cReadThenWrite", .description = "I2C read, then write"},
    {.number = command::i2cWriteReadBack, .name = "i2cWriteReadBack", .description = "I2C write and read"},
    {.number = command::sspiWrite, .name = "sspiWrite", .description = "SSPI write"},
    {.number = command::sspiReadThenWrite, .name = "sspiReadThenWrite", .description = "SSPI read, then write"},
    {.number = command::sspiWriteReadBack, .name = "sspiWriteReadBack", .description = "SSPI write and read"},
    {.number = command::lockPoll, .name = "poll", .description = "the library's poll while it lacks a lock"},
    {.number = command::farewell, .name = "farewell", .description = "farewell"},
};

inline constexpr NamedNumber subCommandNames[] = {
    {.number = sub::resetTaps, .name = "resetTaps", .description = "TAP reset"},
    {.number = sub::toRunTestIdle, .name = "toRunTestIdle", .description = "to Run-Test/Idle"},
    {.number = sub::describeChain, .name = "describeChain", .description = "describe the chain"},
    {.number = sub::tapState, .name = "tapState", .description = "TAP state"},
    {.number = sub::clockReport, .name = "clockReport", .description = "virtual clock"},
    {.number = sub::jtagShift, .name = "jtagShift", .description = "JTAG shift"},
    {.number = sub::irEndState, .name = "irEndState", .description = "end state of instruction scans"},
    {.number = sub::drEndState, .name = "drEndState", .description = "end state of data scans"},
    {.number = sub::moveToState, .name = "moveToState", .description = "to a stable state"},
    {.number = sub::stepToState, .name = "stepToState", .description = "one TCK cycle to a state"},
    {.number = sub::trst, .name = "trst", .description = "TRST"},
    {.number = sub::tckFrequency, .name = "tckFrequency", .description = "TCK frequency"},
    {.number = sub::deviceRegisters, .name = "deviceRegisters", .description = "device registers"},
    {.number = sub::runTest, .name = "runTest", .description = "RUNTEST"},
};

/* The description of a named number, or null for the others. */
template <std::size_t N>
constexpr const char* describedIn(const NamedNumber (&table)[N], int number) {
    for (const NamedNumber& entry : table)
        if (entry.number == number) return entry.description;
    return nullptr;
}

constexpr const char* commandName(int number) { return describedIn(commandNames, number); }
constexpr const char* subCommandName(int number) { return describedIn(subCommandNames, number); }

/* The flag bits of a JTAG shift (sub-command 12). */
namespace shiftFlag {
inline constexpr int instructionScan = 1;  // set: IR scan; clear: DR scan
inline constexpr int noReadBack = 2;       // the TDO read-back is left out
}  // namespace shiftFlag

/* How the arguments of a command travel after its command frame. */
enum class Marshal : unsigned char {
    Nothing,             // no arguments
    Unknown,             // not a known command: no arguments, message "1013"
    TextsLenient,        // sendstrargs with `count` texts
    Ints,                // sendintargs with `count` ints
    TextsStrict,         // sendcharstarargs with `count` texts
    HeaderTrailer,       // sendSetHeaderTrailerargs: int, text x 4
    OpenSession,         // command 4: two texts, n, n ints, ten option frames, session lock
    CommandLock,         // command 33: command lock negotiation
    ReleaseCommandLock,  // command 34
    ReleaseSessionLock,  // command 35
    Farewell,            // command 9999: releases both locks
    GenericShift,        // command 19
    SharedApps,          // command 41
    PumpData,            // command 42
    JtagInterface,       // command 44: a sub-command and its arguments
    I2C,                 // commands 46 to 48
    SSPI,                // commands 50 to 52
};

/* Read-back chunks of the JTAG shift (44), pump data (42) and I2C (46 to 48)
 * begin with "+", which the library checks and keeps, and carry at most
 * framedPayload bytes of data behind it; those of the generic shift (19) and
 * SSPI (50 to 52) are raw data. */
constexpr bool readBackChunksFramed(Marshal marshal) {
    return marshal == Marshal::JtagInterface || marshal == Marshal::PumpData || marshal == Marshal::I2C;
}

struct Command {
    Marshal marshal = Marshal::Nothing;
    int count = 0;               // element count for the sender-based kinds
    int withWrite = 0;           // I2C and SSPI: the (last) transfer writes a block
    int withReadBack = 0;        // I2C and SSPI: the (last) transfer reads back
    bool readOnlyFirst = false;  // I2C and SSPI: a read-only transfer (0, 1) comes first
};

/* Commands of 28 or less, other than 1, 3 and 4, reach the server only while
 * the client holds both locks. */
constexpr bool isLockGuarded(int command) { return command <= 28 && command != 1 && command != 3 && command != 4; }

/* Commands 4 and 33 end with the lock answer; every other command ends with
 * the server's integer reply. */
constexpr bool readsIntegerReply(int number) {
    return number != command::openSession && number != command::commandLock;
}

/* Commands whose failed command frame makes the client reconnect. */
constexpr bool reconnectsOnFailure(int number) {
    return number == command::statusReport || number == command::openSession;
}

// The case lists are laid out by hand, a few numbers to a line.
// clang-format off
constexpr Command shapeOf(int number) {
    switch (number) {
    case 1: case 6: case 8: case 10: case 11: case 13: case 14: case 22:
    case 24: case 25: case 26: case 27: case 28: case 30: case 31: case 32:
    case 38: case 43: case 56:
        return {.marshal = Marshal::Nothing};
    case 2: case 29:
        return {.marshal = Marshal::TextsLenient, .count = 1};
    case 3:
        return {.marshal = Marshal::TextsLenient, .count = 2};
    case 4:
        return {.marshal = Marshal::OpenSession};
    case 5: case 7: case 9: case 15: case 16: case 17: case 18: case 23:
    case 37: case 39: case 45: case 49: case 53: case 54: case 55:
        return {.marshal = Marshal::Ints, .count = 1};
    case 20: case 36: case 40:
        return {.marshal = Marshal::Ints, .count = 2};
    case 12:
        return {.marshal = Marshal::TextsStrict, .count = 2};
    case command::genericShift:
        return {.marshal = Marshal::GenericShift};
    case 21:
        return {.marshal = Marshal::HeaderTrailer, .count = 8};
    case 33:
        return {.marshal = Marshal::CommandLock};
    case 34:
        return {.marshal = Marshal::ReleaseCommandLock};
    case 35:
        return {.marshal = Marshal::ReleaseSessionLock};
    case command::sharedApps:
        return {.marshal = Marshal::SharedApps};
    case 42:
        return {.marshal = Marshal::PumpData};
    case 44:
        return {.marshal = Marshal::JtagInterface};
    case 46:
        return {.marshal = Marshal::I2C, .withWrite = 1};
    case 47:
        return {.marshal = Marshal::I2C, .withWrite = 1, .withReadBack = 1, .readOnlyFirst = true};
    case 48:
        return {.marshal = Marshal::I2C, .withWrite = 1, .withReadBack = 1};
    case 50:
        return {.marshal = Marshal::SSPI, .withWrite = 1};
    case 51:
        return {.marshal = Marshal::SSPI, .withWrite = 1, .withReadBack = 1, .readOnlyFirst = true};
    case 52:
        return {.marshal = Marshal::SSPI, .withWrite = 1, .withReadBack = 1};
    case command::farewell:
        return {.marshal = Marshal::Farewell};
    default:
        return {.marshal = Marshal::Unknown};
    }
}

// clang-format on

/* Argument patterns of the JTAG-interface sub-commands (command 44). */
enum class SubPattern : unsigned char {
    Unknown,           // nothing more is sent; message "2000"
    NoArgs,            // nothing more is sent
    Ints,              // sendintargs with `count`
    Texts,             // sendcharstarargs with `count`
    IntTextInt,        // sendintargs 1, sendcharstarargs 1, sendintargs 1
    IntThenEmptyText,  // sendintargs 1, then sendcharstarargs 0
    FractionStrict,    // one int sent as "%f" of its float value, standard frame
    FractionFixed,     // one int sent as "%f" of its float value, 1024-byte frame
    JtagShift,         // the JTAG shift arguments
};

struct SubCommand {
    SubPattern pattern = SubPattern::Unknown;
    int count = 0;
};

/* The enumerators' own names, for the programs that write these tables out
 * for other languages (the session layer's generated header, the Wireshark
 * dissector's Lua vocabulary). Every enumerator has a case and there is no
 * default, so a new kind stops them compiling until it is named; a value
 * outside the enumeration has none (null). */
constexpr const char* nameOf(Marshal marshal) {
    switch (marshal) {
    case Marshal::Nothing: return "Nothing";
    case Marshal::Unknown: return "Unknown";
    case Marshal::TextsLenient: return "TextsLenient";
    case Marshal::Ints: return "Ints";
    case Marshal::TextsStrict: return "TextsStrict";
    case Marshal::HeaderTrailer: return "HeaderTrailer";
    case Marshal::OpenSession: return "OpenSession";
    case Marshal::CommandLock: return "CommandLock";
    case Marshal::ReleaseCommandLock: return "ReleaseCommandLock";
    case Marshal::ReleaseSessionLock: return "ReleaseSessionLock";
    case Marshal::Farewell: return "Farewell";
    case Marshal::GenericShift: return "GenericShift";
    case Marshal::SharedApps: return "SharedApps";
    case Marshal::PumpData: return "PumpData";
    case Marshal::JtagInterface: return "JtagInterface";
    case Marshal::I2C: return "I2C";
    case Marshal::SSPI: return "SSPI";
    }
    return nullptr;
}

constexpr const char* nameOf(SubPattern pattern) {
    switch (pattern) {
    case SubPattern::Unknown: return "Unknown";
    case SubPattern::NoArgs: return "NoArgs";
    case SubPattern::Ints: return "Ints";
    case SubPattern::Texts: return "Texts";
    case SubPattern::IntTextInt: return "IntTextInt";
    case SubPattern::IntThenEmptyText: return "IntThenEmptyText";
    case SubPattern::FractionStrict: return "FractionStrict";
    case SubPattern::FractionFixed: return "FractionFixed";
    case SubPattern::JtagShift: return "JtagShift";
    }
    return nullptr;
}

inline constexpr int subCommandCount = 144;

namespace detail {
struct Range {
    int first;
    int last;
};

template <std::size_t N>
constexpr void mark(std::array<SubCommand, subCommandCount>& table, const Range (&ranges)[N], SubCommand value) {
    for (const Range& r : ranges)
        for (int n = r.first; n <= r.last; ++n) table[static_cast<std::size_t>(n)] = value;
}

constexpr std::array<SubCommand, subCommandCount> buildSubCommands() {
    std::array<SubCommand, subCommandCount> table{};
    constexpr Range noArgs[] = {{3, 4},     {7, 10},    {14, 16},   {27, 27},   {29, 29},   {37, 44},   {47, 48},
                                {50, 50},   {52, 52},   {54, 54},   {56, 56},   {58, 59},   {61, 62},   {65, 67},
                                {73, 75},   {79, 80},   {82, 82},   {85, 85},   {87, 88},   {94, 94},   {100, 101},
                                {103, 103}, {105, 105}, {107, 109}, {111, 111}, {113, 113}, {118, 119}, {121, 121},
                                {123, 123}, {125, 129}, {131, 131}, {135, 139}};
    constexpr Range oneInt[] = {{2, 2},     {11, 11},   {13, 13},   {17, 26},   {28, 28},   {34, 35},
                                {45, 46},   {49, 49},   {57, 57},   {63, 64},   {68, 68},   {71, 71},
                                {77, 77},   {81, 81},   {92, 92},   {95, 95},   {104, 104}, {106, 106},
                                {110, 110}, {117, 117}, {132, 132}, {134, 134}, {141, 143}};
    constexpr Range twoInts[] = {{5, 6}, {76, 76}, {91, 91}, {96, 96}, {140, 140}};
    constexpr Range threeInts[] = {{93, 93}};
    constexpr Range fiveInts[] = {{89, 90}};
    constexpr Range oneText[] = {{1, 1},   {51, 51}, {53, 53},   {55, 55},   {60, 60},   {78, 78},
                                 {84, 84}, {86, 86}, {102, 102}, {112, 112}, {114, 115}, {122, 122}};
    constexpr Range twoTexts[] = {{83, 83}, {116, 116}, {124, 124}};
    constexpr Range intTextInt[] = {{30, 33}};
    constexpr Range intThenEmpty[] = {{120, 120}};
    constexpr Range fractionStrict[] = {{69, 70}};
    constexpr Range fractionFixed[] = {{36, 36}};
    constexpr Range jtagShift[] = {{sub::jtagShift, sub::jtagShift}};
    mark(table, noArgs, {.pattern = SubPattern::NoArgs});
    mark(table, oneInt, {.pattern = SubPattern::Ints, .count = 1});
    mark(table, twoInts, {.pattern = SubPattern::Ints, .count = 2});
    mark(table, threeInts, {.pattern = SubPattern::Ints, .count = 3});
    mark(table, fiveInts, {.pattern = SubPattern::Ints, .count = 5});
    mark(table, oneText, {.pattern = SubPattern::Texts, .count = 1});
    mark(table, twoTexts, {.pattern = SubPattern::Texts, .count = 2});
    mark(table, intTextInt, {.pattern = SubPattern::IntTextInt});
    mark(table, intThenEmpty, {.pattern = SubPattern::IntThenEmptyText});
    mark(table, fractionStrict, {.pattern = SubPattern::FractionStrict});
    mark(table, fractionFixed, {.pattern = SubPattern::FractionFixed});
    mark(table, jtagShift, {.pattern = SubPattern::JtagShift});
    return table;
}
}  // namespace detail

inline constexpr std::array<SubCommand, subCommandCount> subCommands = detail::buildSubCommands();

/* Negative numbers and numbers above 143 are unknown, like the unlisted ones. */
constexpr SubCommand subCommand(int number) {
    if (static_cast<unsigned>(number) >= static_cast<unsigned>(subCommandCount))
        return {.pattern = SubPattern::Unknown};
    return subCommands[static_cast<std::size_t>(number)];
}

}  // namespace tetherhost::protocol

#endif
