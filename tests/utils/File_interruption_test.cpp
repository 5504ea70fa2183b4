// Files: insertions and erasures that the system breaks off, at each of their steps.
#include <gtest/gtest.h>
#include <kxPAL/File.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <ostream>
#include <string>
#include <utility>

#include "InterposeFiles.h"
#include "TemporaryFolder.h"

namespace {

using Murn::File;

constexpr long blockSize = 8192;
constexpr int never = 0;

// Bytes of which no two pieces look alike.
std::string madeUpBytes(std::size_t count)
{
    std::string bytes(count, '\0');
    std::uint32_t state = 4711;
    for (char& byte : bytes) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24U);
    }
    return bytes;
}

/// A disk for one file that is open for writing. Each of the calls that reach it from the file's stream can fail, from
/// some call on, for a while or for good; a write also after a part of its bytes.
class FaultyDisk {
public:
    struct Fault {
        int read = never;   ///< Which read fails, counted from 1.
        int write = never;  ///< Which write fails.
        int seek = never;   ///< Which seek to a place fails.
        int cut = never;    ///< Which change of the size fails.
        int look = never;   ///< Which look at the size fails.
        long part = 0;      ///< How many bytes of the failing write get there.
        bool forGood = false;
    };

    explicit FaultyDisk(Fault fault) : _fault(fault) {}

    /// How many writes were asked for.
    int writes() const { return _writes; }
    bool hasFailed() const { return _failed; }
    /// From now on nothing fails.
    void heal() { _fault = Fault(); }

private:
    bool fails(int& count, int failing)
    {
        ++count;
        const bool result = failing != never && (count == failing || (_fault.forGood && count > failing));
        _failed |= result;
        if (result)
            errno = ENOSPC;
        return result;
    }

    static ssize_t read(void* self, char* data, std::size_t size)
    {
        auto* const disk = static_cast<FaultyDisk*>(self);
        return disk->fails(disk->_reads, disk->_fault.read) ? -1 : ::read(disk->_fd, data, size);
    }

    static ssize_t write(void* self, const char* data, std::size_t size)
    {
        auto* const disk = static_cast<FaultyDisk*>(self);
        if (!disk->fails(disk->_writes, disk->_fault.write))
            return ::write(disk->_fd, data, size);
        const std::size_t part = std::min(size, static_cast<std::size_t>(disk->_fault.part));
        if (disk->_writes == disk->_fault.write && ::write(disk->_fd, data, part) != static_cast<ssize_t>(part))
            ADD_FAILURE() << "the real disk fails";
        errno = ENOSPC;
        return 0;
    }

    static int seek(void* self, off64_t* offset, int whence)
    {
        const off_t place = ::lseek(static_cast<FaultyDisk*>(self)->_fd, *offset, whence);
        *offset = place;
        return place == -1 ? -1 : 0;
    }

    static int close(void* self) { return ::close(std::exchange(static_cast<FaultyDisk*>(self)->_fd, -1)); }

    Fault _fault;
    bool _failed = false;
    int _fd = -1;
    FILE* _stream = nullptr;
    int _reads = 0;
    int _writes = 0;
    int _seeks = 0;
    int _cuts = 0;
    int _looks = 0;

    const Interposed<FILE*(const char*, const char*)> _fopen{
        interpose::fopen, [this](auto real, const char* path, const char* mode) -> FILE* {
            if (mode != std::string("rb+"))
                return _stream != nullptr && fails(_looks, _fault.look) ? nullptr : real(path, mode);
            FILE* const bare = real(path, mode);
            _fd = ::dup(::fileno(bare));
            std::fclose(bare);
            return _stream = ::fopencookie(this, mode, {read, write, seek, close});
        }};
    const Interposed<int(FILE*)> _fileno{
        interpose::fileno, [this](auto real, FILE* stream) { return stream == _stream ? _fd : real(stream); }};
    const Interposed<int(FILE*, off_t, int)> _fseeko{
        interpose::fseeko, [this](auto real, FILE* stream, off_t offset, int whence) {
            return stream == _stream && fails(_seeks, _fault.seek) ? -1 : real(stream, offset, whence);
        }};
    const Interposed<int(int, off_t)> _ftruncate{interpose::ftruncate, [this](auto real, int fd, off_t length) {
                                                     return fails(_cuts, _fault.cut) ? -1 : real(fd, length);
                                                 }};
};

