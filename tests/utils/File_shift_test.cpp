// Files: bytes put into the middle and taken out of it.
#include <gtest/gtest.h>
#include <kxPAL/File.h>
#include <pthread.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "InterposeFiles.h"
#include "Sanitizers.h"
#include "TemporaryFolder.h"

namespace {

using Murn::File;
using Moves = std::vector<std::string>;

// Bytes none of whose blocks look alike.
std::string madeUpBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    std::uint32_t state = 12345;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return bytes;
}

/// Notes what is read and written where, as "read 8192 at 0", while the object lives.
class NotedMoves {
public:
    const Moves& moves() const { return _moves; }
    int opened() const { return _opened; }

    /// Lets the count-th `fread` or `fwrite` from now on do nothing.
    void failRead(int count) { _failingRead = count; }
    void failWrite(int count) { _failingWrite = count; }

private:
    void note(const char* what, std::size_t count, FILE* stream)
    {
        _moves.push_back(what + std::to_string(count) + " at " + std::to_string(_places[stream]));
    }

    std::map<FILE*, off_t> _places;
    Moves _moves;
    int _opened = 0;
    int _failingRead = 0;
    int _failingWrite = 0;
    Interposed<FILE*(const char*, const char*)> _fopen{interpose::fopen,
                                                       [this](auto real, const char* path, const char* mode) {
                                                           ++_opened;
                                                           return real(path, mode);
                                                       }};
    Interposed<int(FILE*, off_t, int)> _fseeko{interpose::fseeko,
                                               [this](auto real, FILE* stream, off_t offset, int whence) {
                                                   _places[stream] = offset;
                                                   return real(stream, offset, whence);
                                               }};
    Interposed<std::size_t(void*, std::size_t, std::size_t, FILE*)> _fread{
        interpose::fread, [this](auto real, void* data, std::size_t size, std::size_t count, FILE* stream) {
            note("read ", size * count, stream);
            return --_failingRead == 0 ? 0 : real(data, size, count, stream);
        }};
    Interposed<std::size_t(const void*, std::size_t, std::size_t, FILE*)> _fwrite{
        interpose::fwrite, [this](auto real, const void* data, std::size_t size, std::size_t count, FILE* stream) {
            note("write ", size * count, stream);
            return --_failingWrite == 0 ? 0 : real(data, size, count, stream);
        }};
};

class FileShiftTest : public ::testing::Test {
protected:
    // Makes a file of so many bytes and opens it.
    File& open(std::size_t size)
    {
        _bytes = madeUpBytes(size);
        _folder.makeFile("file", _bytes);
        _file.close();
        EXPECT_TRUE(_file.open(File::ReadWriteBinary));
        return _file;
    }

    std::string onDisk()
    {
        _file.flush();
        return _folder.bytesOf("file");
    }

    // Compares without printing thousands of bytes.
    void expectOnDisk(const std::string& expected)
    {
        const std::string actual = onDisk();
        ASSERT_EQ(actual.size(), expected.size());
        for (std::size_t at = 0; at < actual.size(); ++at)
            ASSERT_EQ(actual[at], expected[at]) << "at " << at << " of " << actual.size();
    }

    TemporaryFolder _folder;
    std::string _bytes;
    File _file{_folder.path("file")};
};

TEST_F(FileShiftTest, movesTheTailInBlocksFromTheLastOneOnToMakeRoom)
{
    File& file = open(20000);
    Moves moves;
    int opened = 0;
    {
        const NotedMoves noted;
        EXPECT_EQ(file.insert(0, "abc", 3), 3);
        moves = noted.moves();
        opened = noted.opened();
    }
    EXPECT_EQ(moves, (Moves{"read 8192 at 11808", "write 8192 at 11811", "read 8192 at 3616", "write 8192 at 3619",
                            "read 3616 at 0", "write 3616 at 3", "write 3 at 0"}));
    EXPECT_EQ(opened, 4) << "once for the size, and once a read";
    expectOnDisk("abc" + _bytes);
}

TEST_F(FileShiftTest, movesTheTailInBlocksFromTheFirstOneOnToCloseAGap)
{
    File& file = open(20000);
    Moves moves;
    {
        const NotedMoves noted;
        EXPECT_TRUE(file.erase(0, 3));
        moves = noted.moves();
    }
    EXPECT_EQ(moves, (Moves{"read 8192 at 3", "write 8192 at 0", "read 8192 at 8195", "write 8192 at 8192",
                            "read 3613 at 16387", "write 3613 at 16384"}));
    expectOnDisk(_bytes.substr(3));
}

