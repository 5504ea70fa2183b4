// Files: life, whole-file operations, reads and writes, times.
#include <gtest/gtest.h>
#include <kxPAL/Application.h>
#include <kxPAL/File.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <type_traits>
#include <utility>

#include "InterposeFiles.h"
#include "OnlyWithin.h"
#include "TemporaryFolder.h"

namespace {

using Murn::File;

static_assert(File::ReadOnly == 1 && File::ReadWrite == 2 && File::ReadOnlyBinary == 3, "the values of modes");
static_assert(File::ReadWriteBinary == 4 && File::NotOpen == 255, "the values of modes");
static_assert(sizeof(File::FileMode) == 4, "32 bits");
static_assert(std::has_virtual_destructor<File>::value && !std::is_copy_constructible<File>::value, "an owner");
static_assert(std::is_same<decltype(std::declval<File&>().size()), std::int64_t>::value, "64 bits, signed");
static_assert(std::is_same<decltype(std::declval<File&>().pos()), std::int64_t>::value, "64 bits, signed");
static_assert(std::is_same<decltype(std::declval<File&>().read(nullptr, 0, 0)), std::int64_t>::value, "64 bits");
static_assert(std::is_same<decltype(std::declval<File&>().write(nullptr, 0, 0)), std::int64_t>::value, "64 bits");
static_assert(std::is_same<decltype(std::declval<File&>().insert(0, nullptr, 0)), std::int64_t>::value, "64 bits");
static_assert(sizeof(File) == 8 + 8 + sizeof(std::string) + 8, "a table, a mode, a path and a stream");

class FileTest : public ::testing::Test {
protected:
    std::string bytes() const { return _folder.bytesOf("file"); }

    // Reads into a buffer whose bytes are "." where nothing was read.
    static std::string read(File& file, long length, long offset)
    {
        std::string buffer(static_cast<std::size_t>(length), '.');
        const std::int64_t count = file.read(buffer.data(), length, offset);
        return count == -1 ? "refused" : buffer.substr(0, static_cast<std::size_t>(count));
    }

    template <typename Field>
    static Field fieldAt(const File& file, std::size_t offset)
    {
        Field field;
        std::memcpy(&field, reinterpret_cast<const char*>(&file) + offset, sizeof field);
        return field;
    }

    TemporaryFolder _folder;
    const OnlyWithin _guard{_folder};
    const std::string _path = _folder.makeFile("file", "0123456789");
    const std::string _missing = _folder.path("missing");
};

TEST_F(FileTest, holdsItsModePathAndStream)
{
    File file(_path);
    EXPECT_EQ(fieldAt<std::int32_t>(file, 8), 255);
    EXPECT_EQ(*reinterpret_cast<const std::string*>(reinterpret_cast<const char*>(&file) + 16), _path);
    EXPECT_EQ(fieldAt<std::FILE*>(file, 16 + sizeof(std::string)), nullptr);
    ASSERT_TRUE(file.open(File::ReadWriteBinary));
    EXPECT_EQ(fieldAt<std::int32_t>(file, 8), 4);
    EXPECT_NE(fieldAt<std::FILE*>(file, 16 + sizeof(std::string)), nullptr);
    file.close();
    EXPECT_EQ(fieldAt<std::int32_t>(file, 8), 255);
    EXPECT_EQ(fieldAt<std::FILE*>(file, 16 + sizeof(std::string)), nullptr);
}

TEST_F(FileTest, opensInEachModeAndKeepsIt)
{
    for (const auto mode : {File::ReadOnly, File::ReadWrite, File::ReadOnlyBinary, File::ReadWriteBinary}) {
        File file(_path);
        ASSERT_TRUE(file.open(mode));
        EXPECT_EQ(fieldAt<std::int32_t>(file, 8), mode);
        EXPECT_EQ(file.pos(), 0);
        EXPECT_EQ(read(file, 3, 2), "234");
    }
    EXPECT_EQ(bytes(), "0123456789") << "no mode truncates";
}

TEST_F(FileTest, doesNotOpenInUnknownModes)
{
    for (const int mode : {-1, 0, 5, 254, 255, 256}) {
        File file(_path);
        EXPECT_FALSE(file.open(static_cast<File::FileMode>(mode))) << mode;
        EXPECT_EQ(file.pos(), -1);
        EXPECT_EQ(fieldAt<std::int32_t>(file, 8), 255);
    }
}

TEST_F(FileTest, doesNotOpenOrMakeWhatIsMissing)
{
    for (const auto mode : {File::ReadOnly, File::ReadWrite}) {
        File file(_missing);
        EXPECT_FALSE(file.open(mode));
        EXPECT_FALSE(file.exists());
    }
}

TEST_F(FileTest, staysOpenAsItIsWhenOpenedAgain)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadOnly));
    ASSERT_TRUE(file.setPos(4));
    EXPECT_FALSE(file.open(File::ReadWrite));
    EXPECT_EQ(file.pos(), 4);
    EXPECT_EQ(fieldAt<std::int32_t>(file, 8), 1);
}

