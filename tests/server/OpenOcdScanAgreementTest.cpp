// SPDX-License-Identifier: MIT
/* Debian's OpenOCD, through the remote_bitbang door, and tetherctl, through
 * the library, read the same values out of the same chain: for the built-in
 * chain and every shipped chain, each as its own test, in a private network
 * namespace (tetherctl talks to 127.0.0.1:4001, so the simulator takes that
 * port).
 *
 * OpenOCD, with every TAP declared from the chain file, runs its init and
 * then a sequence of irscan/drscan commands: for each device, IDCODE
 * selected and 32 bits read; each listed instruction with a capture value
 * selected and its register read; each listed register that keeps what was
 * shifted written with a pattern, then read back while zeros go in. It
 * prints what each drscan returns. tetherctl then makes the same scans,
 * each as one `tetherctl shift ir|dr` over the whole chain: an instruction
 * scan carries the opcode for the device and all ones (BYPASS) for the
 * others, as OpenOCD's irscan does; a data scan carries the device's
 * register and one bit for each device in BYPASS. Every device's slice of
 * what comes back must equal what OpenOCD printed and what the chain file
 * predicts (IDCODE, capture value, the pattern written, BYPASS's 0).
 *
 * The order and the shared start. The door owns the chain while OpenOCD is
 * connected, so OpenOCD runs to its shutdown (the trace shows its door
 * closed) before tetherctl scans. OpenOCD goes first: its init makes its
 * own start (a reset, a data scan reading the IDCODEs, an all-ones
 * instruction scan), whatever came before, and tetherctl can make the same
 * start after it with the reset sub-command and the same two scans, which
 * also read what OpenOCD reported there (the IDCODEs it found, the
 * instruction registers' captures it logs at debug level). That init
 * leaves every TAP in BYPASS, in Run-Test/Idle, is checked first: the
 * library reads the chain as an OpenOCD run of init alone left it. The one
 * state that neither a reset nor a scan of other registers sets is what
 * the registers without a capture value hold. OpenOCD meets them as the
 * fresh simulator has them (zeros), and its sequence leaves each as it
 * found it, so tetherctl meets them the same; a register that OpenOCD's
 * run left otherwise fails the first read of the tetherctl half.
 *
 * Two things of OpenOCD 0.12 shape the sequence: irscan returns nothing (so
 * the captured instruction registers come from its init's debug line
 * "NAME: IR capture 0x.."), and a drscan of a TAP it holds in BYPASS fails
 * an assertion and aborts it (so every drscan follows an irscan that
 * selects a register on that TAP). */
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <regex>
#include <string>
#include <vector>

#include "OpenOcdTaps.h"
#include "SimulatorHarness.h"
#include "protocol/Commands.h"
#include "server/ChainFile.h"