TEST_F(FileShiftTest, movesThroughABlockOnTheStackOfItsThread)
{
    if (KXPAL_TESTS_ADDRESS_SANITIZER)
        GTEST_SKIP() << "the address sanitizer keeps what is on the stack elsewhere";
    pthread_attr_t attributes;
    ASSERT_EQ(::pthread_getattr_np(::pthread_self(), &attributes), 0);
    void* lowest = nullptr;
    std::size_t size = 0;
    ASSERT_EQ(::pthread_attr_getstack(&attributes, &lowest, &size), 0);
    ::pthread_attr_destroy(&attributes);

    File& file = open(20000);
    std::vector<const char*> blocks;
    {
        const Interposed reading(interpose::fread, [&](auto real, void* data, auto... rest) {
            blocks.push_back(static_cast<const char*>(data));
            return real(data, rest...);
        });
        EXPECT_EQ(file.insert(0, "abc", 3), 3);
        EXPECT_TRUE(file.erase(0, 3));
    }
    EXPECT_EQ(blocks.size(), 6U);
    for (const char* const block : blocks)
        EXPECT_TRUE(block >= lowest && block < static_cast<const char*>(lowest) + size) << "other threads may have it";
    expectOnDisk(_bytes);
}

TEST_F(FileShiftTest, movesAWholeLastBlockAtOnce)
{
    Moves inserting;
    Moves erasing;
    {
        File& file = open(16384);
        const NotedMoves noted;
        EXPECT_EQ(file.insert(0, "x", 1), 1);
        inserting = noted.moves();
    }
    {
        File& file = open(8195);
        const NotedMoves noted;
        EXPECT_TRUE(file.erase(0, 3));
        erasing = noted.moves();
    }
    EXPECT_EQ(inserting,
              (Moves{"read 8192 at 8192", "write 8192 at 8193", "read 8192 at 0", "write 8192 at 1", "write 1 at 0"}));
    EXPECT_EQ(erasing, (Moves{"read 8192 at 3", "write 8192 at 0"}));
}