TEST_F(FileTest, opensAgainAfterItWasClosed)
{
    File file(_path);
    file.close();
    ASSERT_TRUE(file.open(File::ReadOnly));
    file.close();
    file.close();
    EXPECT_TRUE(file.open(File::ReadWrite));
    EXPECT_EQ(file.write("x", 1, 0), 1);
}

TEST_F(FileTest, writesWhatWaitsWhenItIsClosedOrGone)
{
    {
        File file(_path);
        ASSERT_TRUE(file.open(File::ReadWrite));
        EXPECT_EQ(file.write("ab", 2, 0), 2);
    }
    EXPECT_EQ(bytes(), "ab23456789");
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadWrite));
    EXPECT_EQ(file.write("cd", 2, 0), 2);
    file.close();
    EXPECT_EQ(bytes(), "cd23456789");
}

TEST_F(FileTest, refusesEverythingWhileClosed)
{
    File file(_path);
    char buffer[4] = "xyz";
    EXPECT_FALSE(file.flush());
    EXPECT_EQ(file.pos(), -1);
    EXPECT_FALSE(file.setPos(0));
    EXPECT_FALSE(file.atEnd());
    EXPECT_EQ(file.read(buffer, 1, 0), -1);
    EXPECT_EQ(file.write(buffer, 1, 0), -1);
    EXPECT_FALSE(file.resize(3));
    EXPECT_EQ(file.insert(0, buffer, 1), -1);
    EXPECT_FALSE(file.erase(0, 1));
    EXPECT_STREQ(buffer, "xyz");
    EXPECT_EQ(bytes(), "0123456789");
}

TEST_F(FileTest, knowsTheSizeOfTheFileItselfAlone)
{
    File file(_path);
    EXPECT_EQ(file.size(), 10) << "while closed";
    ASSERT_TRUE(file.open(File::ReadWrite));
    EXPECT_EQ(file.write("abc", 3, -1), 3);
    EXPECT_EQ(file.size(), 10) << "three bytes wait";
    EXPECT_FALSE(file.atEnd());
    EXPECT_EQ(file.pos(), 13);
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(file.size(), 13);
    EXPECT_TRUE(file.atEnd());
    EXPECT_EQ(File(_missing).size(), -1);
    EXPECT_EQ(File(_folder.makeFile("empty")).size(), 0);
}

TEST_F(FileTest, movesItsPositionUpToTheEnd)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadOnly));
    for (const long position : {10L, 0L, 9L}) {
        EXPECT_TRUE(file.setPos(position));
        EXPECT_EQ(file.pos(), position);
        EXPECT_EQ(file.atEnd(), position == 10);
    }
    for (const long position : {11L, -1L, 1L << 40}) {
        EXPECT_FALSE(file.setPos(position)) << position;
        EXPECT_EQ(file.pos(), 9);
    }
}

TEST_F(FileTest, readsWithinTheFile)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadOnlyBinary));
    EXPECT_EQ(read(file, 10, 0), "0123456789");
    EXPECT_EQ(read(file, 1, 9), "9");
    EXPECT_EQ(read(file, 3, 4), "456");
    EXPECT_EQ(file.pos(), 7);
}

TEST_F(FileTest, refusesToReadAcrossItsEnds)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadOnlyBinary));
    char buffer[32];
    EXPECT_EQ(file.read(buffer, 1, 10), -1) << "at the end";
    EXPECT_EQ(file.read(buffer, 11, 0), -1);
    EXPECT_EQ(file.read(buffer, 2, 9), -1);
    EXPECT_EQ(file.read(buffer, 1, -2), -1);
    EXPECT_EQ(file.read(buffer, 0, 0), -1);
    EXPECT_EQ(file.read(buffer, -1, 5), -1);
    EXPECT_EQ(file.read(buffer, 1, INT64_MAX), -1);
    EXPECT_EQ(file.read(buffer, INT64_MAX, 1), -1) << "a range whose end is no number";
    EXPECT_EQ(file.read(buffer, INT64_MAX, -1), -1);
}