namespace tetherhost::test {
namespace {

namespace command = protocol::command;
namespace sub = protocol::sub;

// tetherctl's clients reach the simulator here; OpenOCD through the door.
constexpr int libraryPort = 4001;
constexpr int doorPort = TETHERHOST_TEST_DOOR_PORT;
// The most bits `tetherctl shift` takes in one scan.
constexpr std::size_t longestTetherctlScan = 8192;
// The chain the simulator has without --chain.
const std::string builtInChain = "built-in";

std::vector<std::string> chainsUnderTest() {
    std::vector<std::string> names = {builtInChain};
    for (const auto& entry : std::filesystem::directory_iterator(TETHERHOST_SHIPPED_CHAINS))
        if (entry.path().extension() == ".json") names.push_back(entry.path().stem().string());
    std::sort(names.begin() + 1, names.end());
    return names;
}

/** The bits of a scan or a register, the first shifted (bit 0) first. */
using Bits = std::vector<bool>;

Bits bitsOf(std::uint64_t value, std::size_t count) {
    Bits bits(count, false);
    for (std::size_t i = 0; i < count && i < 64; ++i) bits[i] = ((value >> i) & 1U) != 0;
    return bits;
}

Bits bitsOf(const sim::RegisterBits& words, std::size_t count) {
    Bits bits(count, false);
    for (std::size_t i = 0; i < count && i / 64 < words.size(); ++i) bits[i] = ((words[i / 64] >> (i % 64)) & 1U) != 0;
    return bits;
}

/** A hex number, most significant digit first ("0x" allowed), as `count`
 * bits; nothing when it is not hex or has a bit set at or above `count`. */
std::optional<Bits> bitsFromHex(std::string text, std::size_t count) {
    if (text.rfind("0x", 0) == 0 || text.rfind("0X", 0) == 0) text.erase(0, 2);
    if (text.empty()) return std::nullopt;
    Bits bits(count, false);
    std::size_t position = 0;
    for (auto digit = text.rbegin(); digit != text.rend(); ++digit, position += 4) {
        const char c = *digit;
        int value = 0;
        if (c >= '0' && c <= '9')
            value = c - '0';
        else if (c >= 'a' && c <= 'f')
            value = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            value = c - 'A' + 10;
        else
            return std::nullopt;
        for (std::size_t bit = 0; bit < 4; ++bit) {
            if (((value >> bit) & 1) == 0) continue;
            if (position + bit >= count) return std::nullopt;
            bits[position + bit] = true;
        }
    }
    return bits;
}

/** "0x" and (size + 3) / 4 upper-case hex digits, most significant first:
 * the form tetherctl reads and prints. */
std::string hexOf(const Bits& bits) {
    std::string digits((bits.size() + 3) / 4, '0');
    for (std::size_t i = 0; i < bits.size(); ++i)
        if (bits[i]) {
            char& digit = digits[digits.size() - 1 - i / 4];
            const int value = (digit <= '9' ? digit - '0' : digit - 'A' + 10) | (1 << (i % 4));
            digit = static_cast<char>(value < 10 ? '0' + value : 'A' + value - 10);
        }
    return "0x" + digits;
}

/** `count` bits of a pattern of its own for each `seed`, with the first and
 * the last bit set, so that a register read back empty or shifted by a bit
 * shows. */
Bits patternBits(std::size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    Bits bits(count, false);
    for (std::size_t i = 0; i < count; ++i) bits[i] = (generator() & 1U) != 0;
    bits.front() = true;
    bits.back() = true;
    return bits;
}

/** Where each device's register sits in a scan of the whole chain. The
 * devices are listed from TDI; the one next to TDO comes out first, so
 * device k's register begins after those of the devices behind it. */
class ChainScan {
public:
    explicit ChainScan(std::vector<std::size_t> lengths) : lengths(std::move(lengths)), offsets(this->lengths.size()) {
        std::size_t offset = 0;
        for (std::size_t k = this->lengths.size(); k-- > 0;) {
            offsets[k] = offset;
            offset += this->lengths[k];
        }
        bitCount = offset;
    }

    std::size_t total() const { return bitCount; }

    /** The scan's TDI from each device's field. */
    Bits compose(const std::vector<Bits>& fields) const {
        Bits bits(bitCount, false);
        for (std::size_t k = 0; k < fields.size(); ++k)
            std::copy(fields[k].begin(), fields[k].end(), bits.begin() + static_cast<std::ptrdiff_t>(offsets[k]));
        return bits;
    }

