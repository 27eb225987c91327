/* Commands: the command vocabulary of the tetherhost protocol: which command
 * numbers exist, which are lock-guarded, how each one's arguments travel, and
 * the argument patterns of the 144 JTAG-interface sub-commands, with names
 * for the numbers that the library, the simulator and tetherctl use by
 * number. Written once and shared by all of them, so no two can drift
 * apart. */
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
inline constexpr int commandLock = 33;
inline constexpr int releaseCommandLock = 34;
inline constexpr int releaseSessionLock = 35;
inline constexpr int pumpData = 42;
inline constexpr int sharedAppList = 43;
inline constexpr int jtagInterface = 44;
inline constexpr int i2cWrite = 46;
inline constexpr int i2cWriteReadBack = 48;
inline constexpr int sspiWrite = 50;
inline constexpr int sspiWriteReadBack = 52;
inline constexpr int farewell = 9999;
}  // namespace command

/* JTAG-interface sub-commands (of command 44) named where code uses them. */
namespace sub {
inline constexpr int resetTaps = 3;
inline constexpr int describeChain = 7;
inline constexpr int jtagShift = 12;
}  // namespace sub

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

struct Command {
    Marshal marshal;
    int count;            // element count for the sender-based kinds
    int withWrite;        // I2C and SSPI: the (last) transfer writes a block
    int withReadBack;     // I2C and SSPI: the (last) transfer reads back
    bool readOnlyFirst;   // I2C and SSPI: a read-only transfer (0, 1) comes first
};

/* Commands of 28 or less, other than 1, 3 and 4, reach the server only while
 * the client holds both locks. */
constexpr bool isLockGuarded(int command) {
    return command <= 28 && command != 1 && command != 3 && command != 4;
}

/* Commands 4 and 33 end with the lock answer; every other command ends with
 * the server's integer reply. */
constexpr bool readsIntegerReply(int number) {
    return number != command::openSession && number != command::commandLock;
}

/* Commands whose failed command frame makes the client reconnect. */
constexpr bool reconnectsOnFailure(int number) {
    return number == command::statusReport || number == command::openSession;
}

constexpr Command shapeOf(int number) {
    constexpr Command none{Marshal::Nothing, 0, 0, 0, false};
    switch (number) {
    case 1: case 6: case 8: case 10: case 11: case 13: case 14: case 22:
    case 24: case 25: case 26: case 27: case 28: case 30: case 31: case 32:
    case 38: case 43: case 56:
        return none;
    case 2: case 29:
        return {Marshal::TextsLenient, 1, 0, 0, false};
    case 3:
        return {Marshal::TextsLenient, 2, 0, 0, false};
    case 4:
        return {Marshal::OpenSession, 0, 0, 0, false};
    case 5: case 7: case 9: case 15: case 16: case 17: case 18: case 23:
    case 37: case 39: case 45: case 49: case 53: case 54: case 55:
        return {Marshal::Ints, 1, 0, 0, false};
    case 20: case 36: case 40:
        return {Marshal::Ints, 2, 0, 0, false};
    case 12:
        return {Marshal::TextsStrict, 2, 0, 0, false};
    case 19:
        return {Marshal::GenericShift, 0, 0, 0, false};
    case 21:
        return {Marshal::HeaderTrailer, 8, 0, 0, false};
    case 33:
        return {Marshal::CommandLock, 0, 0, 0, false};
    case 34:
        return {Marshal::ReleaseCommandLock, 0, 0, 0, false};
    case 35:
        return {Marshal::ReleaseSessionLock, 0, 0, 0, false};
    case 41:
        return {Marshal::SharedApps, 0, 0, 0, false};
    case 42:
        return {Marshal::PumpData, 0, 0, 0, false};
    case 44:
        return {Marshal::JtagInterface, 0, 0, 0, false};
    case 46:
        return {Marshal::I2C, 0, 1, 0, false};
    case 47:
        return {Marshal::I2C, 0, 1, 1, true};
    case 48:
        return {Marshal::I2C, 0, 1, 1, false};
    case 50:
        return {Marshal::SSPI, 0, 1, 0, false};
    case 51:
        return {Marshal::SSPI, 0, 1, 1, true};
    case 52:
        return {Marshal::SSPI, 0, 1, 1, false};
    case command::farewell:
        return {Marshal::Farewell, 0, 0, 0, false};
    default:
        return {Marshal::Unknown, 0, 0, 0, false};
    }
}

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
    SubPattern pattern;
    int count;
};

