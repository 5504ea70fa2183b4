// The chat, run as its users run it, on hosts of a lab.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <string>

#include "ChildProcess.h"
#include "LabTest.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

// Someone who talks on a host of the lab.
class Person : public ChildProcess {
public:
    Person(const NetworkLab& lab, std::size_t host, const std::string& name, const std::string& group = "239.1.2.3")
        : ChildProcess(MULTICAST_CHAT_PROGRAM, {"--name", name, "--group", group},
                       {std::nullopt, [&lab, host] { return lab.enter(host); }, true})
    {
    }

    bool isThere() const { return waitForOutput("Talking to [^\n]*\n"); }
    // Waits until a line was shown.
    bool sees(const std::string& line) const { return waitForOutput("\n" + line + "\n"); }
};

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
        ++found;
    return found;
}

void expectOrderlyEnd(Person& person)
{
    EXPECT_EQ(person.wait(), 0);
    EXPECT_THAT(person.errors(), IsEmpty());
    EXPECT_THAT(person.output(), Not(HasSubstr("FATAL")));
}

class MulticastChat : public LabTest {
protected:
    MulticastChat() : LabTest({2, 2, 1}) {}
};

}  // namespace

TEST_F(MulticastChat, showsEachLineToAllOthersOnce)
{
    Person ann(lab(), 0, "Ann");
    Person bob(lab(), 1, "Bob");
    Person cid(lab(), 2, "Cid");
    ASSERT_TRUE(ann.isThere() && bob.isThere() && cid.isThere());
    EXPECT_THAT(ann.output(), StartsWith("Talking to 239.1.2.3 port 5000 as Ann, on 2 interfaces; "));

    ann.type("hello everybody\n");
    // A line comes on two ways where there are two, and either may be the first.
    EXPECT_TRUE(bob.sees("Ann \\(10\\.9[01]\\.0\\.1\\): hello everybody"));
    EXPECT_TRUE(cid.sees("Ann \\(10\\.90\\.0\\.1\\): hello everybody"));
    bob.type("hello Ann\n");
    EXPECT_TRUE(ann.sees("Bob \\(10\\.9[01]\\.0\\.2\\): hello Ann"));
    EXPECT_TRUE(cid.sees("Bob \\(10\\.90\\.0\\.2\\): hello Ann"));

    for (Person* const person : {&ann, &bob, &cid}) {
        person->endInput();
        expectOrderlyEnd(*person);
    }
    EXPECT_EQ(count(ann.output(), "hello"), 1U) << ann.output();
    EXPECT_EQ(count(bob.output(), "hello"), 1U) << bob.output();
    EXPECT_EQ(count(cid.output(), "hello"), 2U) << cid.output();
}

TEST_F(MulticastChat, readsLinesHoweverTheyCome)
{
    Person ann(lab(), 0, "Ann");
    Person bob(lab(), 1, "Bob");
    ASSERT_TRUE(ann.isThere() && bob.isThere());

    ann.type("in two ");
    ann.type("pieces\ntwo at\n\nonce\nthe last without a newline");
    ann.endInput();
    expectOrderlyEnd(ann);
    for (const char* const line : {"in two pieces", "two at", "once", "the last without a newline"})
        EXPECT_TRUE(bob.sees(std::string("Ann \\([0-9.]+\\): ") + line));
    bob.signal(SIGINT);
    expectOrderlyEnd(bob);
    EXPECT_EQ(count(bob.output(), "Ann"), 4U) << bob.output();
}

TEST_F(MulticastChat, sendsAsMuchAsAPipeHoldsWhoseWriterIsGone)
{
    Person ann(lab(), 0, "Ann");
    Person bob(lab(), 1, "Bob");
    ASSERT_TRUE(ann.isThere() && bob.isThere());
    ann.pause();
    for (int number = 0; number < 20; ++number)  // no more than the sockets of the other one hold
        ann.type(std::to_string(number) + std::string(1000, '.') + "\n");
    ann.endInput();
    ann.resume();
    expectOrderlyEnd(ann);
    EXPECT_TRUE(bob.sees("Ann \\([0-9.]+\\): 19\\.+"));
    bob.signal(SIGTERM);
    expectOrderlyEnd(bob);
    EXPECT_EQ(count(bob.output(), "Ann"), 20U);
}

