// The floor of insertions into files: the same moves of blocks with bare stdio.
#ifndef KXPAL_BENCH_FILE_SHIFT_H
#define KXPAL_BENCH_FILE_SHIFT_H

#include <unistd.h>

#include <cstdio>

/// Opens the path anew and looks for its end, as File::size() does before each block that it reads.
inline bool lookAtEnd(const char* path)
{
    std::FILE* const stream = std::fopen(path, "r");
    if (stream == nullptr)
        return false;
    const bool looked = ::fseeko(stream, 0, SEEK_END) == 0 && ::ftello(stream) >= 0;
    return std::fclose(stream) == 0 && looked;
}

/// Reads a piece of at most a block at one place and writes it at another.
inline bool movePieceByHand(std::FILE* stream, long from, long to, std::size_t count)
{
    char block[8192];
    return ::fseeko(stream, from, SEEK_SET) == 0 && std::fread(block, 1, count, stream) == count &&
           ::fseeko(stream, to, SEEK_SET) == 0 && std::fwrite(block, 1, count, stream) == count;
}

/// Makes room at a place, moving blocks of 8192 bytes from the last one on, and writes the data there.
/// @param size    of the file
/// @param opened  the path to open once for each block; null to do without
inline bool insertByHand(std::FILE* stream, long size, long place, const char* data, long length,
                         const char* opened = nullptr)
{
    constexpr long block = 8192;
    if (::ftruncate(::fileno(stream), size + length) != 0)
        return false;
    long from = size - block;
    for (; place < from; from -= block) {
        if (opened != nullptr && !lookAtEnd(opened))
            return false;
        if (!movePieceByHand(stream, from, from + length, block))
            return false;
    }
    if (!movePieceByHand(stream, place, place + length, static_cast<std::size_t>(from + block - place)))
        return false;
    return ::fseeko(stream, place, SEEK_SET) == 0 &&
           std::fwrite(data, 1, static_cast<std::size_t>(length), stream) == static_cast<std::size_t>(length) &&
           std::fflush(stream) == 0;
}

#endif