inline constexpr int subCommandCount = 144;

namespace detail {
struct Range {
    int first;
    int last;
};

template <std::size_t N>
constexpr void mark(std::array<SubCommand, subCommandCount>& table, const Range (&ranges)[N],
                    SubCommand value) {
    for (const Range& r : ranges)
        for (int n = r.first; n <= r.last; ++n) table[static_cast<std::size_t>(n)] = value;
}

constexpr std::array<SubCommand, subCommandCount> buildSubCommands() {
    std::array<SubCommand, subCommandCount> table{};
    for (SubCommand& entry : table) entry = {SubPattern::Unknown, 0};
    constexpr Range noArgs[] = {{3, 4},     {7, 10},    {14, 16},   {27, 27},   {29, 29},
                                {37, 44},   {47, 48},   {50, 50},   {52, 52},   {54, 54},
                                {56, 56},   {58, 59},   {61, 62},   {65, 67},   {73, 75},
                                {79, 80},   {82, 82},   {85, 85},   {87, 88},   {94, 94},
                                {100, 101}, {103, 103}, {105, 105}, {107, 109}, {111, 111},
                                {113, 113}, {118, 119}, {121, 121}, {123, 123}, {125, 129},
                                {131, 131}, {135, 139}};
    constexpr Range oneInt[] = {{2, 2},     {11, 11},   {13, 13},   {17, 26},   {28, 28},
                                {34, 35},   {45, 46},   {49, 49},   {57, 57},   {63, 64},
                                {68, 68},   {71, 71},   {77, 77},   {81, 81},   {92, 92},
                                {95, 95},   {104, 104}, {106, 106}, {110, 110}, {117, 117},
                                {132, 132}, {134, 134}, {141, 143}};
    constexpr Range twoInts[] = {{5, 6}, {76, 76}, {91, 91}, {96, 96}, {140, 140}};
    constexpr Range threeInts[] = {{93, 93}};
    constexpr Range fiveInts[] = {{89, 90}};
    constexpr Range oneText[] = {{1, 1},   {51, 51},   {53, 53},   {55, 55},   {60, 60},
                                 {78, 78}, {84, 84},   {86, 86},   {102, 102}, {112, 112},
                                 {114, 115}, {122, 122}};
    constexpr Range twoTexts[] = {{83, 83}, {116, 116}, {124, 124}};
    constexpr Range intTextInt[] = {{30, 33}};
    constexpr Range intThenEmpty[] = {{120, 120}};
    constexpr Range fractionStrict[] = {{69, 70}};
    constexpr Range fractionFixed[] = {{36, 36}};
    constexpr Range jtagShift[] = {{sub::jtagShift, sub::jtagShift}};
    mark(table, noArgs, {SubPattern::NoArgs, 0});
    mark(table, oneInt, {SubPattern::Ints, 1});
    mark(table, twoInts, {SubPattern::Ints, 2});
    mark(table, threeInts, {SubPattern::Ints, 3});
    mark(table, fiveInts, {SubPattern::Ints, 5});
    mark(table, oneText, {SubPattern::Texts, 1});
    mark(table, twoTexts, {SubPattern::Texts, 2});
    mark(table, intTextInt, {SubPattern::IntTextInt, 0});
    mark(table, intThenEmpty, {SubPattern::IntThenEmptyText, 0});
    mark(table, fractionStrict, {SubPattern::FractionStrict, 0});
    mark(table, fractionFixed, {SubPattern::FractionFixed, 0});
    mark(table, jtagShift, {SubPattern::JtagShift, 0});
    return table;
}
}  // namespace detail

inline constexpr std::array<SubCommand, subCommandCount> subCommands = detail::buildSubCommands();

/* Negative numbers and numbers above 143 are unknown, like the unlisted ones. */
constexpr SubCommand subCommand(int number) {
    if (static_cast<unsigned>(number) >= static_cast<unsigned>(subCommandCount))
        return {SubPattern::Unknown, 0};
    return subCommands[static_cast<std::size_t>(number)];
}

}  // namespace tetherhost::protocol

#endif