TEST_F(MulticastChat, letsTwoOnOneHostTalk)
{
    Person ann(lab(), 0, "Ann");
    Person bob(lab(), 0, "Bob");
    ASSERT_TRUE(ann.isThere() && bob.isThere());
    bob.type("next door\n");
    EXPECT_TRUE(ann.sees("Bob \\([0-9.]+\\): next door"));
    for (Person* const person : {&ann, &bob}) {
        person->signal(SIGINT);
        expectOrderlyEnd(*person);
    }
}

// Also not where somebody else on the same host is in the group.
TEST_F(MulticastChat, isNotHeardByAnotherGroup)
{
    Person ann(lab(), 0, "Ann");
    Person bob(lab(), 2, "Bob", "239.9.9.9");
    Person cid(lab(), 2, "Cid");
    ASSERT_TRUE(ann.isThere() && bob.isThere() && cid.isThere());
    ann.type("secret\n");
    EXPECT_TRUE(cid.sees("Ann \\([0-9.]+\\): secret"));
    for (Person* const person : {&ann, &bob, &cid}) {
        person->signal(SIGTERM);
        expectOrderlyEnd(*person);
    }
    EXPECT_THAT(bob.output(), Not(HasSubstr("secret")));
}

TEST_F(MulticastChat, showsNothingThatCommandsATerminal)
{
    Person ann(lab(), 0, "Ann");
    Person bob(lab(), 1, "Bob");
    ASSERT_TRUE(ann.isThere() && bob.isThere());
    ann.type("red \033[31m or not\n");
    EXPECT_TRUE(bob.sees("Ann \\([0-9.]+\\): red \\?\\[31m or not"));
    for (Person* const person : {&ann, &bob}) {
        person->signal(SIGTERM);
        expectOrderlyEnd(*person);
    }
}

TEST_F(MulticastChat, saysThatThereIsNoInterface)
{
    const NetworkLab lonely({0});
    ASSERT_EQ(lonely.reason(), "");
    Person ann(lonely, 0, "Ann");
    EXPECT_EQ(ann.wait(), 2);
    EXPECT_EQ(ann.errors(), "multicast_chat: this machine has no network interface to talk on\n");
    EXPECT_THAT(ann.output(), IsEmpty());
}

TEST(MulticastChatCommandLine, refusesWhatItCannotUse)
{
    const ChildProcess::Arguments wrong[] = {
        {},
        {"--name", ""},
        {"--name", std::string(33, 'x')},
        {"--name", "two\nlines"},
        {"--name", "Ann", "--group", "10.1.2.3"},
        {"--name", "Ann", "--group", "ff02::1"},
        {"--name", "Ann", "--port", "0"},
        {"--name", "Ann", "--port", "65536"},
        {"--name", "Ann", "--unknown"},
    };
    for (const ChildProcess::Arguments& arguments : wrong) {
        ChildProcess chat(MULTICAST_CHAT_PROGRAM, arguments);
        EXPECT_EQ(chat.wait(), 2);
        EXPECT_THAT(chat.errors(), Not(IsEmpty()));
        EXPECT_THAT(chat.output(), IsEmpty());
    }
}

TEST(MulticastChatCommandLine, explainsItself)
{
    ChildProcess chat(MULTICAST_CHAT_PROGRAM, {"--help"});
    EXPECT_EQ(chat.wait(), 0);
    EXPECT_THAT(chat.output(), HasSubstr("--group"));
    EXPECT_THAT(chat.errors(), IsEmpty());
}