    /** Device k's part of the scan's TDO. */
    Bits slice(const Bits& tdo, std::size_t k) const {
        const auto begin = tdo.begin() + static_cast<std::ptrdiff_t>(offsets[k]);
        return Bits(begin, begin + static_cast<std::ptrdiff_t>(lengths[k]));
    }

private:
    std::vector<std::size_t> lengths;
    std::vector<std::size_t> offsets;
    std::size_t bitCount = 0;
};

/** One scan of the sequence, made by both tools: an instruction scan
 * selecting `tdi` on `device` (BYPASS on the others), or a data scan of
 * `tdi` through the register it selected, which must return `expected`. */
struct Scan {
    bool instruction = false;
    std::size_t device = 0;
    std::string what;
    Bits tdi;
    Bits expected;
};

/** The sequence for `devices`: for each device, IDCODE; each listed
 * instruction whose register has a capture value; each listed register
 * that keeps what was shifted (written, then read back while zeros go in,
 * which leaves it as it was). Registers too long for one tetherctl scan
 * beside the other devices' BYPASS bits are left out. */
std::vector<Scan> scanSequence(const std::vector<sim::TapDevice>& devices) {
    std::vector<Scan> scans;
    const std::size_t bypassBits = devices.size() - 1;
    for (std::size_t k = 0; k < devices.size(); ++k) {
        const sim::TapDevice& device = devices[k];
        const std::size_t irLength = static_cast<std::size_t>(device.irLength);
        auto select = [&](const std::string& name, std::uint64_t opcode) {
            scans.push_back({true, k, device.name + " " + name + " selected", bitsOf(opcode, irLength), {}});
        };
        const unsigned seed = static_cast<unsigned>(k) * 131U + 7U;
        if (device.idcode) {
            select("IDCODE", device.idcodeInstruction);
            scans.push_back(
                {false, k, device.name + " IDCODE read", patternBits(32, seed), bitsOf(*device.idcode, 32)});
        }
        for (const sim::TapInstruction& instruction : device.instructions) {
            if (instruction.length + bypassBits > longestTetherctlScan) continue;
            const std::string name = device.name + " " + instruction.name;
            const unsigned registerSeed = seed + static_cast<unsigned>(instruction.opcode);
            select(instruction.name, instruction.opcode);
            if (instruction.capture) {
                scans.push_back({false, k, name + " capture read", patternBits(instruction.length, registerSeed),
                                 bitsOf(*instruction.capture, instruction.length)});
                continue;
            }
            const Bits written = patternBits(instruction.length, registerSeed);
            const Bits zeros(instruction.length, false);
            scans.push_back({false, k, name + " written (zeros come out)", written, zeros});
            scans.push_back({false, k, name + " read back (zeros go in)", zeros, written});
        }
    }
    return scans;
}

std::string tapName(std::size_t k) { return "d" + std::to_string(k) + ".tap"; }

/** The same name as a regular expression. */
std::string tapPattern(std::size_t k) { return "d" + std::to_string(k) + "\\.tap"; }

class OpenOcdAndTetherctlOnAChain : public ::testing::TestWithParam<std::string> {
protected:
    void SetUp() override {
        const std::string tracePath = scratch.file("trace");
        std::vector<std::string> options = {"--trace", tracePath, "--remote-bitbang", std::to_string(doorPort)};
        if (GetParam() == builtInChain) {
            devices = sim::CableConfig{}.chain;
        } else {
            const std::string path = std::string(TETHERHOST_SHIPPED_CHAINS) + "/" + GetParam() + ".json";
            devices = sim::loadCableConfig(path).chain;
            options.insert(options.end(), {"--chain", path});
        }
        // tetherctl would start a server of its own from this empty folder
        // if the simulator did not answer: it finds none there and fails.
        ASSERT_EQ(mkdir(noServer.c_str(), 0700), 0);
        simulator = Simulator::start(libraryPort, options);
        ASSERT_NE(simulator, nullptr);
        trace = std::make_unique<TraceFollower>(tracePath);
    }

    /** OpenOCD on the door with every TAP declared, each named d<k> after
     * its place in the file (OpenOCD declares the TAP next to TDO first),
     * then `commands` and shutdown. True when it exited with 0 and the
     * simulator has seen its door close, so the library may scan again. */
    bool openocd(const std::vector<std::string>& commands, std::string& log) {
        std::vector<std::string> arguments = openOcdOnDoor(TETHERHOST_OPENOCD, doorPort);
        std::vector<std::string> all = openOcdTapDeclarations(devices);
        all.insert(all.end(), commands.begin(), commands.end());
        all.push_back("shutdown");
        for (const std::string& command : all) arguments.insert(arguments.end(), {"-c", command});
        ++openOcdRuns;
        const int status = runTool(arguments, scratch.file("openocd.out"), log);
        return status == 0 && trace->waitFor("closed: quit", openOcdRuns);
    }

    /** tetherctl with `arguments`; its wait status, and what it printed in
     * `output`. */
    int tetherctl(const std::vector<std::string>& arguments, std::string& output) {
        std::vector<std::string> all = {TETHERHOST_TETHERCTL, "--server-dir", noServer};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return runTool(all, scratch.file("tetherctl.out"), output);
    }

    /** `tetherctl shift ir|dr` of `tdi`: the TDO, or nothing (with the
     * failure reported) when it did not print one of the scan's length. */
    std::optional<Bits> shift(bool instruction, const Bits& tdi) {
        std::string output;
        const int status =
            tetherctl({"shift", instruction ? "ir" : "dr", std::to_string(tdi.size()), hexOf(tdi)}, output);
        std::smatch tdo;
        const std::regex line(R"(TDO (0x[0-9A-F]+)\n)");
        std::optional<Bits> bits;
        if (status == 0 && std::regex_match(output, tdo, line)) bits = bitsFromHex(tdo[1].str(), tdi.size());
        if (!bits)
            ADD_FAILURE() << "tetherctl shift " << (instruction ? "ir " : "dr ") << tdi.size() << " " << hexOf(tdi)
                          << ": status " << status << "\n"
                          << output;
        return bits;
    }