TEST_F(FileShiftTest, insertsAnywhereInFilesAroundWholeBlocks)
{
    for (const std::size_t size : {1U, 2U, 8191U, 8192U, 8193U, 16383U, 16384U, 16385U, 24576U, 24577U}) {
        for (const std::size_t position : {std::size_t{0}, size / 2, size - 1, size > 8192 ? size - 8192 : 0}) {
            for (const std::size_t length : {1U, 8191U, 8192U, 8193U, 20000U}) {
                SCOPED_TRACE(std::to_string(length) + " at " + std::to_string(position) + " of " +
                             std::to_string(size));
                const std::string data(length, 'x');
                EXPECT_EQ(open(size).insert(static_cast<long>(position), data.data(), static_cast<long>(length)),
                          length);
                expectOnDisk(std::string(_bytes).insert(position, data));
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_F(FileShiftTest, erasesAnywhereInFilesAroundWholeBlocks)
{
    for (const std::size_t size : {2U, 3U, 8192U, 8193U, 8194U, 16384U, 16385U, 16386U, 24577U}) {
        for (const std::size_t position : {std::size_t{0}, size / 2, size - 2}) {
            for (const std::size_t length :
                 {std::size_t{1}, std::size_t{8191}, std::size_t{8192}, size - position - 1}) {
                SCOPED_TRACE(std::to_string(length) + " at " + std::to_string(position) + " of " +
                             std::to_string(size));
                const bool fits = length > 0 && position + length < size;
                EXPECT_EQ(open(size).erase(static_cast<long>(position), static_cast<long>(length)), fits);
                expectOnDisk(fits ? std::string(_bytes).erase(position, length) : _bytes);
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

TEST_F(FileShiftTest, doesNotInsertAtItsEndOrBeforeItsStart)
{
    File& file = open(10);
    EXPECT_EQ(file.insert(10, "x", 1), -1);
    EXPECT_EQ(file.insert(11, "x", 1), -1);
    EXPECT_EQ(file.insert(-1, "x", 1), -1);
    EXPECT_EQ(file.insert(0, "x", 0), -1);
    EXPECT_EQ(file.insert(0, "x", -1), -1);
    EXPECT_EQ(file.insert(0, "x", INT64_MAX), -1) << "a size that is no number";
    expectOnDisk(_bytes);
    EXPECT_EQ(open(0).insert(0, "x", 1), -1);
    expectOnDisk("");
}

TEST_F(FileShiftTest, asksForAnySizeThatIsANumber)
{
    File& file = open(20);
    std::vector<off_t> asked;
    const Interposed resizing(interpose::ftruncate, [&](auto, int, off_t length) {
        asked.push_back(length);
        errno = EFBIG;
        return -1;
    });
    EXPECT_EQ(file.insert(0, "x", INT64_MAX - 20), -1);
    EXPECT_EQ(file.insert(0, "x", INT64_MAX - 19), -1);
    EXPECT_EQ(asked, std::vector<off_t>{INT64_MAX});
}

TEST_F(FileShiftTest, doesNotEraseUpToItsEnd)
{
    File& file = open(10);
    EXPECT_FALSE(file.erase(0, 10));
    EXPECT_FALSE(file.erase(4, 6));
    EXPECT_FALSE(file.erase(4, 7));
    EXPECT_FALSE(file.erase(10, 1));
    EXPECT_FALSE(file.erase(-1, 1));
    EXPECT_FALSE(file.erase(0, 0));
    EXPECT_FALSE(file.erase(0, -1));
    EXPECT_FALSE(file.erase(1, INT64_MAX)) << "a range whose end is no number";
    expectOnDisk(_bytes);
    EXPECT_TRUE(file.erase(0, 9));
    expectOnDisk(_bytes.substr(9));
    EXPECT_FALSE(open(0).erase(0, 1));
    EXPECT_FALSE(open(1).erase(0, 1));
}

TEST_F(FileShiftTest, insertsWhatItReadAndErasedBefore)
{
    // The stream holds what it has read ahead, and everything that goes through it afterwards must fit to that.
    File& file = open(6000);
    std::string buffer(6000, '\0');
    ASSERT_EQ(file.read(buffer.data(), 6000, 0), 6000);
    ASSERT_TRUE(file.erase(10, 5000));
    ASSERT_TRUE(file.resize(3000));
    ASSERT_EQ(file.insert(5, "abc", 3), 3);
    expectOnDisk(_bytes.substr(0, 5) + "abc" + _bytes.substr(5, 5) + _bytes.substr(5010) + std::string(2000, '\0'));
}

TEST_F(FileShiftTest, keepsEveryByteWhenABlockCannotBeMovedForRoom)
{
    // Longer, the blocks before at their new places, everything else at its old one.
    const auto expectFailure = [this](int move, std::size_t firstMoved) {
        for (const bool reading : {true, false}) {
            File& file = open(20000);
            {
                NotedMoves noted;
                if (reading)
                    noted.failRead(move);
                else
                    noted.failWrite(move);
                EXPECT_EQ(file.insert(0, "abc", 3), -1);
            }
            expectOnDisk(_bytes.substr(0, firstMoved + 3) + _bytes.substr(firstMoved));
        }
    };
    expectFailure(2, 11808);
    expectFailure(3, 3616);  // the head of the tail, which is no whole block
}

TEST_F(FileShiftTest, tellsWhyABlockCouldNotBeMovedAlsoWhenItIsPutBack)
{
    File& file = open(20000);
    int writes = 0;
    const Interposed writing(
        interpose::fwrite,
        [&](auto real, const void* data, std::size_t size, std::size_t count, FILE* stream) -> std::size_t {
            const std::size_t written = ++writes == 1 ? 0 : real(data, size, count, stream);
            errno = writes == 1 ? ENOSPC : EINTR;
            return written;
        });
    EXPECT_EQ(file.insert(0, "abc", 3), -1);
    EXPECT_EQ(errno, ENOSPC);
    EXPECT_EQ(writes, 2);
}

TEST_F(FileShiftTest, givesTheCountOfItsLastWrite)
{
    File& file = open(100);
    {
        NotedMoves noted;
        noted.failWrite(2);
        EXPECT_EQ(file.insert(10, "abc", 3), 0);
    }
    expectOnDisk(_bytes.substr(0, 13) + _bytes.substr(10));
}

TEST_F(FileShiftTest, staysWhenItCannotBecomeLonger)
{
    File& file = open(20000);
    {
        const Interposed failing(interpose::ftruncate, interpose::failsWith(ENOSPC));
        EXPECT_EQ(file.insert(0, "abc", 3), -1);
        EXPECT_EQ(errno, ENOSPC);
    }
    expectOnDisk(_bytes);
}

TEST_F(FileShiftTest, keepsItsSizeWhenABlockCannotBeMovedForAGap)
{
    for (const bool reading : {true, false}) {
        File& file = open(20000);
        {
            NotedMoves noted;
            if (reading)
                noted.failRead(2);
            else
                noted.failWrite(2);
            EXPECT_FALSE(file.erase(0, 3));
        }
        expectOnDisk(_bytes.substr(3, 8192) + _bytes.substr(8192));
    }
}

TEST_F(FileShiftTest, tellsWhenTheLastPieceCannotBeMovedForAGap)
{
    for (const bool reading : {true, false}) {
        File& file = open(20000);
        {
            NotedMoves noted;
            if (reading)
                noted.failRead(3);
            else
                noted.failWrite(3);
            EXPECT_FALSE(file.erase(0, 3));
        }
        expectOnDisk(_bytes.substr(3, 16384) + _bytes.substr(16384));
    }
}

TEST_F(FileShiftTest, erasesNothingFromAFileThatGrowsBeyondABlockMeanwhile)
{
    open(100);
    const std::string more = madeUpBytes(20000);
    int opened = 0;
    bool erased = true;
    {
        // The file is opened for each look at its size: when it begins, to see that less than a block has to move, and
        // for how much that is.
        const Interposed growing(interpose::fopen, [&](auto real, const char* path, const char* mode) {
            if (++opened == 3) {
                FILE* const other = real(path, "a");
                std::fwrite(more.data(), 1, more.size(), other);
                std::fclose(other);
            }
            return real(path, mode);
        });
        erased = _file.erase(10, 10);
    }
    EXPECT_FALSE(erased);
    expectOnDisk(_bytes + more);
}

TEST_F(FileShiftTest, tellsWhenItCannotBecomeShorter)
{
    File& file = open(20000);
    {
        const Interposed failing(interpose::ftruncate, interpose::failsWith(EIO));
        EXPECT_FALSE(file.erase(0, 3));
    }
    expectOnDisk(_bytes.substr(3) + _bytes.substr(20000 - 3));
}

// Files with holes, which take no room on the disk.
class LargeFileTest : public FileShiftTest {
protected:
    // Makes a file of zeros, with a text as its last ten bytes; returns whether the file system has room for its size.
    bool openLarge(std::int64_t size)
    {
        open(0);
        if (!_file.resize(size))
            return false;
        EXPECT_EQ(_file.write("0123456789", 10, size - 10), 10);
        EXPECT_TRUE(_file.flush());
        EXPECT_EQ(_file.size(), size);
        return true;
    }

    std::string lastBytes(long count)
    {
        EXPECT_TRUE(_file.flush());
        std::string buffer(static_cast<std::size_t>(count), '.');
        EXPECT_EQ(_file.read(buffer.data(), count, _file.size() - count), count);
        return buffer;
    }

    static constexpr std::int64_t limit = std::int64_t{1} << 31;
};

#define SKIP_UNLESS(possible) \
    if (!(possible))          \
    GTEST_SKIP() << "the file system of the temporary folder has no files of this size"

TEST_F(LargeFileTest, insertsBelowTwoGigabytes)
{
    SKIP_UNLESS(openLarge(limit - 1));
    EXPECT_EQ(_file.insert(limit - 11, "abc", 3), 3);
    EXPECT_EQ(_file.size(), limit + 2);
    EXPECT_EQ(lastBytes(14), std::string("\0abc0123456789", 14));
}

TEST_F(LargeFileTest, insertsNothingFromTwoGigabytesOn)
{
    for (const std::int64_t size : {limit, limit + 100, 2 * limit, 2 * limit + 100, 2 * limit + 20000}) {
        SKIP_UNLESS(openLarge(size));
        for (const std::int64_t position : {std::int64_t{0}, std::int64_t{50}, size - 10}) {
            Moves moves;
            {
                const NotedMoves noted;
                EXPECT_EQ(_file.insert(position, "abc", 3), -1) << size;
                moves = noted.moves();
            }
            EXPECT_EQ(moves, Moves());
            EXPECT_EQ(_file.size(), size);
            EXPECT_EQ(lastBytes(11), std::string("\0", 1) + "0123456789");
        }
    }
}

TEST_F(LargeFileTest, readsWritesAndErasesBehindFourGigabytes)
{
    const std::int64_t size = 2 * limit + 100;
    SKIP_UNLESS(openLarge(size));
    EXPECT_TRUE(_file.setPos(size));
    EXPECT_TRUE(_file.atEnd());
    EXPECT_FALSE(_file.setPos(size + 1));
    EXPECT_EQ(_file.pos(), size);
    EXPECT_EQ(_file.write("abc", 3, size - 20), 3);
    EXPECT_EQ(_file.write("de", 2, -1), 2);
    EXPECT_EQ(lastBytes(22), std::string("abc\0\0\0\0\0\0\0", 10) + "0123456789de");
    EXPECT_TRUE(_file.erase(size - 16, 10));
    EXPECT_EQ(lastBytes(12), std::string("abc\0", 4) + "456789de");
    EXPECT_EQ(_file.size(), size + 2 - 10);
    EXPECT_TRUE(_file.resize(size * 2));
    EXPECT_EQ(_file.size(), size * 2);
}

}  // namespace