/// An insertion or an erasure in the middle of a file.
struct Change {
    std::size_t size;
    std::size_t position;
    std::size_t length;
};

void PrintTo(const Change& change, std::ostream* os)
{
    *os << change.length << " bytes at " << change.position << " of " << change.size;
}

class FileInterruptionTest : public ::testing::TestWithParam<Change> {
protected:
    using Fault = FaultyDisk::Fault;

    const Change& change() const { return GetParam(); }
    long position() const { return static_cast<long>(change().position); }
    long length() const { return static_cast<long>(change().length); }

    /// What came of one change on a faulty disk.
    struct Outcome {
        bool failed;        ///< Whether a call failed at all.
        bool succeeded;     ///< What the change returned.
        int error;          ///< Afterwards.
        std::string bytes;  ///< In the file.
    };

    Outcome insertOn(Fault fault) const { return changeOn(fault, true); }
    Outcome eraseOn(Fault fault) const { return changeOn(fault, false); }

    // The room, of the data's length, stands somewhere from the position on; on which side of it a byte is does not
    // matter then. Returns where.
    std::optional<std::size_t> roomIn(const std::string& bytes) const
    {
        if (bytes.size() != change().size + change().length)
            return std::nullopt;
        for (std::size_t room = change().size; room >= change().position; room = before(room)) {
            if (bytes.compare(0, room, _bytes, 0, room) == 0 &&
                bytes.compare(room + change().length, std::string::npos, _bytes, room) == 0)
                return room;
            if (room == change().position)
                break;
        }
        return std::nullopt;
    }

    // The end of a block, from the file's end backwards, and last of all the position itself.
    std::size_t before(std::size_t room) const
    {
        return room > change().position + blockSize ? room - blockSize : change().position;
    }

    // How many bytes have moved into the gap and on, when the rest stands as before.
    std::optional<std::size_t> movedIn(const std::string& bytes) const
    {
        const auto [size, at, gap] = change();
        if (bytes.size() != size || bytes.compare(0, at, _bytes, 0, at) != 0)
            return std::nullopt;
        std::size_t moved = 0;
        while (at + gap + moved < size && bytes[at + moved] == _bytes[at + gap + moved])
            ++moved;
        // Bytes that look alike by chance count as moved; going back over them finds the border.
        for (;; --moved) {
            if (bytes.compare(at + moved, std::string::npos, _bytes, at + moved) == 0)
                return moved;
            if (moved == 0)
                return std::nullopt;
        }
    }

    const TemporaryFolder _folder;
    const std::string _bytes = madeUpBytes(GetParam().size);

private:
    Outcome changeOn(Fault fault, bool insertion) const
    {
        const std::string path = _folder.makeFile("file", _bytes);
        FaultyDisk disk(fault);
        File file(path);
        EXPECT_TRUE(file.open(File::ReadWriteBinary));
        Outcome outcome{};
        const std::string data(change().length, '+');
        if (insertion)
            outcome.succeeded = file.insert(position(), data.data(), length()) == length();
        else
            outcome.succeeded = file.erase(position(), length());
        outcome.error = errno;
        outcome.failed = disk.hasFailed();
        // What waits is not written any more, or where it belongs: either way nothing changes for the worse.
        disk.heal();
        file.close();
        outcome.bytes = _folder.bytesOf("file");
        return outcome;
    }
};

TEST_P(FileInterruptionTest, succeedsOnADiskWithoutFaults)
{
    const std::string data(change().length, '+');
    EXPECT_EQ(insertOn({}).bytes == std::string(_bytes).insert(change().position, data), true);
    EXPECT_EQ(eraseOn({}).bytes == std::string(_bytes).erase(change().position, change().length), true);
}

TEST_P(FileInterruptionTest, losesNothingForRoomWhereOneCallFails)
{
    for (int Fault::*const call : {&Fault::read, &Fault::write, &Fault::seek, &Fault::look}) {
        int failures = 0;
        for (int nth = 1;; ++nth) {
            Fault fault;
            fault.*call = nth;
            const Outcome outcome = insertOn(fault);
            if (!outcome.failed)
                break;
            ++failures;
            if (outcome.succeeded)
                continue;  // a failure that is made good, such as one of a look ahead
            EXPECT_EQ(outcome.error, ENOSPC);
            const bool isUntouched = outcome.bytes == _bytes;
            EXPECT_TRUE(isUntouched || roomIn(outcome.bytes)) << "call " << nth;
        }
        EXPECT_GT(failures, 0);
    }
}