    /** The reset sub-command, through tetherctl; true when it was done. */
    bool resetTaps() {
        std::string output;
        const int status = tetherctl(
            {"send", std::to_string(command::jtagInterface), "i:" + std::to_string(sub::resetTaps), "--session"},
            output);
        EXPECT_EQ(output, "command " + std::to_string(command::jtagInterface) + ": result 0\n");
        return status == 0;
    }

    /** The controllers' state as the simulator names it, through tetherctl. */
    std::string tapState() {
        std::string output;
        tetherctl(
            {"send", std::to_string(command::jtagInterface), "i:" + std::to_string(sub::tapState), "--reply", "text"},
            output);
        const std::size_t at = output.find("reply: ");
        return at == std::string::npos ? output : output.substr(at + 7, output.find('\n', at) - at - 7);
    }

    /** A data scan of zeros through every device in BYPASS: each device's
     * bit must be BYPASS's capture, 0. */
    void expectEveryDeviceInBypass() {
        const ChainScan bypass(std::vector<std::size_t>(devices.size(), 1));
        const std::optional<Bits> tdo = shift(false, Bits(devices.size(), false));
        ASSERT_TRUE(tdo);
        for (std::size_t k = 0; k < devices.size(); ++k)
            EXPECT_EQ(hexOf(bypass.slice(*tdo, k)), hexOf(Bits(1, false))) << devices[k].name;
    }

    ChainScan irScan() const {
        std::vector<std::size_t> lengths;
        for (const sim::TapDevice& device : devices) lengths.push_back(static_cast<std::size_t>(device.irLength));
        return ChainScan(lengths);
    }

    Bits irCapture(std::size_t k) const {
        return bitsOf(devices[k].irCapture, static_cast<std::size_t>(devices[k].irLength));
    }

