// The host in plain C, run as a newcomer runs it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "ChildProcess.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(CHost, hasEachLetterAnsweredInOrder)
{
    ChildProcess host(C_HOST_PROGRAM, {});

    EXPECT_EQ(host.wait(), 0) << host.output();
    EXPECT_THAT(host.errors(), IsEmpty());
    EXPECT_THAT(host.output(), HasSubstr("clerk: \"one\" has arrived\n"
                                         "clerk: \"two\" has arrived\n"
                                         "clerk: \"three\" has arrived\n"
                                         "host: 0 answers before the loop turned\n"));
    EXPECT_THAT(host.output(), EndsWith("host: answer to \"one\"\n"
                                        "host: answer to \"two\"\n"
                                        "host: answer to \"three\"\n"
                                        "host: all letters were answered\n"));
}

}  // namespace
