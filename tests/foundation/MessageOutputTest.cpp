// SPDX-License-Identifier: MIT
/* Posting numbered messages: template filling, the log line, the catalogue
 * path and the switches, with a test catalogue (found through NLSPATH) whose
 * templates exercise one filling rule each. */
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>

#include <gtest/gtest.h>

#include "Client.h"
#include "ClientUtils.h"
#include "MessageLog.h"
#include "StderrCapture.h"

using tetherhost::test::logMarker;
using tetherhost::test::MessageLog;
using Lines = std::vector<std::string>;

namespace {
char* text(const char* literal) { return const_cast<char*>(literal); }
}  // namespace

TEST(MessageOutput, CatalogueFoundThroughNlspathReplacesTheBuiltInTexts) {
    MessageLog log;
    Client client(text("clientA"));
    log.attach(client);
    client.PrintMessage("1001", text("clientA"), 42);
    EXPECT_EQ(log.lines(), Lines({"clientA: sent 42"}));
}

TEST(MessageOutput, DollarPairBeforeAnotherCharacterIsCopiedAndConsumesNothing) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    client.PrintMessage("1002", text("A"));
    EXPECT_EQ(log.lines(), Lines({"$$x A"}));
}

TEST(MessageOutput, ThreeDollarsBeforeSCopyTheFirstDollar) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    client.PrintMessage("1004", text("A"));
    EXPECT_EQ(log.lines(), Lines({"$A"}));
}

TEST(MessageOutput, TrailingDollarsAreCopiedAsTheyStand) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    client.PrintMessage("1006", text("A"));
    client.PrintMessage("1007", text("B"));
    EXPECT_EQ(log.lines(), Lines({"A ends with $", "B ends with $$"}));
}

TEST(MessageOutput, NegativeNumberIsWrittenWithItsSign) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    client.PrintMessage("1008", -5);
    client.PrintMessage("1008", -2147483647 - 1);
    EXPECT_EQ(log.lines(), Lines({"value -5", "value -2147483648"}));
}

TEST(MessageOutput, NullTextArgumentIsWrittenAsTheEmptyText) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    client.PrintMessage("1009", static_cast<char*>(nullptr), text("B"));
    EXPECT_EQ(log.lines(), Lines({" and B"}));
}

TEST(MessageOutput, UnknownIdentifierAppendsAnEmptyLine) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    client.PrintMessage("9998", text("c"));
    std::ifstream in(log.path());
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "\n");
}

TEST(MessageOutput, NothingIsWrittenWithBothSwitchesOff) {
    Client client(text("c"));
    StderrCapture catalogue;
    client.PrintMessage("1001", text("c"), 1);
    EXPECT_EQ(catalogue.text(), "");
}

TEST(MessageOutput, DebugFlagOtherThanOneCountsAsOff) {
    MessageLog log;
    StderrCapture catalogue;
    ClientUtils withoutLog(2, nullptr, "c", "");
    withoutLog.PrintMessage("1001", text("c"), 1);
    ClientUtils withLog(2, logMarker(), "c", log.path());
    withLog.PrintMessage("1001", text("c"), 2);
    EXPECT_EQ(catalogue.text(), "");
    EXPECT_EQ(log.lines(), Lines({"c: sent 2"}));
}

TEST(MessageOutput, BothSwitchesOnClientMessageReachesCatalogueAndLog) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    client.Set_Debug_On();
    log.clear();
    StderrCapture catalogue;
    client.PrintMessage("1001", text("clientA"), 42);
    EXPECT_EQ(catalogue.text(), "tetherhostclient 1001: clientA: sent 42\n");
    // The catalogue read its own copy of the arguments: the log line shows
    // the message's own arguments, not the ones after them.
    EXPECT_EQ(log.lines(), Lines({"clientA: sent 42"}));
}

TEST(MessageOutput, BothSwitchesOnClientUtilsMessageReachesTheCatalogueOnly) {
    MessageLog log;
    StderrCapture catalogue;
    ClientUtils utils(1, logMarker(), "c", log.path());
    utils.PrintMessage("1001", text("clientA"), 42);
    EXPECT_EQ(catalogue.text(), "tetherhostclient 1001: clientA: sent 42\n");
    EXPECT_TRUE(log.lines().empty());
}

TEST(MessageOutput, ClientUtilsWithALogFileAppendsTheLine) {
    MessageLog log;
    ClientUtils utils(0, logMarker(), "c", log.path());
    utils.PrintMessage("1001", text("clientB"), 7);
    EXPECT_EQ(log.lines(), Lines({"clientB: sent 7"}));
}

TEST(MessageOutput, DefaultClientUtilsPostsNothing) {
    StderrCapture catalogue;
    ClientUtils utils;
    utils.PrintMessage("1001", text("c"), 1);
    EXPECT_EQ(catalogue.text(), "");
}

TEST(MessageOutput, LogFileRemovedBetweenMessagesIsCreatedAgain) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    client.PrintMessage("1008", 1);
    ASSERT_EQ(std::remove(log.path().c_str()), 0);
    client.PrintMessage("1008", 2);
    EXPECT_EQ(log.lines(), Lines({"value 2"}));
}

TEST(MessageOutput, LogFileThatCannotBeReopenedIsSkippedAndLoggingStops) {
    MessageLog log;
    Client client(text("c"));
    log.attach(client);
    ASSERT_EQ(std::remove(log.path().c_str()), 0);
    ASSERT_EQ(mkdir(log.path().c_str(), 0700), 0);  // a directory cannot be opened for appending
    client.PrintMessage("1008", 1);
    ASSERT_EQ(rmdir(log.path().c_str()), 0);
    client.PrintMessage("1008", 2);
    std::ifstream in(log.path());
    EXPECT_FALSE(in.good()) << "logging stays off until the next Set_Log_File";
}