TEST_F(FileTest, readsFromItsPositionWithBoundsMadeOfMinusOne)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadOnly));
    ASSERT_TRUE(file.setPos(3));
    EXPECT_EQ(read(file, 2, -1), "34");
    EXPECT_EQ(read(file, 2, -1), "56");
    EXPECT_EQ(read(file, 11, -1), "789") << "one more than the size is no more than size() when it begins at -1";
    EXPECT_EQ(read(file, 12, -1), "refused");
    EXPECT_EQ(read(file, 1, -1), "") << "at the end there is nothing, but that is no failure";
    EXPECT_EQ(read(file, 0, -1), "refused");
}

TEST_F(FileTest, readsNothingFromAnEmptyFile)
{
    File file(_folder.makeFile("empty"));
    ASSERT_TRUE(file.open(File::ReadOnly));
    EXPECT_TRUE(file.atEnd());
    EXPECT_EQ(read(file, 1, 0), "refused");
    EXPECT_EQ(read(file, 1, -1), "");
    EXPECT_EQ(read(file, 2, -1), "refused");
}

TEST_F(FileTest, refusesToReadWhenThePathIsGone)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadOnly));
    ASSERT_EQ(::unlink(_path.c_str()), 0);
    EXPECT_EQ(file.size(), -1);
    EXPECT_EQ(read(file, 1, 0), "refused");
    EXPECT_EQ(read(file, 1, -1), "refused") << "-1 is not below -1";
    EXPECT_FALSE(file.setPos(0));
    EXPECT_FALSE(file.atEnd());
    EXPECT_EQ(file.pos(), 0);
}

TEST_F(FileTest, writesAtAnOffsetAndAppendsAtMinusOne)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadWriteBinary));
    EXPECT_EQ(file.write("ab", 2, 3), 2);
    EXPECT_EQ(file.pos(), 5);
    EXPECT_EQ(file.write("cd", 2, -1), 2);
    EXPECT_EQ(file.pos(), 12);
    EXPECT_EQ(file.write("\0\n", 2, 0), 2);
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(bytes(), std::string("\0\n2ab56789cd", 12));
}

TEST_F(FileTest, growsByAWriteBehindItsEnd)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadWrite));
    EXPECT_EQ(file.write("x", 1, 12), 1);
    file.close();
    EXPECT_EQ(bytes(), std::string("0123456789\0\0x", 13));
}

TEST_F(FileTest, refusesToWriteNothingOrBeforeItsStart)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadWrite));
    EXPECT_EQ(file.write("x", 0, 0), -1);
    EXPECT_EQ(file.write("x", -1, 0), -1);
    EXPECT_EQ(file.write("x", 1, -2), -1);
    EXPECT_EQ(file.write("x", 1, INT64_MIN), -1);
    file.close();
    EXPECT_EQ(bytes(), "0123456789");
}

TEST_F(FileTest, takesNoByteWhenOpenForReadingOnly)
{
    for (const auto mode : {File::ReadOnly, File::ReadOnlyBinary}) {
        File file(_path);
        ASSERT_TRUE(file.open(mode));
        EXPECT_EQ(file.write("x", 1, 0), 0);
        EXPECT_EQ(file.write("x", 1, -1), 0);
        EXPECT_FALSE(file.resize(3));
        EXPECT_EQ(file.insert(0, "x", 1), -1);
        EXPECT_FALSE(file.erase(0, 1));
        EXPECT_EQ(read(file, 2, 0), "01") << "still to be read";
    }
    EXPECT_EQ(bytes(), "0123456789");
}

TEST_F(FileTest, becomesLongerWithZerosOrShorter)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadWrite));
    EXPECT_TRUE(file.resize(12));
    EXPECT_EQ(bytes(), std::string("0123456789\0\0", 12));
    EXPECT_TRUE(file.resize(4));
    EXPECT_EQ(bytes(), "0123");
    EXPECT_FALSE(file.resize(-1));
    EXPECT_EQ(bytes(), "0123");
    EXPECT_TRUE(file.resize(0));
    EXPECT_EQ(file.size(), 0);
}

TEST_F(FileTest, keepsItsPositionWhenItsSizeChanges)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadWrite));
    EXPECT_EQ(read(file, 3, 4), "456");
    for (const long size : {5L, 0L, 9L, 100000L}) {
        EXPECT_TRUE(file.resize(size));
        EXPECT_EQ(file.pos(), 7);
    }
}

