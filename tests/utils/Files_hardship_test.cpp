// Files and directories where things go wrong for real: a full disk, no free descriptor, files that others change, and
// paths that lead astray.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Application.h>
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include "FreshProcess.h"
#include "FullDescriptorTable.h"
#include "OnlyWithin.h"
#include "TemporaryFolder.h"

namespace {

using Murn::Dir;
using Murn::File;

// Mounts a disk of 64 kB on a folder, for this process alone. Returns whether it may.
bool mountSmallDisk(const std::string& path)
{
    return ::unshare(CLONE_NEWNS) == 0 && ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("kxpal-test", path.c_str(), "tmpfs", 0, "size=64k") == 0;
}

// Whether there can be such a disk; tried in a child.
bool canMount()
{
    const TemporaryFolder folder;
    const pid_t child = ::fork();
    if (child == 0)
        ::_exit(mountSmallDisk(folder.path()) ? 0 : 1);
    int status = 0;
    return ::waitpid(child, &status, 0) == child && status == 0;
}

class FullDiskTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!canMount())
            GTEST_SKIP() << "this user may not mount a disk";
    }

    // Takes all room that is left. Returns the file that has it.
    static std::string fill(const std::string& folder)
    {
        std::ofstream filling(folder + "/filling", std::ios::binary);
        filling.rdbuf()->pubsetbuf(nullptr, 0);
        const std::string piece(4096, '#');
        while (filling.write(piece.data(), 4096)) {
        }
        return folder + "/filling";
    }
};

TEST_F(FullDiskTest, keepsEveryByteOfAFileThatNothingCanBePutInto)
{
    EXPECT_IN_FRESH_PROCESS({
        const TemporaryFolder folder;
        ASSERT_TRUE(mountSmallDisk(folder.path()));
        std::string bytes;
        for (int line = 0; line < 3000; ++line)
            bytes += std::to_string(line) + "\n";
        File file(folder.makeFile("file", bytes));
        ASSERT_TRUE(file.open(File::ReadWriteBinary));
        const std::string filling = fill(folder.path());
        const std::string data(20000, '+');
        EXPECT_EQ(file.insert(5, data.data(), 20000), -1);
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(file.size(), static_cast<long>(bytes.size()) + 20000);
        const std::string after = folder.bytesOf("file");
        EXPECT_TRUE(after.substr(0, bytes.size()) == bytes) << "the room is at the end";
        // With room on the disk everything goes on.
        EXPECT_TRUE(File(filling).removeFile());
        EXPECT_TRUE(file.resize(static_cast<long>(bytes.size())));
        EXPECT_EQ(file.insert(5, data.data(), 20000), 20000);
        file.close();
        EXPECT_TRUE(folder.bytesOf("file") == bytes.insert(5, data));
    });
}

TEST_F(FullDiskTest, tellsOnceThatWhatWaitedIsLost)
{
    EXPECT_IN_FRESH_PROCESS({
        const TemporaryFolder folder;
        ASSERT_TRUE(mountSmallDisk(folder.path()));
        File file(folder.makeFile("file", "0123456789"));
        ASSERT_TRUE(file.open(File::ReadWriteBinary));
        const std::string filling = fill(folder.path());
        EXPECT_EQ(file.write("abc", 3, 5000), 3) << "behind the one page of the file";
        EXPECT_FALSE(file.flush());
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_TRUE(file.flush()) << "nothing waits any more";
        EXPECT_EQ(file.size(), 10);
        EXPECT_EQ(file.write("abc", 3, 5000), 3);
        char buffer[4] = {};
        EXPECT_EQ(file.read(buffer, 3, 0), -1) << "and so do other operations";
        EXPECT_EQ(errno, ENOSPC);
        EXPECT_EQ(file.read(buffer, 3, 0), 3);
        EXPECT_TRUE(File(filling).removeFile());
        EXPECT_EQ(file.write("abc", 3, 5000), 3);
        EXPECT_TRUE(file.flush());
        EXPECT_EQ(file.size(), 5003);
    });
}

TEST(FullDescriptorTableTest, letsFilesBeAndTakesThemUpAgain)
{
    const TemporaryFolder folder;
    File file(folder.makeFile("file", "0123456789"));
    File other(folder.path("other"));
    const Dir dir(folder.path());
    char buffer[4] = {};
    ASSERT_TRUE(file.open(File::ReadWriteBinary));
    {
        const FullDescriptorTable full;
        EXPECT_EQ(file.read(buffer, 3, 0), -1);
        EXPECT_EQ(errno, EMFILE);
        EXPECT_EQ(file.insert(3, "abc", 3), -1);
        EXPECT_FALSE(file.erase(3, 3));
        EXPECT_FALSE(other.exists());
        EXPECT_FALSE(other.create());
        EXPECT_EQ(errno, EMFILE);
        EXPECT_TRUE(dir.entries().empty());  // no matcher: the sanitizer takes a descriptor to look at a new type
        EXPECT_TRUE(dir.exists());
        EXPECT_EQ(file.write("x", 1, 9), 1);
        EXPECT_TRUE(file.flush());
    }
    EXPECT_EQ(folder.bytesOf("file"), "012345678x");
    EXPECT_EQ(file.insert(3, "abc", 3), 3);
    EXPECT_TRUE(other.create());
}

