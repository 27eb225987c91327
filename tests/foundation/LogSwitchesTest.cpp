// SPDX-License-Identifier: MIT
/* The debug switch and the log file of a Client. */
#include <sys/stat.h>

#include <fstream>

#include <gtest/gtest.h>

#include "Client.h"
#include "MessageLog.h"
#include "StderrCapture.h"

using tetherhost::test::MessageLog;
using Lines = std::vector<std::string>;

namespace {
std::string fileText(const std::string& path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), {});
}
}  // namespace

TEST(DebugSwitch, OnTwicePosts1100BothTimesAnd1035TheSecondTime) {
    MessageLog log;
    Client client(const_cast<char*>("c1"));
    log.attach(client);
    StderrCapture catalogue;
    EXPECT_EQ(client.Set_Debug_On(), 0);
    EXPECT_EQ(client.Set_Debug_On(), 0);
    EXPECT_EQ(log.identifiers(), Lines({"1100", "1100", "1035"}));
    // The first "1100" obeys the old setting (off); the second call's
    // messages reach the catalogue too.
    EXPECT_EQ(catalogue.text(),
              "tetherhostclient 1100: 1100 c1: switching debug output on\n"
              "tetherhostclient 1035: 1035 c1: debug output is already on\n");
}

TEST(DebugSwitch, OffOnAFreshClientPosts1101Then1036) {
    MessageLog log;
    Client client(const_cast<char*>("c1"));
    log.attach(client);
    EXPECT_EQ(client.Set_Debug_Off(), 0);
    EXPECT_EQ(log.identifiers(), Lines({"1101", "1036"}));
}

TEST(DebugSwitch, OffAfterOnReachesTheCatalogueOnceMore) {
    Client client(const_cast<char*>("c1"));
    client.Set_Debug_On();
    StderrCapture catalogue;
    client.Set_Debug_Off();
    client.ValidClient();
    EXPECT_EQ(catalogue.text(), "tetherhostclient 1101: 1101 c1: switching debug output off\n");
}

TEST(DebugSwitch, SwitchesLeaveTheStatusAlone) {
    Client client(const_cast<char*>("c1"));
    client.SetClientStatus(-7);
    client.Set_Debug_On();
    client.Set_Debug_Off();
    EXPECT_EQ(client.GetClientStatus(), -7);
}

TEST(LogFile, SetLogFileTruncatesAnExistingFile) {
    MessageLog log;
    std::ofstream(log.path()) << "old contents\n";
    Client client(const_cast<char*>("c1"));
    EXPECT_EQ(client.Set_Log_File(log.path().c_str()), 0);
    EXPECT_EQ(fileText(log.path()), "");
}

TEST(LogFile, FirstLineIsTheNextMessagePosted) {
    MessageLog log;
    Client client(const_cast<char*>("c1"));
    log.attach(client);
    client.ValidClient();
    EXPECT_EQ(fileText(log.path()), "1088 c1: the client has a name and is valid\n");
}

TEST(LogFile, UnopenablePathReturnsMinusOneAndTurnsLoggingOff) {
    MessageLog log;
    Client client(const_cast<char*>("c1"));
    log.attach(client);
    client.SetClientStatus(3);
    EXPECT_EQ(client.Set_Log_File("/nonexistent-dir/x/client.log"), -1);
    EXPECT_EQ(client.GetClientStatus(), 3);
    client.ValidClient();
    EXPECT_EQ(log.identifiers(), Lines({"1099"})) << "the old file got only the entry message";
    struct stat info;
    EXPECT_NE(stat("/nonexistent-dir/x/client.log", &info), 0);
}

TEST(LogFile, EmptyNameKeepsTheOldFileAndPosts1029) {
    MessageLog log;
    Client client(const_cast<char*>("c1"));
    log.attach(client);
    EXPECT_EQ(client.Set_Log_File(""), -1016);
    EXPECT_EQ(client.GetClientStatus(), -1016);
    client.ValidClient();
    EXPECT_EQ(log.identifiers(), Lines({"1099", "1029", "1088"}));
}

TEST(LogFile, EmptyNameWithoutALogFileStaysSilent) {
    MessageLog log;
    Client client(const_cast<char*>("c1"));
    EXPECT_EQ(client.Set_Log_File(""), -1016);
    EXPECT_EQ(client.GetClientStatus(), -1016);
    EXPECT_EQ(client.Get_Log_file(), -1016);
}

TEST(LogFile, SwitchingFilesLeavesTheOldOneEndingWith1099) {
    MessageLog first;
    MessageLog second;
    Client client(const_cast<char*>("c1"));
    first.attach(client);
    client.ValidClient();
    second.attach(client);
    client.ValidClient();
    EXPECT_EQ(first.identifiers(), Lines({"1088", "1099"}));
    EXPECT_EQ(second.identifiers(), Lines({"1088"}));
}

TEST(LogFile, GetLogFileOnAFreshClientIsMinus1016With1032) {
    MessageLog log;
    Client client(const_cast<char*>("c1"));
    EXPECT_EQ(client.Get_Log_file(), -1016);
    EXPECT_EQ(client.GetClientStatus(), -1016);
}

TEST(LogFile, GetLogFileWithAFileSetIsMinus1017With1033) {
    MessageLog log;
    Client client(const_cast<char*>("c1"));
    log.attach(client);
    EXPECT_EQ(client.Get_Log_file(), -1017);
    EXPECT_EQ(client.GetClientStatus(), -1017);
    EXPECT_EQ(log.lines(), Lines({"1033 c1: a log file is set but its detail text is empty"}));
}

TEST(LogFile, GetLogFilePosts1032ToTheCatalogueWhenNoFileIsSet) {
    Client client(const_cast<char*>("c1"));
    client.Set_Debug_On();
    StderrCapture catalogue;
    client.Get_Log_file();
    EXPECT_EQ(catalogue.text(), "tetherhostclient 1032: 1032 c1: no log file is set\n");
}
