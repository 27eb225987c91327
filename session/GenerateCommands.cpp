// SPDX-License-Identifier: MIT
/* tetherhost_generate_commands: writes <tetherhost/commands.hpp> for the
 * installed session layer, which may not include protocol/. The header holds
 * what the layer checks its calls against, taken from the very tables the
 * library's dispatcher and the simulator use: every listed command's argument
 * shape, the 144 sub-command patterns, the named numbers, the frame sizes,
 * the status and reply tables, and the message templates built into the
 * library. It is C++17, like the layer.
 *
 * Usage: tetherhost_generate_commands OUTPUT */
#include <climits>
#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/Commands.h"
#include "protocol/Frames.h"
#include "protocol/Status.h"

namespace {

namespace protocol = tetherhost::protocol;
using protocol::Marshal;
using protocol::SubPattern;

struct BuiltinMessage {
    int number;
    const char* text;
};

constexpr BuiltinMessage builtinMessages[] = {
#include "BuiltinMessages.inc"
};

/* Every enumerator has a case and there is no default, so a new kind in
 * protocol/Commands.h stops this program from compiling until it is named. */
const char* nameOf(Marshal marshal) {
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

const char* nameOf(SubPattern pattern) {
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

/* The enumerators in the order of their values, up to the first value
 * without a name. */
template <class Enum>
std::vector<const char*> enumerators() {
    std::vector<const char*> names;
    for (int value = 0; value <= UCHAR_MAX; ++value) {
        const char* name = nameOf(static_cast<Enum>(value));
        if (name == nullptr) break;
        names.push_back(name);
    }
    return names;
}

std::string quoted(const char* text) {
    std::string out = "\"";
    for (const char* at = text; *at != '\0'; ++at) {
        if (*at == '"' || *at == '\\') out += '\\';
        out += *at;
    }
    return out + "\"";
}

const char* boolean(bool value) { return value ? "true" : "false"; }

std::string shapeText(int number) {
    const protocol::Command shape = protocol::shapeOf(number);
    std::ostringstream out;
    out << "{Marshal::" << nameOf(shape.marshal) << ", " << shape.count << ", " << shape.withWrite << ", "
        << shape.withReadBack << ", " << boolean(shape.readOnlyFirst) << ", "
        << boolean(protocol::readsIntegerReply(number)) << ", " << boolean(protocol::reconnectsOnFailure(number))
        << ", " << boolean(protocol::readBackChunksFramed(shape.marshal)) << "}";
    return out.str();
}

/* The range of command numbers searched for listed ones: every number the
 * dispatcher can be given fits, as far as the table is concerned, since an
 * unlisted number is treated alike wherever it lies. */
constexpr int searchedLow = -65536;
constexpr int searchedHigh = 65536;

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: %s OUTPUT\n", argv[0]);
        return 2;
    }

    std::vector<int> listed;
    std::string unknownShape;
    for (int number = searchedLow; number <= searchedHigh; ++number) {
        if (protocol::shapeOf(number).marshal != Marshal::Unknown) {
            listed.push_back(number);
            continue;
        }
        // The header gives every unlisted number one shape, so they must all
        // have the same.
        const std::string shape = shapeText(number);
        if (unknownShape.empty()) unknownShape = shape;
        if (shape != unknownShape) {
            std::fprintf(stderr, "unlisted command %d has a shape of its own: %s\n", number, shape.c_str());
            return 1;
        }
    }
    for (int number : {-1, protocol::subCommandCount, INT_MIN, INT_MAX}) {
        if (protocol::subCommand(number).pattern != SubPattern::Unknown) {
            std::fprintf(stderr, "sub-command %d outside the table is not unknown\n", number);
            return 1;
        }
    }

    std::ostringstream out;
    out << "/* Generated by tetherhost_generate_commands from protocol/Commands.h,\n"
           " * protocol/Frames.h, protocol/Status.h and the message catalogue: do not\n"
           " * edit. The command vocabulary of the tetherhost protocol as the library's\n"
           " * dispatcher and the simulator use it, for <tetherhost/session.hpp>. C++17. */\n"
           "#ifndef TETHERHOST_COMMANDS_HPP\n"
           "#define TETHERHOST_COMMANDS_HPP\n\n"
           "#include <cstddef>\n\n"
           "namespace tetherhost::vocabulary {\n\n";

    out << "/* How the arguments of a command travel after its command frame. */\n"
           "enum class Marshal : unsigned char {";
    for (const char* name : enumerators<Marshal>()) out << " " << name << ",";
    out << " };\n\n";
    out << "struct Command {\n"
           "    Marshal marshal;\n"
           "    int count;                  // element count of the sender-based kinds\n"
           "    int withWrite;              // I2C and SSPI: the (last) transfer writes a block\n"
           "    int withReadBack;           // I2C and SSPI: the (last) transfer reads back\n"
           "    bool readOnlyFirst;         // I2C and SSPI: a read-only transfer comes first\n"
           "    bool readsIntegerReply;     // the command ends with the server's integer reply\n"
           "    bool reconnectsOnFailure;   // a failed command frame makes the library reconnect\n"
           "    bool framedReadBack;        // read-back chunks begin with \"+\"\n"
           "};\n\n"
           "struct NumberedCommand {\n"
           "    int number;\n"
           "    Command shape;\n"
           "};\n\n"
           "inline constexpr NumberedCommand listedCommands[] = {\n";
    for (const int number : listed) out << "    {" << number << ", " << shapeText(number) << "},\n";
    out << "};\n\n"
           "/* The shape of command `number`; every unlisted number has the same. */\n"
           "constexpr Command shapeOf(int number) {\n"
           "    for (const NumberedCommand& listed : listedCommands)\n"
           "        if (listed.number == number) return listed.shape;\n"
           "    return "
        << unknownShape
        << ";\n"
           "}\n\n";

    out << "/* Argument patterns of the JTAG-interface sub-commands (command 44). */\n"
           "enum class SubPattern : unsigned char {";
    for (const char* name : enumerators<SubPattern>()) out << " " << name << ",";
    out << " };\n\n"
           "struct SubCommand {\n"
           "    SubPattern pattern;\n"
           "    int count;\n"
           "};\n\n"
           "inline constexpr int subCommandCount = "
        << protocol::subCommandCount
        << ";\n\n"
           "inline constexpr SubCommand subCommands[subCommandCount] = {\n";
    for (int number = 0; number < protocol::subCommandCount; ++number) {
        const protocol::SubCommand entry = protocol::subCommand(number);
        out << "    {SubPattern::" << nameOf(entry.pattern) << ", " << entry.count << "},  // " << number << "\n";
    }
    out << "};\n\n"
           "/* Numbers outside the table are unknown, like the unlisted ones in it. */\n"
           "constexpr SubCommand subCommand(int number) {\n"
           "    if (number < 0 || number >= subCommandCount) return {SubPattern::Unknown, 0};\n"
           "    return subCommands[number];\n"
           "}\n\n";

    namespace command = protocol::command;
    namespace sub = protocol::sub;
    namespace shiftFlag = protocol::shiftFlag;
    const std::pair<const char*, int> commandNames[] = {
        {"statusReport", command::statusReport},
        {"openSession", command::openSession},
        {"commandLock", command::commandLock},
        {"releaseCommandLock", command::releaseCommandLock},
        {"releaseSessionLock", command::releaseSessionLock},
        {"pumpData", command::pumpData},
        {"sharedAppList", command::sharedAppList},
        {"jtagInterface", command::jtagInterface},
        {"i2cWrite", command::i2cWrite},
        {"i2cWriteReadBack", command::i2cWriteReadBack},
        {"sspiWrite", command::sspiWrite},
        {"sspiWriteReadBack", command::sspiWriteReadBack},
        {"farewell", command::farewell},
    };
    const std::pair<const char*, int> subNames[] = {
        {"resetTaps", sub::resetTaps},
        {"toRunTestIdle", sub::toRunTestIdle},
        {"describeChain", sub::describeChain},
        {"tapState", sub::tapState},
        {"clockReport", sub::clockReport},
        {"jtagShift", sub::jtagShift},
        {"irEndState", sub::irEndState},
        {"drEndState", sub::drEndState},
        {"moveToState", sub::moveToState},
        {"stepToState", sub::stepToState},
        {"trst", sub::trst},
        {"tckFrequency", sub::tckFrequency},
        {"deviceRegisters", sub::deviceRegisters},
        {"runTest", sub::runTest},
    };
    const std::pair<const char*, int> flagNames[] = {
        {"instructionScan", shiftFlag::instructionScan},
        {"noReadBack", shiftFlag::noReadBack},
    };
    auto names = [&out](const char* space, const auto& list) {
        out << "namespace " << space << " {\n";
        for (const auto& [name, number] : list) out << "inline constexpr int " << name << " = " << number << ";\n";
        out << "}  // namespace " << space << "\n\n";
    };
    names("command", commandNames);
    names("sub", subNames);
    names("shiftFlag", flagNames);

    out << "/* Frames and blocks. */\n"
           "inline constexpr std::size_t frameSize = "
        << protocol::frameSize
        << ";\n"
           "inline constexpr std::size_t maxTokenLength = "
        << protocol::maxTokenLength
        << ";\n"
           "inline constexpr std::size_t framedPayload = "
        << protocol::framedPayload
        << ";\n"
           "inline constexpr int singleBlockBits = "
        << protocol::singleBlockBits
        << ";\n"
           "inline constexpr std::size_t sharedAppNameLimit = "
        << protocol::sharedAppNameLimit << ";\n\n";

    out << "struct Code {\n"
           "    int number;\n"
           "    const char* name;\n"
           "    const char* meaning;\n"
           "};\n\n";
    auto codes = [&out](const char* table, const auto& list) {
        out << "inline constexpr Code " << table << "[] = {\n";
        for (const protocol::Code& code : list)
            out << "    {" << code.number << ", " << quoted(code.name) << ", " << quoted(code.meaning) << "},\n";
        out << "};\n\n";
    };
    out << "/* The library's status codes. */\n"
           "namespace status {\n";
    for (const protocol::Code& code : protocol::statusCodes)
        out << "inline constexpr int " << code.name << " = " << code.number << ";\n";
    out << "}  // namespace status\n\n";
    codes("statusCodes", protocol::statusCodes);
    out << "/* The negative integer replies of the simulator. */\n";
    codes("serverReplies", protocol::serverReplies);

    out << "/* The message templates built into the library, by identifier. */\n"
           "struct MessageTemplate {\n"
           "    int number;\n"
           "    const char* text;\n"
           "};\n\n"
           "inline constexpr MessageTemplate builtinMessages[] = {\n";
    for (const BuiltinMessage& message : builtinMessages)
        out << "    {" << message.number << ", " << quoted(message.text) << "},\n";
    out << "};\n\n"
           "}  // namespace tetherhost::vocabulary\n\n"
           "#endif\n";

    std::ofstream file(argv[1], std::ios::trunc);
    if (!(file << out.str())) {
        std::fprintf(stderr, "cannot write %s\n", argv[1]);
        return 1;
    }
    return 0;
}
