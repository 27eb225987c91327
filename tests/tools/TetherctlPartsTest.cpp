// SPDX-License-Identifier: MIT
/* Tests of tetherctl's parts that need no server: typed arguments and the
 * shapes of `send`, hex conversions, the chain decoder, JSON output, the
 * progress bar's frame, the status-code lines and the numbers read out of
 * text replies. */
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/ChainScan.h"
#include "tools/Failure.h"
#include "tools/Hex.h"
#include "tools/Json.h"
#include "tools/Progress.h"
#include "tools/ReplyNumbers.h"
#include "tools/ServerSession.h"
#include "tools/StatusCodes.h"
#include "tools/TypedSend.h"

namespace tetherctl {
namespace {

std::vector<TypedArgument> arguments(const std::vector<std::string>& texts) {
    std::vector<TypedArgument> result;
    result.reserve(texts.size());
    for (const std::string& given : texts) result.push_back(parseTypedArgument(given));
    return result;
}

/* `count` arguments alternating between integers and texts every `every`. */
std::vector<TypedArgument> shape(int count, int every) {
    std::vector<std::string> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) texts.push_back((i / every) % 2 == 0 ? "i:1" : "s:x");
    return arguments(texts);
}

TEST(TypedArgument, IntegerTakesDecimalAndHexWithinInt) {
    EXPECT_EQ(parseTypedArgument("i:5").integer, 5);
    EXPECT_EQ(parseTypedArgument("i:-3").integer, -3);
    EXPECT_EQ(parseTypedArgument("i:0x1F").integer, 31);
    EXPECT_EQ(parseTypedArgument("i:2147483647").integer, 2147483647);
    EXPECT_EQ(parseTypedArgument("i:1").kind, ArgumentKind::Integer);
    EXPECT_THROW(parseTypedArgument("i:2147483648"), UsageError);
    EXPECT_THROW(parseTypedArgument("i:12abc"), UsageError);
    EXPECT_THROW(parseTypedArgument("i:"), UsageError);
}

TEST(TypedArgument, TextIsTakenAsItStandsUpTo1023Bytes) {
    const TypedArgument text = parseTypedArgument("s:hello world:1");
    EXPECT_EQ(text.kind, ArgumentKind::Text);
    EXPECT_EQ(text.text, "hello world:1");
    EXPECT_EQ(parseTypedArgument("s:").text, "");
    EXPECT_EQ(parseTypedArgument("s:" + std::string(1023, 'a')).text.size(), 1023u);
    EXPECT_THROW(parseTypedArgument("s:" + std::string(1024, 'a')), UsageError);
}

TEST(TypedArgument, BytesArePairsOfHexDigitsInWireOrder) {
    const TypedArgument block = parseTypedArgument("x:C0ffEE");
    EXPECT_EQ(block.kind, ArgumentKind::Bytes);
    EXPECT_EQ(block.bytes, (Bytes{0xC0, 0xFF, 0xEE}));
    EXPECT_TRUE(parseTypedArgument("x:").bytes.empty());
    EXPECT_THROW(parseTypedArgument("x:ABC"), UsageError);
    EXPECT_THROW(parseTypedArgument("x:GG"), UsageError);
}

TEST(TypedArgument, EveryArgumentNeedsAKnownType) {
    EXPECT_THROW(parseTypedArgument("5"), UsageError);
    EXPECT_THROW(parseTypedArgument("q:1"), UsageError);
    EXPECT_THROW(parseTypedArgument("i5"), UsageError);
}

TEST(SendShape, RunsCountStretchesOfIntegersAndOfPointers) {
    EXPECT_EQ(countRuns({}), 0);
    EXPECT_EQ(countRuns(arguments({"i:1", "i:2", "s:a", "x:00", "i:3"})), 3);
    EXPECT_EQ(countRuns(arguments({"s:a", "x:00"})), 1);
}

TEST(SendShape, UpToEightArgumentsMayComeInAnyOrder) {
    EXPECT_NO_THROW(checkArgumentShape(shape(8, 1)));
    EXPECT_EQ(countRuns(shape(8, 1)), 8);
}

TEST(SendShape, NineOrTenArgumentsMayFormFiveRuns) {
    // Command 47: three ints, a block, four ints, a block, an int.
    EXPECT_NO_THROW(
        checkArgumentShape(arguments({"i:0", "i:80", "i:8", "x:01", "i:0", "i:0", "i:80", "i:8", "x:01", "i:0"})));
    EXPECT_NO_THROW(checkArgumentShape(shape(10, 2)));
    EXPECT_THROW(checkArgumentShape(shape(9, 1)), UsageError);
    EXPECT_THROW(checkArgumentShape(shape(10, 1)), UsageError);
}

TEST(SendShape, ElevenToThirteenArgumentsMayFormTwoRuns) {
    // Command 4 with ten options: two texts, then n and ten ints.
    std::vector<std::string> open = {"s:app", "s:1.0", "i:10"};
    for (int i = 0; i < 10; ++i) open.push_back("i:" + std::to_string(i));
    EXPECT_NO_THROW(checkArgumentShape(arguments(open)));
    EXPECT_NO_THROW(checkArgumentShape(shape(13, 7)));
    EXPECT_THROW(checkArgumentShape(shape(11, 4)), UsageError);
    EXPECT_THROW(checkArgumentShape(shape(14, 14)), UsageError);
}

TEST(SendShape, RefusalNamesTheLimit) {
    try {
        checkArgumentShape(shape(11, 4));
        FAIL() << "11 arguments in 3 runs were accepted";
    } catch (const UsageError& error) {
        EXPECT_STREQ(error.what(),
                     "send: 11 arguments in 3 runs of one kind; 11 arguments may form at most 2 runs (see tetherctl "
                     "send --help)");
    }
}

TEST(Hex, ScanValuesPutBitZeroInBitZeroOfByteZero) {
    EXPECT_EQ(parseScanValue("E", 4), (Bytes{0x0E}));
    EXPECT_EQ(parseScanValue("0x3FFFF", 18), (Bytes{0xFF, 0xFF, 0x03}));
    EXPECT_EQ(parseScanValue("000001", 3), (Bytes{0x01}));
    EXPECT_EQ(parseScanValue("1F", 4), std::nullopt);
    EXPECT_EQ(parseScanValue("", 4), std::nullopt);
    EXPECT_EQ(parseScanValue("XY", 8), std::nullopt);
    EXPECT_EQ(formatScanValue({0x01, 0x41, 0x00}, 18), "04101");
    EXPECT_EQ(formatScanValue({0xFF}, 6), "3F");
    EXPECT_EQ(formatScanValue({}, 8), "00");
}

TEST(Hex, ByteStringsKeepWireOrder) {
    EXPECT_EQ(parseHexBytes("0xDEad01"), (Bytes{0xDE, 0xAD, 0x01}));
    EXPECT_EQ(parseHexBytes("ABC"), std::nullopt);
    EXPECT_EQ(formatHexBytes({0x0E, 0x0D, 0xBE, 0xEF}), "0E0DBEEF");
}

/* The bits a chain scan returns for `registers`, first out first: each
 * IDCODE as 32 bits, a BYPASS register as one 0 bit, then ones. */
Bytes scanOf(const std::vector<std::optional<std::uint32_t>>& fromTdo, int bitCount) {
    Bytes bits(static_cast<std::size_t>(bitCount + 7) / 8, 0xFF);
    int position = 0;
    const auto put = [&](bool bit) {
        const auto at = static_cast<std::size_t>(position++);
        if (!bit) bits[at / 8] = static_cast<unsigned char>(bits[at / 8] & ~(1u << (at % 8)));
    };
    for (const auto& word : fromTdo) {
        if (!word) {
            put(false);
            continue;
        }
        for (int i = 0; i < 32; ++i) put((*word >> i & 1u) != 0);
    }
    return bits;
}

TEST(ChainScan, DevicesComeOutInChainOrderFromTdi) {
    const Bytes bits = scanOf({0x0362D093u, std::nullopt, 0x4BA00477u}, chainScanBits);
    const std::vector<ChainDevice> devices = decodeChain(bits, chainScanBits);
    ASSERT_EQ(devices.size(), 3u);
    EXPECT_EQ(devices[0].idcode, 0x4BA00477u);
    EXPECT_EQ(devices[1].idcode, std::nullopt);
    EXPECT_EQ(devices[2].idcode, 0x0362D093u);
}

TEST(ChainScan, AllOnesIsAnEmptyChain) {
    EXPECT_TRUE(decodeChain(Bytes(chainScanBits / 8, 0xFF), chainScanBits).empty());
}

TEST(ChainScan, TdoStuckAtZeroIsRefused) {
    EXPECT_THROW(decodeChain(Bytes(chainScanBits / 8, 0x00), chainScanBits), std::runtime_error);
}

TEST(ChainScan, ABitStreamThatEndsInsideAnIdcodeIsRefused) {
    EXPECT_THROW(decodeChain(scanOf({0x10A5C1FFu}, 40), 40), std::runtime_error);
}

TEST(ChainScan, IdcodeFieldsAreVersionPartAndManufacturer) {
    const IdcodeFields fields = idcodeFields(0x4BA00477u);
    EXPECT_EQ(fields.version, 0x4u);
    EXPECT_EQ(fields.part, 0xBA00u);
    EXPECT_EQ(fields.manufacturer, 0x23Bu);
    EXPECT_EQ(idcodeText(0x0362D093u), "0x0362D093");
}

TEST(Json, ObjectsKeepTheirOrderAndTextsAreEscaped) {
    Json document;
    document["b"] = 1;
    document["a"] = "x\"y\\\n\x01\xC3";
    document["list"] = Json::Array{};
    document["list"].push(Json(true));
    document["list"].push(Json());
    document["seconds"] = 0.5;
    EXPECT_EQ(document.dump(), "{\"b\":1,\"a\":\"x\\\"y\\\\\\n\\u0001\\u00c3\",\"list\":[true,null],\"seconds\":0.5}");
}

TEST(ProgressBar, FrameShowsBytesRateAndTimeLeft) {
    EXPECT_EQ(ProgressBar::render(std::uint64_t{512} * 1024, std::uint64_t{1024} * 1024, 1.0),
              "[###############---------------]  50%  512.0 KiB / 1.0 MiB  512.0 KiB/s  0:01 left");
    EXPECT_EQ(ProgressBar::render(0, 100, 0.0),
              "[------------------------------]   0%  0 B / 100 B  0 B/s  --:-- left");
    EXPECT_EQ(ProgressBar::render(100, 100, 2.0),
              "[##############################] 100%  100 B / 100 B  50 B/s  0:00 left");
}

TEST(ProgressBar, DrawsNothingWhenNotEnabled) {
    char buffer[256] = {};
    std::FILE* stream = fmemopen(buffer, sizeof buffer, "w");
    ProgressBar bar(stream, 10, false);
    bar.update(5);
    bar.update(10);
    bar.finish();
    std::fclose(stream);
    EXPECT_STREQ(buffer, "");
}

TEST(ProgressBar, EnabledBarRedrawsOnOneLineAndEndsIt) {
    char buffer[512] = {};
    std::FILE* stream = fmemopen(buffer, sizeof buffer, "w");
    ProgressBar bar(stream, 10, true);
    bar.update(0);
    bar.update(10);
    bar.finish();
    std::fclose(stream);
    const std::string drawn = buffer;
    EXPECT_EQ(drawn.rfind("\r[------------------------------]   0%  0 B / 10 B", 0), 0u) << drawn;
    EXPECT_NE(drawn.find("\r[##############################] 100%  10 B / 10 B"), std::string::npos) << drawn;
    EXPECT_EQ(drawn.back(), '\n');
}

TEST(StatusCodes, EachLineNamesTheCodeAndItsMeaning) {
    EXPECT_EQ(statusLine(-1001), "-1001: could not send to the server");
    EXPECT_EQ(statusLine(-1002), "-1002: no answer from the server, or its answer was not an acknowledgement");
    EXPECT_EQ(statusLine(-77), "-77: a status code unknown to this version of tetherctl");
    EXPECT_EQ(serverReplyLine(-3), "-3: no I2C device answers that bus address");
}

TEST(StatusCodes, MinusOneAsAnIntegerReplyNamesBothReadings) {
    EXPECT_EQ(serverReplyLine(-1),
              "-1: the command needs both locks, and this connection does not hold them; or the reply was not an "
              "integer in range: the library reads 9223372036854775807 and every larger number as -1");
}

TEST(StatusCodes, ALockNotGrantedNamesWhatTheServerMayHaveAnswered) {
    EXPECT_EQ(lockAnswerLine(-1),
              "-1: the server refused the lock (it answered 0), or its answer began with -1 (the library reads "
              "only the first two characters of a lock answer)");
    EXPECT_EQ(lockAnswerLine(99),
              "99: the server answered neither 1 (granted) nor 0 (refused); the library reads only the first two "
              "characters of a lock answer");
}

TEST(StatusCodes, OnlyTheLockCommandsResultsOtherThanTransportFailuresAreLockAnswers) {
    EXPECT_EQ(failedSendReading(4, -1), Reading::LockAnswer);
    EXPECT_EQ(failedSendReading(33, -1), Reading::LockAnswer);
    EXPECT_EQ(failedSendReading(33, 99), Reading::LockAnswer);
    EXPECT_EQ(failedSendReading(33, -1002), Reading::LibraryStatus);
    EXPECT_EQ(failedSendReading(4, -1001), Reading::LibraryStatus);
    EXPECT_EQ(failedSendReading(34, -1), Reading::LibraryStatus);
}

TEST(ReplyInteger, TakesAWholeDecimalTextWithinTheRange) {
    EXPECT_EQ(replyInteger("4", 1, 10), 4);
    EXPECT_EQ(replyInteger("-3", -5, 5), -3);
    EXPECT_EQ(replyInteger("2147483647", 1, 2147483647), 2147483647);
    EXPECT_EQ(replyInteger("10", 1, 10), 10);
}

TEST(ReplyInteger, RefusesTextsOutOfRangeOrNotWhollyANumber) {
    EXPECT_EQ(replyInteger("99999999999999999999", 1, 2147483647), std::nullopt);
    EXPECT_EQ(replyInteger("2147483648", 1, 2147483647), std::nullopt);
    EXPECT_EQ(replyInteger("0", 1, 10), std::nullopt);
    EXPECT_EQ(replyInteger("11", 1, 10), std::nullopt);
    EXPECT_EQ(replyInteger("", 1, 10), std::nullopt);
    EXPECT_EQ(replyInteger("7abc", 1, 10), std::nullopt);
    EXPECT_EQ(replyInteger(" 4", 1, 10), std::nullopt);
    EXPECT_EQ(replyInteger("+4", 1, 10), std::nullopt);
}

TEST(StatusCodes, TheTableListsEveryCodeOnce) {
    std::vector<int> codes;
    for (const StatusCode& entry : statusCodes()) codes.push_back(entry.number);
    EXPECT_EQ(codes, (std::vector<int>{0, 1, -1, 1001, -1001, -1002, -1004, -1005, -1008, -1009, -1016, -1017, -1020,
                                       -1021, -1022, -1023}));
}

}  // namespace
}  // namespace tetherctl