TEST(VanishedFileTest, canStillBeWrittenButNotMeasured)
{
    const TemporaryFolder folder;
    File file(folder.makeFile("file", "0123456789"));
    ASSERT_TRUE(file.open(File::ReadWriteBinary));
    std::filesystem::remove(folder.path("file"));
    char buffer[4] = {};
    EXPECT_FALSE(file.exists());
    EXPECT_EQ(file.size(), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(file.read(buffer, 3, 0), -1);
    EXPECT_EQ(file.insert(3, "abc", 3), -1);
    EXPECT_FALSE(file.erase(3, 3));
    EXPECT_FALSE(file.setPos(0));
    EXPECT_FALSE(file.atEnd());
    EXPECT_EQ(file.write("abc", 3, 0), 3);
    EXPECT_TRUE(file.flush());
    EXPECT_TRUE(file.resize(3));
}

TEST(GrowingFileTest, isReadOnWhereItEndedBefore)
{
    const TemporaryFolder folder;
    File file(folder.makeFile("file", "abc"));
    ASSERT_TRUE(file.open(File::ReadOnly));
    char buffer[4] = {};
    EXPECT_EQ(file.read(buffer, 4, -1), 3) << "the end was seen";
    std::ofstream(folder.path("file"), std::ios::app) << "def";
    EXPECT_EQ(file.read(buffer, 3, -1), 3);
    EXPECT_EQ(std::string(buffer, 3), "def");
}

// The stream holds bytes that it read ahead, and others that it has yet to write.
TEST(ResizedFileTest, isReadAsItIsOnTheDisk)
{
    const std::string bytes(8000, 'o');
    for (const long size : {50L, 104L, 3000L, 9000L}) {
        const TemporaryFolder folder;
        File file(folder.makeFile("file", bytes));
        ASSERT_TRUE(file.open(File::ReadWriteBinary));
        std::string buffer(4000, '\0');
        ASSERT_EQ(file.read(buffer.data(), 4000, 0), 4000);
        ASSERT_EQ(file.write("abc", 3, 100), 3);
        ASSERT_TRUE(file.resize(size));
        EXPECT_EQ(file.size(), size) << "what waits does not count yet";
        ASSERT_TRUE(file.flush());
        std::string expected = bytes.substr(0, static_cast<std::size_t>(size));
        expected.resize(static_cast<std::size_t>(std::max(size, 103L)));
        expected.replace(100, 3, "abc");
        EXPECT_TRUE(folder.bytesOf("file") == expected) << size;
        buffer.resize(expected.size());
        EXPECT_EQ(file.read(buffer.data(), file.size(), 0), file.size());
        EXPECT_TRUE(buffer == expected) << size;
    }
}

// A program in a folder, started by the name that the test gives it.
class ProgramFolderTest : public ::testing::Test {
protected:
    void startAs(const std::string& name)
    {
        _name = name;
        char* arguments[] = {_name.data(), nullptr};
        _application.emplace(1, arguments);
    }

    const TemporaryFolder _folder;
    const std::string _home = _folder.makeDirectory("home");
    const std::string _program = _folder.makeFile("home/program");
    const OnlyWithin _guard{_folder};

private:
    std::string _name;
    std::optional<Murn::Application> _application;
};

TEST_F(ProgramFolderTest, isEmptiedByTheRemovalOfNothing)
{
    _folder.makeDirectory("home/sub");
    _folder.makeFile("home/sub/file");
    startAs(_program);
    Dir dir;
    EXPECT_FALSE(dir.removeDir("")) << "the empty path itself names nothing that could be removed";
    EXPECT_EQ(dir.path(), _home);
    EXPECT_TRUE(std::filesystem::is_empty(_home));
}

TEST_F(ProgramFolderTest, isRemovedByADirWithoutAPath)
{
    _folder.makeFile("home/file");
    startAs(_program);
    Dir dir;
    EXPECT_TRUE(dir.remove());
    EXPECT_EQ(dir.path(), _folder.path());
    EXPECT_FALSE(std::filesystem::exists(_home));
}

TEST_F(ProgramFolderTest, keepsWhatStandsBehindADirectoryWithABackslash)
{
    startAs(_program);
    _folder.makeDirectory("home/tree");
    _folder.makeDirectory("home/tree/x\\y");
    {
        Dir dir;
        EXPECT_TRUE(dir.removeDir(_folder.path("home/tree"))) << "with nothing beside it";
        EXPECT_EQ(dir.path(), _folder.path("home/tree")) << "and not above it";
    }
    _folder.makeDirectory("home/tree");
    _folder.makeDirectory("home/tree/x\\y");
    _folder.makeDirectory("home/tree/x\\z");
    Dir dir;
    EXPECT_FALSE(dir.removeDir(_folder.path("home/tree")));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(_folder.path("home/tree")), {}), 1);
}

TEST_F(ProgramFolderTest, isTheWrongPlaceForAProgramWithARelativeName)
{
    std::filesystem::current_path(_folder.path());
    startAs("home/program");
    Dir dir("sub");
    EXPECT_EQ(dir.path(), "home/sub");
    EXPECT_FALSE(dir.createDir("child"));
    EXPECT_TRUE(Dir().createDir("sub"));
    EXPECT_TRUE(std::filesystem::is_directory(_folder.path("home/sub")));
    EXPECT_FALSE(Dir("a/b").create());

    _folder.makeFile("home/sub/file");
    _folder.makeDirectory("home/sub/deep");
    _folder.makeFile("home/sub/deep/file");
    EXPECT_FALSE(dir.removeDir("sub"));
    EXPECT_TRUE(std::filesystem::exists(_folder.path("home/sub/deep/file")));
}

}  // namespace
