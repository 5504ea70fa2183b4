// Files. Reads and writes go to scattered places in a file of 1 MiB, in the page cache.
//
//   read      File::read at an offset     against fseeko and fread; the library looks at the size by a fresh open
//   write     File::write at an offset    against fseeko and fwrite
//   exists    File::exists                against fopen and fclose
//   insert    File::insert in the middle  against the same moves of blocks with fseeko, fread and fwrite; the file
//             has 64 KiB, and ftruncate makes it short again
#include <kxPAL/File.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "FileShift.h"
#include "Ratio.h"

namespace {

using Murn::File;

constexpr long fileSize = 1 << 20;
constexpr long shiftedSize = 65536;
constexpr long pieceSize = 512;

/// A file of so many bytes, gone with the object.
class ScratchFile {
public:
    explicit ScratchFile(long size)
    {
        const int fd = ::mkstemp(_path.data());
        const std::vector<char> bytes(static_cast<std::size_t>(size), 'x');
        require(fd != -1 && ::write(fd, bytes.data(), bytes.size()) == size, "there is room for a file");
        ::close(fd);
    }

    ~ScratchFile() { ::unlink(_path.c_str()); }

    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;

    const std::string& path() const { return _path; }

private:
    std::string _path = "/tmp/kxpal-bench-XXXXXX";
};

// Goes to every place once, in jumps.
long nextPlace(long place)
{
    return (place + 37 * pieceSize) % (fileSize - pieceSize);
}

void libraryRead(benchmark::State& state)
{
    const ScratchFile scratch(fileSize);
    File file(scratch.path());
    require(file.open(File::ReadOnlyBinary), "the file opens");
    char piece[pieceSize] = {};
    bool all = true;
    long place = 0;
    for (auto _ : state) {
        all = file.read(piece, pieceSize, place) == pieceSize && all;
        place = nextPlace(place);
    }
    require(all && piece[0] == 'x', "everything was read");
}

void floorRead(benchmark::State& state)
{
    const ScratchFile scratch(fileSize);
    std::FILE* const stream = std::fopen(scratch.path().c_str(), "rb");
    char piece[pieceSize] = {};
    bool all = true;
    long place = 0;
    for (auto _ : state) {
        all = ::fseeko(stream, place, SEEK_SET) == 0 && std::fread(piece, 1, pieceSize, stream) == pieceSize && all;
        place = nextPlace(place);
    }
    std::fclose(stream);
    require(all && piece[0] == 'x', "everything was read");
}

void libraryWrite(benchmark::State& state)
{
    const ScratchFile scratch(fileSize);
    File file(scratch.path());
    require(file.open(File::ReadWriteBinary), "the file opens");
    const char piece[pieceSize] = {};
    bool all = true;
    long place = 0;
    for (auto _ : state) {
        all = file.write(piece, pieceSize, place) == pieceSize && all;
        place = nextPlace(place);
    }
    require(all && file.flush() && file.size() == fileSize, "everything was written");
}

void floorWrite(benchmark::State& state)
{
    const ScratchFile scratch(fileSize);
    std::FILE* const stream = std::fopen(scratch.path().c_str(), "rb+");
    const char piece[pieceSize] = {};
    bool all = true;
    long place = 0;
    for (auto _ : state) {
        all = ::fseeko(stream, place, SEEK_SET) == 0 && std::fwrite(piece, 1, pieceSize, stream) == pieceSize && all;
        place = nextPlace(place);
    }
    require(all && std::fclose(stream) == 0, "everything was written");
}

void libraryExists(benchmark::State& state)
{
    const ScratchFile scratch(1);
    const File file(scratch.path());
    bool all = true;
    for (auto _ : state)
        all = file.exists() && all;
    require(all, "the file exists");
}

void floorExists(benchmark::State& state)
{
    const ScratchFile scratch(1);
    bool all = true;
    for (auto _ : state) {
        std::FILE* const stream = std::fopen(scratch.path().c_str(), "r");
        all = stream != nullptr && std::fclose(stream) == 0 && all;
    }
    require(all, "the file exists");
}

void libraryInsert(benchmark::State& state)
{
    const ScratchFile scratch(shiftedSize);
    File file(scratch.path());
    require(file.open(File::ReadWriteBinary), "the file opens");
    bool all = true;
    for (auto _ : state)
        all = file.insert(shiftedSize / 2, "0123456789", 10) == 10 && file.resize(shiftedSize) && all;
    require(all, "everything was inserted");
}

void floorInsert(benchmark::State& state)
{
    const ScratchFile scratch(shiftedSize);
    std::FILE* const stream = std::fopen(scratch.path().c_str(), "rb+");
    bool all = true;
    for (auto _ : state) {
        all = insertByHand(stream, shiftedSize, shiftedSize / 2, "0123456789", 10) &&
              ::ftruncate(::fileno(stream), shiftedSize) == 0 && all;
    }
    std::fclose(stream);
    require(all, "everything was inserted");
}

}  // namespace

int main(int argc, char** argv)
{
    RatioTable table;
    table.compare("File: read 512 bytes at an offset", libraryRead, floorRead);
    table.compare("File: write 512 bytes at an offset", libraryWrite, floorWrite);
    table.compare("File: exists", libraryExists, floorExists);
    table.compare("File: insert into the middle of 64 KiB", libraryInsert, floorInsert);
    return table.run(argc, argv);
}
