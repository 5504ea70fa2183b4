// The SHA-256 checksum of a file.
#ifndef CHECKSUM_FILE_HASH_H
#define CHECKSUM_FILE_HASH_H

#include <atomic>
#include <cstdint>
#include <string>

/// What became of a file.
struct FileHash {
    std::string digits;  ///< the checksum, 64 hexadecimal digits; empty when the file could not be read
    int error = 0;       ///< 0, or the error number of what failed
};

/// Any thread. Reads a file from its beginning to its end, a piece at a time, so that its size does not matter.
/// @param bytesRead  grows with each piece
FileHash hashFile(const std::string& name, std::atomic<std::uint64_t>& bytesRead);

#endif
