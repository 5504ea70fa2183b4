// The program that lists directories, run as its users run it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "ChildProcess.h"
#include "TemporaryFolder.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

TEST(Tree, listsWhatIsBelowWithKindsSizesAndTimes)
{
    const TemporaryFolder folder;
    folder.makeDirectory("b");
    folder.makeFile("b/in b", "12345");
    folder.makeDirectory("b/empty");
    folder.makeFile("a", "");
    ASSERT_EQ(::mkfifo(folder.path("c").c_str(), S_IRUSR), 0);
    ASSERT_EQ(::symlink("nothing", folder.path("d").c_str()), 0);
    ASSERT_EQ(::symlink("..", folder.path("b/up").c_str()), 0);
    ASSERT_TRUE(Murn::File(folder.path("a")).setLastModifiedTime(0));
    ASSERT_TRUE(Murn::File(folder.path("b/in b")).setLastModifiedTime(946684799));
    ASSERT_TRUE(Murn::File(folder.path("c")).setLastModifiedTime(1));
    ASSERT_TRUE(Murn::Dir(folder.path("b/empty")).setLastModifiedTime(2));
    ASSERT_TRUE(Murn::Dir(folder.path("b")).setLastModifiedTime(3));

    ChildProcess tree(TREE_PROGRAM, {folder.path() + "/"});
    EXPECT_EQ(tree.wait(), 0) << tree.errors();
    EXPECT_THAT(tree.errors(), IsEmpty());
    EXPECT_EQ(tree.output(), folder.path() +
                                 "\n"
                                 "file                 0  1970-01-01 00:00:00  a\n"
                                 "directory            -  1970-01-01 00:00:03  b/\n"
                                 "directory            -  1970-01-01 00:00:02    empty/\n"
                                 "file                 5  1999-12-31 23:59:59    in b\n"
                                 "link                 -  -                      up -> ..\n"
                                 "other                -  1970-01-01 00:00:01  c\n"
                                 "link                 -  -                    d -> nothing\n"
                                 "2 directories, 2 files, 2 links, 1 others\n");
}

TEST(Tree, listsTheWorkingDirectoryUnlessTold)
{
    const TemporaryFolder folder;
    folder.makeDirectory("below");
    folder.makeFile("below/file\n\x1b");
    ASSERT_EQ(::chdir(folder.path().c_str()), 0);
    ChildProcess here(TREE_PROGRAM, {});
    ChildProcess below(TREE_PROGRAM, {"below"});
    EXPECT_EQ(here.wait(), 0);
    EXPECT_EQ(below.wait(), 0);
    EXPECT_THAT(here.output(), EndsWith("  below/\n" + here.output().substr(here.output().find("file "))));
    EXPECT_THAT(here.output(), EndsWith("1 directories, 1 files, 0 links, 0 others\n"));
    EXPECT_THAT(below.output(), HasSubstr(folder.path("below") + "\n"));
    EXPECT_THAT(below.output(), HasSubstr("  file??\n")) << "nothing that a terminal obeys";
}

TEST(Tree, saysWhatItCannotList)
{
    const TemporaryFolder folder;
    for (const std::string& path : {folder.path("missing"), folder.makeFile("file")}) {
        ChildProcess tree(TREE_PROGRAM, {path});
        EXPECT_EQ(tree.wait(), 2);
        EXPECT_THAT(tree.output(), IsEmpty());
        EXPECT_THAT(tree.errors(), HasSubstr("tree: " + path + ": "));
    }
    ChildProcess unknown(TREE_PROGRAM, {"--unknown"});
    EXPECT_EQ(unknown.wait(), 2);
    EXPECT_THAT(unknown.errors(), HasSubstr("usage: tree"));
}

}  // namespace
