// Files: what they ask of the system, and what comes of its failures.
#include <gtest/gtest.h>
#include <kxPAL/File.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <limits>
#include <string>
#include <vector>

#include "InterposeFiles.h"
#include "OnlyWithin.h"
#include "TemporaryFolder.h"

namespace {

using Murn::File;
using Calls = std::vector<std::string>;

// Fails as a function that returns a stream does.
auto noStream(int error)
{
    return [error](auto*, auto...) -> FILE* {
        errno = error;
        return nullptr;
    };
}

class FileFaultTest : public ::testing::Test {
protected:
    TemporaryFolder _folder;
    OnlyWithin _guard{_folder};
    const std::string _path = _folder.makeFile("file", "0123456789");
    File _file{_path};
};

TEST_F(FileFaultTest, asksForTheStreamOfItsMode)
{
    for (const auto& [mode, text] : {std::pair(File::ReadOnly, "r"), std::pair(File::ReadWrite, "r+"),
                                     std::pair(File::ReadOnlyBinary, "rb"), std::pair(File::ReadWriteBinary, "rb+")}) {
        Calls modes;
        {
            const Interposed noted(interpose::fopen, [&](auto real, const char* path, const char* asked) {
                modes.push_back(std::string(path) + " " + asked);
                return real(path, asked);
            });
            EXPECT_TRUE(_file.open(mode));
        }
        EXPECT_EQ(modes, (Calls{_path + " r", _path + " " + text})) << "first whether it exists";
        _file.close();
    }
}

TEST_F(FileFaultTest, staysClosedWhenTheSystemRefusesToOpenIt)
{
    const Interposed failing(interpose::fopen, [](auto real, const char* path, const char* mode) -> FILE* {
        if (mode == std::string("r"))
            return real(path, mode);
        errno = EACCES;
        return nullptr;
    });
    EXPECT_FALSE(_file.open(File::ReadWrite));
    EXPECT_EQ(errno, EACCES);
    EXPECT_FALSE(_file.flush());
    EXPECT_TRUE(_file.removeFile()) << "it is not open";
}

TEST_F(FileFaultTest, countsAsAbsentWhenItCannotBeRead)
{
    const Interposed failing(interpose::fopen, noStream(EACCES));
    EXPECT_FALSE(_file.exists());
    EXPECT_FALSE(_file.open(File::ReadOnly));
    EXPECT_EQ(_file.size(), -1);
}

TEST_F(FileFaultTest, closesWhatItOpensToLook)
{
    int open = 0;
    const Interposed opening(interpose::fopen, [&](auto real, const char* path, const char* mode) {
        FILE* const stream = real(path, mode);
        open += stream != nullptr ? 1 : 0;
        return stream;
    });
    const Interposed closing(interpose::fclose, [&](auto real, FILE* stream) {
        --open;
        return real(stream);
    });
    EXPECT_TRUE(_file.exists());
    EXPECT_EQ(_file.size(), 10);
    EXPECT_TRUE(_file.create());
    EXPECT_TRUE(File(_folder.path("other")).create());
    EXPECT_EQ(open, 0);
    EXPECT_TRUE(_file.open(File::ReadOnly));
    EXPECT_EQ(open, 1);
    _file.close();
    EXPECT_EQ(open, 0);
}

TEST_F(FileFaultTest, leavesTheStreamOpenThatItCannotFindTheSizeWith)
{
    FILE* opened = nullptr;
    bool closed = false;
    {
        const Interposed opening(interpose::fopen, [&](auto real, const char* path, const char* mode) {
            EXPECT_STREQ(mode, "r");
            return opened = real(path, mode);
        });
        const Interposed closing(interpose::fclose, [&](auto real, FILE* stream) {
            closed = true;
            return real(stream);
        });
        const Interposed failing(interpose::fseeko, interpose::failsWith(ESPIPE));
        EXPECT_EQ(_file.size(), -1);
    }
    EXPECT_FALSE(closed);
    ASSERT_NE(opened, nullptr);
    EXPECT_EQ(std::fclose(opened), 0);
}

TEST_F(FileFaultTest, tellsThatItCannotBeFlushed)
{
    ASSERT_TRUE(_file.open(File::ReadWrite));
    ASSERT_EQ(_file.write("ab", 2, 0), 2);
    const Interposed failing(interpose::fflush, interpose::failsWith(ENOSPC));
    EXPECT_FALSE(_file.flush());
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(FileFaultTest, isClosedAlsoWhenClosingFails)
{
    ASSERT_TRUE(_file.open(File::ReadWrite));
    {
        const Interposed failing(interpose::fclose, [](auto real, FILE* stream) {
            real(stream);
            return EOF;
        });
        _file.close();
    }
    EXPECT_TRUE(_file.open(File::ReadWrite));
}

TEST_F(FileFaultTest, neitherReadsNorWritesWhereItCannotSeek)
{
    ASSERT_TRUE(_file.open(File::ReadWrite));
    char buffer[4] = "xyz";
    int transfers = 0;
    {
        // The end of the file can be looked for, but no place can be taken.
        const Interposed failing(interpose::fseeko, [](auto real, FILE* stream, off_t offset, int whence) {
            if (whence == SEEK_END)
                return real(stream, offset, whence);
            errno = EIO;
            return -1;
        });
        const Interposed reading(interpose::fread, [&](auto real, auto... rest) {
            ++transfers;
            return real(rest...);
        });
        const Interposed writing(interpose::fwrite, [&](auto real, auto... rest) {
            ++transfers;
            return real(rest...);
        });
        EXPECT_EQ(_file.read(buffer, 1, 0), -1);
        EXPECT_EQ(_file.write(buffer, 1, 0), -1);
        EXPECT_EQ(transfers, 0);
        EXPECT_FALSE(_file.setPos(1));
        EXPECT_EQ(_file.read(buffer, 1, -1), 1) << "no seek";
        EXPECT_EQ(buffer[0], '0');
    }
    const Interposed failing(interpose::fseeko, interpose::failsWith(EIO));
    EXPECT_EQ(_file.write(buffer, 1, -1), -1);
}

TEST_F(FileFaultTest, givesTheCountsOfItsStream)
{
    ASSERT_TRUE(_file.open(File::ReadWrite));
    char buffer[4] = "xyz";
    std::int64_t read = 0;
    std::int64_t written = 0;
    {
        const Interposed reading(interpose::fread, [](auto*, auto...) { return std::size_t{2}; });
        const Interposed writing(interpose::fwrite, [](auto*, auto...) { return std::size_t{1}; });
        read = _file.read(buffer, 3, 0);
        written = _file.write(buffer, 3, 0);
    }
    EXPECT_EQ(read, 2);
    EXPECT_EQ(written, 1);
}

TEST_F(FileFaultTest, hasNoPositionWhenItsStreamHasNone)
{
    ASSERT_TRUE(_file.open(File::ReadOnly));
    const Interposed failing(interpose::ftello, interpose::failsWith(ESPIPE));
    EXPECT_EQ(_file.pos(), -1);
}

TEST_F(FileFaultTest, keepsWhatWaitsWhenAReadCannotGetPastIt)
{
    ASSERT_TRUE(_file.open(File::ReadWrite));
    char buffer[4] = "xyz";
    ASSERT_EQ(_file.write("ab", 2, 0), 2);
    int reads = 0;
    {
        const Interposed failing(interpose::fseeko, [](auto real, FILE* stream, off_t offset, int whence) {
            if (whence == SEEK_END)
                return real(stream, offset, whence);
            errno = ENOSPC;
            return -1;
        });
        const Interposed reading(interpose::fread, [&](auto real, auto... rest) {
            ++reads;
            return real(rest...);
        });
        EXPECT_EQ(_file.read(buffer, 1, -1), -1);
    }
    EXPECT_EQ(reads, 0);
    EXPECT_EQ(_file.read(buffer, 1, -1), 1);
    EXPECT_EQ(buffer[0], '2');
    _file.close();
    EXPECT_EQ(_folder.bytesOf("file"), "ab23456789");
}

TEST_F(FileFaultTest, takesItsSizeAlsoWhereItCannotForgetWhatItHasRead)
{
    ASSERT_TRUE(_file.open(File::ReadWrite));
    std::vector<off_t> sought;
    const Interposed failing(interpose::fseeko, [&](auto*, FILE*, off_t offset, int) {
        sought.push_back(offset);
        errno = ESPIPE;
        return -1;
    });

    EXPECT_TRUE(_file.resize(8));
    EXPECT_EQ(sought.size(), 1U) << "there is no way back from where it did not go";

    // Neither a place that is not known nor one behind all others has one behind it.
    for (const off_t place : {off_t{-1}, std::numeric_limits<off_t>::max()}) {
        const Interposed telling(interpose::ftello, [place](auto*, FILE*) { return place; });
        EXPECT_TRUE(_file.resize(7));
    }
    EXPECT_EQ(sought.size(), 1U);
    EXPECT_EQ(_folder.bytesOf("file"), "0123456");
}

TEST_F(FileFaultTest, tellsWhatTheSystemRefuses)
{
    ASSERT_TRUE(_file.open(File::ReadWrite));
    const Interposed truncating(interpose::ftruncate, interpose::failsWith(EFBIG));
    EXPECT_FALSE(_file.resize(20));
    _file.close();
    const Interposed removing(interpose::remove, interpose::failsWith(EACCES));
    EXPECT_FALSE(_file.removeFile());
    const Interposed renaming(interpose::rename, interpose::failsWith(EXDEV));
    EXPECT_FALSE(_file.move(_folder.path("other")));
    EXPECT_EQ(_folder.bytesOf("file"), "0123456789");
}

TEST_F(FileFaultTest, setsOneTimeAndLeavesTheOther)
{
    utimbuf asked{};
    const Interposed looking(interpose::stat, [](auto real, const char* path, struct ::stat* status) {
        const int result = real(path, status);
        status->st_atime = 111;
        status->st_mtime = 222;
        return result;
    });
    const Interposed setting(interpose::utime, [&](auto*, const char* path, const utimbuf* times) {
        asked = *times;
        return path == std::string(_path) ? 0 : -1;
    });
    EXPECT_TRUE(_file.setLastAccessedTime(5));
    EXPECT_EQ(asked.actime, 5);
    EXPECT_EQ(asked.modtime, 222);
    EXPECT_TRUE(_file.setLastModifiedTime(6));
    EXPECT_EQ(asked.actime, 111);
    EXPECT_EQ(asked.modtime, 6);
}

TEST_F(FileFaultTest, setsNoTimeWithoutTheOther)
{
    int settings = 0;
    const Interposed setting(interpose::utime, [&](auto*, auto...) {
        ++settings;
        return -1;
    });
    EXPECT_FALSE(_file.setLastAccessedTime(5)) << "the system refuses";
    EXPECT_FALSE(_file.setLastModifiedTime(5));
    EXPECT_EQ(settings, 2);
    const Interposed looking(interpose::stat, interpose::failsWith(EACCES));
    EXPECT_FALSE(_file.setLastAccessedTime(5));
    EXPECT_FALSE(_file.setLastModifiedTime(5));
    EXPECT_EQ(settings, 2);
}

TEST_F(FileFaultTest, isMadeAlsoWhenItsModeCannotBeSet)
{
    File file(_folder.path("new"));
    const Interposed failing(interpose::chmod, interpose::failsWith(EPERM));
    EXPECT_TRUE(file.create());
    EXPECT_TRUE(file.exists());
}

TEST_F(FileFaultTest, isNotMadeWhereItsDirectoryCannotBe)
{
    const Interposed failing(interpose::mkdir, interpose::failsWith(EROFS));
    EXPECT_FALSE(File(_folder.path("a/new")).create());
}

TEST_F(FileFaultTest, isNotMadeWhereItCannotBeOpened)
{
    Calls modes;
    const Interposed failing(interpose::fopen, [&](auto real, const char* path, const char* mode) -> FILE* {
        modes.emplace_back(mode);
        return mode == std::string("a") ? nullptr : real(path, mode);
    });
    EXPECT_FALSE(File(_folder.path("new")).create());
    EXPECT_EQ(modes, (Calls{"r", "a"}));
    EXPECT_EQ(_guard.modes(), Calls());
}

TEST_F(FileFaultTest, cannotBeMadeBelowAFile)
{
    EXPECT_FALSE(File(_path + "/below").create());
    EXPECT_EQ(_folder.bytesOf("file"), "0123456789");
}

}  // namespace
