// The SHA-256 checksum of a file.
#include "FileHash.h"

#include <fcntl.h>
#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <memory>

namespace {

constexpr std::size_t pieceSize = 65536;

struct FreeChecksum {
    void operator()(GChecksum* checksum) const { g_checksum_free(checksum); }
};

using Checksum = std::unique_ptr<GChecksum, FreeChecksum>;

/// A file that is open for reading.
class OpenFile {
public:
    explicit OpenFile(const std::string& name) : _fd(::open(name.c_str(), O_RDONLY | O_CLOEXEC)) {}

    ~OpenFile()
    {
        if (_fd != -1)
            ::close(_fd);
    }

    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

    bool isOpen() const { return _fd != -1; }
    ssize_t read(unsigned char* buffer, std::size_t size) const { return ::read(_fd, buffer, size); }

private:
    int _fd;
};

}  // namespace

FileHash hashFile(const std::string& name, std::atomic<std::uint64_t>& bytesRead)
{
    const OpenFile file(name);
    if (!file.isOpen())
        return {"", errno};

    const Checksum checksum(g_checksum_new(G_CHECKSUM_SHA256));
    unsigned char piece[pieceSize];
    ssize_t count = 0;
    while ((count = file.read(piece, sizeof piece)) > 0) {
        g_checksum_update(checksum.get(), piece, count);
        bytesRead.fetch_add(static_cast<std::uint64_t>(count), std::memory_order_relaxed);
    }
    if (count == -1)
        return {"", errno};
    return {g_checksum_get_string(checksum.get()), 0};
}
