// SPDX-License-Identifier: MIT
/* The Client object: construction, accessors, ValidClient, destruction. */
#include <gtest/gtest.h>

#include "Client.h"
#include "MessageLog.h"
#include "platform/msgManager.h"

using tetherhost::test::MessageLog;

TEST(ClientObject, DefaultClientIsInvalidAndPosts1087) {
    MessageLog log;
    Client client;
    log.attach(client);
    EXPECT_EQ(client.ValidClient(), 0);
    EXPECT_EQ(log.lines(), std::vector<std::string>({"1087 client name '' is empty, the client is not valid"}));
    EXPECT_EQ(client.GetClientSocket(), -1);
    EXPECT_EQ(client.GetClientStatus(), 0);
}

TEST(ClientObject, NamedClientIsValidAndPosts1088WithItsName) {
    MessageLog log;
    Client client(const_cast<char*>("board1"));
    log.attach(client);
    EXPECT_EQ(client.ValidClient(), 1);
    EXPECT_EQ(log.lines(), std::vector<std::string>({"1088 board1: the client has a name and is valid"}));
}

TEST(ClientObject, ValidClientLeavesTheStatusAlone) {
    Client client(const_cast<char*>("board1"));
    client.SetClientStatus(-1002);
    client.ValidClient();
    EXPECT_EQ(client.GetClientStatus(), -1002);
}

TEST(ClientObject, SetClientStatusStoresAnyValue) {
    Client client;
    client.SetClientStatus(-1002);
    EXPECT_EQ(client.GetClientStatus(), -1002);
    client.SetClientStatus(5);
    EXPECT_EQ(client.GetClientStatus(), 5);
}

TEST(ClientObject, NewClientPostsNothingUntilAsked) {
    MessageLog log;
    Client client(const_cast<char*>("quiet"));
    log.attach(client);
    EXPECT_TRUE(log.lines().empty());
}

TEST(ClientObject, DestructorFinishesTheCatalogueLogOnceAndPostsNothing) {
    MessageLog log;
    const unsigned long finishedBefore = msgManager::finishedLogCount();
    {
        Client client(const_cast<char*>("board1"));
        log.attach(client);
    }
    EXPECT_EQ(msgManager::finishedLogCount(), finishedBefore + 1);
    EXPECT_TRUE(log.lines().empty());
}