TEST_F(FileTest, readsWhatIsInTheFileAfterItsSizeChanged)
{
    // The stream has read all of it ahead, and would give it from there.
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadWrite));
    for (const long position : {1L, 5L, 10L}) {
        EXPECT_TRUE(file.resize(0));
        EXPECT_EQ(file.write("0123456789", 10, 0), 10);
        ASSERT_TRUE(file.flush());
        EXPECT_EQ(read(file, position, 0), std::string("0123456789").substr(0, static_cast<std::size_t>(position)));
        EXPECT_TRUE(file.resize(4));
        ASSERT_TRUE(file.setPos(2));
        EXPECT_EQ(read(file, 5, -1), "23");
        EXPECT_TRUE(file.resize(8));
        EXPECT_EQ(read(file, 6, 2), std::string("23\0\0\0\0", 6));
    }
}

TEST_F(FileTest, readsOnBehindWhatWaitsToBeWritten)
{
    const std::string path = _folder.makeFile("large", std::string(10, 'a') + std::string(19990, 'b'));
    File file(path);
    ASSERT_TRUE(file.open(File::ReadWrite));
    EXPECT_EQ(file.write("0123456789", 10, 0), 10);
    EXPECT_EQ(read(file, 8192, -1), std::string(8192, 'b'));  // more than the stream's buffer
    EXPECT_EQ(file.pos(), 8202);
    file.close();
    EXPECT_EQ(_folder.bytesOf("large").substr(0, 12), "0123456789bb");
}

TEST_F(FileTest, writesWhatWaitedToItsPlaceAfterItWasMadeShorter)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadWrite));
    EXPECT_EQ(file.write("ab", 2, 8), 2);
    EXPECT_TRUE(file.resize(3));
    EXPECT_EQ(bytes(), "012");
    EXPECT_TRUE(file.flush());
    EXPECT_EQ(bytes(), std::string("012\0\0\0\0\0ab", 10));
}

TEST_F(FileTest, isRemovedUnlessItIsOpen)
{
    File file(_path);
    ASSERT_TRUE(file.open(File::ReadOnly));
    EXPECT_FALSE(file.removeFile());
    EXPECT_TRUE(file.exists());
    file.close();
    EXPECT_TRUE(file.removeFile());
    EXPECT_FALSE(file.exists());
    EXPECT_FALSE(file.removeFile());
}

TEST_F(FileTest, keepsItsPathWhenMoved)
{
    File file(_path);
    EXPECT_TRUE(file.move(_folder.path("with blanks \xff\\")));
    EXPECT_EQ(file.path() + file.fileName(), _path);
    EXPECT_FALSE(file.exists());
    EXPECT_EQ(_folder.bytesOf("with blanks \xff\\"), "0123456789");
    EXPECT_FALSE(file.move(_folder.path("other"))) << "nothing is there any more";
}

TEST_F(FileTest, movesOverAnotherFileButNotIntoAMissingDirectory)
{
    _folder.makeFile("other", "x");
    EXPECT_FALSE(File(_path).move(_folder.path("missing/file")));
    EXPECT_TRUE(File(_path).move(_folder.path("other")));
    EXPECT_EQ(_folder.bytesOf("other"), "0123456789");
}

TEST_F(FileTest, takesADirectoryForAFileThatIsThere)
{
    File directory(_folder.makeDirectory("directory"));
    EXPECT_TRUE(directory.exists());
    EXPECT_FALSE(directory.open(File::ReadWrite));
    ASSERT_TRUE(directory.open(File::ReadOnly));
    EXPECT_EQ(directory.write("x", 1, 0), 0);
    EXPECT_FALSE(directory.resize(0));
}

