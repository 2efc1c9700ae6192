#include "app/StorageNames.h"

#include <gtest/gtest.h>

TEST(StorageNames, AreFormedWithTheUserNameAsItIs) {
    const std::string user = " J\xC3\xB6rg %#.";
    EXPECT_EQ(StorageNames::clipList(user), "." + user + "_Quillery.txt");
    EXPECT_EQ(StorageNames::username(user), user + "_Username.txt");
    EXPECT_EQ(StorageNames::password(user), user + "_Password.txt");
    EXPECT_EQ(StorageNames::fullname(user), user + "_Fullname.txt");
    EXPECT_EQ(StorageNames::email(user), user + "_Email.txt");
    EXPECT_EQ(StorageNames::contacts(user), user + "_Contacts.txt");
    EXPECT_EQ(StorageNames::shared(user), user + "_shared.txt");
    EXPECT_EQ(StorageNames::localClipList("/home/u"), "/home/u/Documents/.Quillery.txt");
}