TEST_P(FileInterruptionTest, losesNothingForRoomWhereABlockIsWrittenInPart)
{
    for (const long part : {1L, 100L, 4095L, 4096L, 8191L}) {
        for (int nth = 1;; ++nth) {
            const Outcome outcome = insertOn({.write = nth, .part = part});
            if (!outcome.failed)
                break;
            if (outcome.succeeded)
                continue;  // the data itself was taken, and waited in the buffer when it was lost
            EXPECT_EQ(outcome.error, ENOSPC);
            EXPECT_TRUE(roomIn(outcome.bytes)) << part << " bytes of write " << nth;
        }
    }
}

TEST_P(FileInterruptionTest, losesNoMoreThanTheLengthWhereABlockCannotBePutBack)
{
    for (const long part : {0L, 1L, 100L, 4096L, 8191L}) {
        for (int nth = 1;; ++nth) {
            const Outcome outcome = insertOn({.write = nth, .part = part, .forGood = true});
            if (!outcome.failed)
                break;
            if (outcome.succeeded)
                continue;
            ASSERT_EQ(outcome.bytes.size(), change().size + change().length);
            std::size_t lost = 0;
            for (std::size_t at = 0; at < change().size; ++at) {
                if (outcome.bytes[at] != _bytes[at] && outcome.bytes[at + change().length] != _bytes[at])
                    ++lost;
            }
            EXPECT_LE(lost, part == 0 ? 0 : change().length);
        }
    }
}

TEST_P(FileInterruptionTest, leavesTheFileAsItIsWhereItCannotBecomeLonger)
{
    const Outcome outcome = insertOn({.cut = 1});
    EXPECT_FALSE(outcome.succeeded);
    EXPECT_EQ(outcome.error, ENOSPC);
    EXPECT_EQ(outcome.bytes == _bytes, true);
}

TEST_P(FileInterruptionTest, losesNothingBehindAGapWhereCallsFail)
{
    for (int Fault::*const call : {&Fault::read, &Fault::write, &Fault::seek, &Fault::look, &Fault::cut}) {
        for (const bool forGood : {false, true}) {
            int failures = 0;
            for (int nth = 1;; ++nth) {
                Fault fault{.forGood = forGood};
                fault.*call = nth;
                const Outcome outcome = eraseOn(fault);
                if (!outcome.failed)
                    break;
                ++failures;
                if (outcome.succeeded)
                    continue;
                EXPECT_EQ(outcome.error, ENOSPC);
                EXPECT_TRUE(movedIn(outcome.bytes)) << "call " << nth;
            }
            EXPECT_GT(failures, 0);
        }
    }
}

TEST_P(FileInterruptionTest, losesNothingBehindAGapWhereABlockIsWrittenInPart)
{
    for (const long part : {1L, 100L, 4096L, 8191L}) {
        for (int nth = 1;; ++nth) {
            const Outcome outcome = eraseOn({.write = nth, .part = part, .forGood = true});
            if (!outcome.failed)
                break;
            EXPECT_FALSE(outcome.succeeded) << "what is lost is told";
            EXPECT_EQ(outcome.error, ENOSPC);
            EXPECT_TRUE(movedIn(outcome.bytes)) << part << " bytes of write " << nth;
        }
    }
}

// Of what an erasure reports as done, nothing waits in the buffer any more.
TEST_P(FileInterruptionTest, isOnTheDiskOnceBytesAreErased)
{
    const std::string path = _folder.makeFile("file", _bytes);
    File file(path);
    ASSERT_TRUE(file.open(File::ReadWriteBinary));
    EXPECT_TRUE(file.erase(position(), length()));
    EXPECT_EQ(_folder.bytesOf("file") == std::string(_bytes).erase(change().position, change().length), true);
}

// Tails of several blocks and of a part of one; lengths below, at and above a block; positions in and between blocks.
INSTANTIATE_TEST_SUITE_P(Files, FileInterruptionTest,
                         ::testing::Values(Change{20000, 0, 3}, Change{20000, 5000, 4096}, Change{20000, 100, 8192},
                                           Change{30000, 7, 12000}, Change{16384, 0, 1}, Change{1000, 10, 100}),
                         [](const auto& value) {
                             return std::to_string(value.param.length) + "BytesAt" +
                                    std::to_string(value.param.position) + "Of" + std::to_string(value.param.size);
                         });

}  // namespace