TEST_F(FileTest, isMadeEmptyAndForEverybodyWhateverTheUmask)
{
    const mode_t before = ::umask(077);
    File file(_missing);
    EXPECT_TRUE(file.create());
    ::umask(before);
    struct stat status {};
    ASSERT_EQ(::stat(_missing.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0777U);
    EXPECT_EQ(status.st_size, 0);
    EXPECT_FALSE(file.flush()) << "it is not open";
}

TEST_F(FileTest, staysAsItIsWhenItIsThereAlready)
{
    ASSERT_EQ(::chmod(_path.c_str(), 0640), 0);
    EXPECT_TRUE(File(_path).create());
    struct stat status {};
    ASSERT_EQ(::stat(_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_EQ(bytes(), "0123456789");
}

TEST_F(FileTest, keepsItsBytesButNotItsModeWhereItCannotBeRead)
{
    ASSERT_EQ(::chmod(_path.c_str(), 0200), 0);
    {
        const Interposed opening(interpose::fopen, [](auto real, const char* path, const char* mode) -> FILE* {
            if (*mode != 'r')
                return real(path, mode);
            errno = EACCES;
            return nullptr;
        });
        EXPECT_TRUE(File(_path).create());
    }
    struct stat status {};
    ASSERT_EQ(::stat(_path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0777U);
    EXPECT_EQ(bytes(), "0123456789");
}

TEST_F(FileTest, isMadeWithTheDirectoriesAboveIt)
{
    File file(_folder.path("a/b/f.txt"));
    EXPECT_TRUE(file.create());
    EXPECT_EQ(file.size(), 0);
    for (const char* const made : {"a", "a/b", "a/b/f.txt"}) {
        struct stat status {};
        ASSERT_EQ(::stat(_folder.path(made).c_str(), &status), 0) << made;
        EXPECT_EQ(status.st_mode & 07777U, 0777U) << made;
    }
}

TEST_F(FileTest, isMadeByARelativePathWhereTheProgramsDirectoryIsTheWorkingDirectory)
{
    std::string program = _folder.path("program");
    char* arguments[] = {program.data(), nullptr};
    const Murn::Application application(1, arguments);
    const std::string elsewhere = _folder.makeDirectory("elsewhere");
    ASSERT_EQ(::chdir(_folder.path().c_str()), 0);
    EXPECT_TRUE(File("a/f.txt").create());
    EXPECT_TRUE(File(_folder.path("a/f.txt")).exists());
    EXPECT_TRUE(File("here.txt").create());
    EXPECT_TRUE(File(_folder.path("here.txt")).exists());
    ASSERT_EQ(::chdir(elsewhere.c_str()), 0);
    EXPECT_FALSE(File("b/f.txt").create()) << "the directory goes to the program's, the file to the working directory";
    EXPECT_TRUE(File(_folder.path("b")).exists());
}

TEST_F(FileTest, hasTimesInWholeSeconds)
{
    File file(_path);
    long accessed = -7;
    long modified = -7;
    EXPECT_TRUE(file.setLastAccessedTime(1000000001));
    EXPECT_TRUE(file.setLastModifiedTime(1000000002));
    EXPECT_TRUE(file.lastAccessedTime(accessed));
    EXPECT_TRUE(file.lastModifiedTime(modified));
    EXPECT_EQ(accessed, 1000000001);
    EXPECT_EQ(modified, 1000000002);
    EXPECT_TRUE(file.setLastAccessedTime(-5)) << "before 1970";
    EXPECT_TRUE(file.lastAccessedTime(accessed));
    EXPECT_TRUE(file.lastModifiedTime(modified));
    EXPECT_EQ(accessed, -5);
    EXPECT_EQ(modified, 1000000002);
}

TEST_F(FileTest, hasNoTimesWhenItIsMissing)
{
    File file(_missing);
    long time = 42;
    EXPECT_FALSE(file.lastAccessedTime(time));
    EXPECT_FALSE(file.lastModifiedTime(time));
    EXPECT_FALSE(file.setLastAccessedTime(time));
    EXPECT_FALSE(file.setLastModifiedTime(time));
    EXPECT_EQ(time, 42);
}

TEST_F(FileTest, isNotFoundByAPathWithAZeroByteInIt)
{
    using namespace std::string_literals;
    const std::string path = _path + "\0.txt"s;
    File file(path);
    EXPECT_EQ(file.fileName(), "file\0.txt"s);
    EXPECT_FALSE(file.exists());
    EXPECT_FALSE(file.open(File::ReadWrite));
    EXPECT_EQ(file.size(), -1);
    EXPECT_FALSE(file.create());
    EXPECT_FALSE(file.removeFile());
    EXPECT_FALSE(file.move(_missing));
    EXPECT_FALSE(File(_path).move(_missing + "\0"s));
    long t = 1;
    EXPECT_FALSE(file.lastAccessedTime(t) || file.lastModifiedTime(t) || file.setLastModifiedTime(t));
    EXPECT_FALSE(File(_missing + "\0"s).create());
    EXPECT_EQ(bytes(), "0123456789");
    EXPECT_FALSE(File(_missing).exists());
}

TEST_F(FileTest, takesNamesOfAnyBytes)
{
    for (const char* const name :
         {"with blanks", "back\\slash", "\xc3\xa9t\xc3\xa9", "\xff\xfe\x01", " ", "-rf", "a\nb"}) {
        File file(_folder.path(name));
        _folder.makeFile(name, "x");
        ASSERT_TRUE(file.open(File::ReadWrite)) << name;
        EXPECT_EQ(file.write("yz", 2, -1), 2);
        file.close();
        EXPECT_EQ(_folder.bytesOf(name), "xyz");
        EXPECT_TRUE(file.removeFile());
    }
}

}  // namespace