    ScratchDir scratch;
    const std::string noServer = scratch.file("no-server");
    std::vector<sim::TapDevice> devices;
    std::unique_ptr<Simulator> simulator;
    std::unique_ptr<TraceFollower> trace;
    int openOcdRuns = 0;
};

TEST_P(OpenOcdAndTetherctlOnAChain, IrscanAndDrscanResultsEqualTetherctlShiftsFromTheSameState) {
    const std::size_t count = devices.size();

    // OpenOCD's init alone leaves every TAP in BYPASS, in Run-Test/Idle.
    std::string log;
    ASSERT_TRUE(openocd({"init"}, log)) << log;
    EXPECT_EQ(tapState(), "Run-Test/Idle");
    expectEveryDeviceInBypass();

    // OpenOCD: init, logging what its instruction scan captured, then the
    // sequence, each drscan's result printed as "scan-<index> <hex>".
    const std::vector<Scan> scans = scanSequence(devices);
    std::vector<std::string> commands = {"debug_level 3", "init", "debug_level 2"};
    for (std::size_t i = 0; i < scans.size(); ++i) {
        const Scan& scan = scans[i];
        const std::string tap = tapName(scan.device);
        if (scan.instruction)
            commands.push_back("irscan " + tap + " " + hexOf(scan.tdi));
        else
            commands.push_back("echo \"scan-" + std::to_string(i) + " [drscan " + tap + " " +
                               std::to_string(scan.tdi.size()) + " " + hexOf(scan.tdi) + "]\"");
    }
    ASSERT_TRUE(openocd(commands, log)) << log;
    EXPECT_EQ(log.find("\nError"), std::string::npos) << log;
    EXPECT_EQ(log.find("UNEXPECTED"), std::string::npos) << log;
    // Its scans end in Run-Test/Idle.
    EXPECT_EQ(tapState(), "Run-Test/Idle");

    std::map<std::size_t, std::string> printed;
    const std::regex result(R"((?:^|\n)scan-(\d+) ([0-9a-f]+)(?=\n))");
    for (std::sregex_iterator it(log.begin(), log.end(), result), end; it != end; ++it)
        printed[std::stoul((*it)[1].str())] = (*it)[2].str();
    const auto dataScans =
        std::count_if(scans.begin(), scans.end(), [](const Scan& scan) { return !scan.instruction; });
    EXPECT_EQ(printed.size(), static_cast<std::size_t>(dataScans)) << log;

    // tetherctl: the start OpenOCD's init makes. The data scan after reset
    // reads each device's IDCODE (BYPASS's 0 without one), as OpenOCD found.
    ASSERT_TRUE(resetTaps());
    std::vector<std::size_t> afterResetLengths;
    for (const sim::TapDevice& device : devices) afterResetLengths.push_back(device.idcode ? 32 : 1);
    const ChainScan afterReset(afterResetLengths);
    const std::optional<Bits> idcodes = shift(false, Bits(afterReset.total(), true));
    ASSERT_TRUE(idcodes);
    for (std::size_t k = 0; k < count; ++k) {
        SCOPED_TRACE(devices[k].name + " after reset");
        const Bits read = afterReset.slice(*idcodes, k);
        EXPECT_EQ(hexOf(read), hexOf(devices[k].idcode ? bitsOf(*devices[k].idcode, 32) : Bits(1, false)));
        if (!devices[k].idcode) continue;
        std::smatch found;
        const std::string text = tapPattern(k) + " tap/device found: (0x[0-9a-f]{8})";
        ASSERT_TRUE(std::regex_search(log, found, std::regex(text))) << log;
        const std::optional<Bits> openOcdRead = bitsFromHex(found[1].str(), 32);
        ASSERT_TRUE(openOcdRead) << found[0];
        EXPECT_EQ(hexOf(read), hexOf(*openOcdRead));
    }
    // The all-ones instruction scan: each device's captured value, as
    // OpenOCD's init logged it; BYPASS everywhere afterwards.
    const ChainScan ir = irScan();
    const std::optional<Bits> captured = shift(true, Bits(ir.total(), true));
    ASSERT_TRUE(captured);
    for (std::size_t k = 0; k < count; ++k) {
        SCOPED_TRACE(devices[k].name + " instruction register");
        const Bits read = ir.slice(*captured, k);
        EXPECT_EQ(hexOf(read), hexOf(irCapture(k)));
        std::smatch logged;
        const std::string text = tapPattern(k) + ": IR capture (0x[0-9a-f]+)";
        ASSERT_TRUE(std::regex_search(log, logged, std::regex(text))) << log;
        const std::optional<Bits> openOcdRead = bitsFromHex(logged[1].str(), read.size());
        ASSERT_TRUE(openOcdRead) << logged[0];
        EXPECT_EQ(hexOf(read), hexOf(*openOcdRead));
    }
    expectEveryDeviceInBypass();

    // The sequence, each scan over the whole chain.
    for (std::size_t i = 0; i < scans.size(); ++i) {
        const Scan& scan = scans[i];
        SCOPED_TRACE(scan.what);
        if (scan.instruction) {
            std::vector<Bits> fields;
            for (std::size_t k = 0; k < count; ++k)
                fields.push_back(k == scan.device ? scan.tdi
                                                  : Bits(static_cast<std::size_t>(devices[k].irLength), true));
            const std::optional<Bits> tdo = shift(true, ir.compose(fields));
            ASSERT_TRUE(tdo);
            for (std::size_t k = 0; k < count; ++k)
                EXPECT_EQ(hexOf(ir.slice(*tdo, k)), hexOf(irCapture(k))) << devices[k].name;
            continue;
        }
        std::vector<std::size_t> lengths(count, 1);
        lengths[scan.device] = scan.tdi.size();
        const ChainScan dr(lengths);
        std::vector<Bits> fields(count, Bits(1, false));
        fields[scan.device] = scan.tdi;
        const std::optional<Bits> tdo = shift(false, dr.compose(fields));
        ASSERT_TRUE(tdo);
        const std::string read = hexOf(dr.slice(*tdo, scan.device));
        EXPECT_EQ(read, hexOf(scan.expected));
        ASSERT_EQ(printed.count(i), 1U) << log;
        const std::optional<Bits> openOcdRead = bitsFromHex(printed[i], scan.tdi.size());
        ASSERT_TRUE(openOcdRead) << printed[i];
        EXPECT_EQ(read, hexOf(*openOcdRead));
        for (std::size_t k = 0; k < count; ++k) {
            if (k == scan.device) continue;
            EXPECT_EQ(hexOf(dr.slice(*tdo, k)), hexOf(Bits(1, false))) << devices[k].name;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Chains, OpenOcdAndTetherctlOnAChain, ::testing::ValuesIn(chainsUnderTest()), chainTestName);

}  // namespace
}  // namespace tetherhost::test
