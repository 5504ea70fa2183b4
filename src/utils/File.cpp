// One file, by its path.
#include "File.h"

#include <stdio_ext.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <limits>
#include <utility>

#include "Dir.h"
#include "Paths.h"

namespace Murn {

namespace {

// What insert() and erase() move at once, through a buffer on the stack.
constexpr int blockSize = 8192;

// Null for a mode that nothing can be opened in. None of them creates or truncates, on purpose.
const char* streamMode(File::FileMode mode)
{
    switch (mode) {
        case File::ReadOnly:
            return "r";
        case File::ReadWrite:
            return "r+";
        case File::ReadOnlyBinary:
            return "rb";
        case File::ReadWriteBinary:
            return "rb+";
        case File::NotOpen:
            break;
    }
    return nullptr;
}

// Makes the stream forget what it has read ahead, which may not be what is in the file any more. A seek within that
// would keep it, hence the way around behind it. What waits to be written stays where it is.
void forgetReadAhead(std::FILE* stream)
{
    if (::__fpending(stream) != 0)
        return;
    const off_t position = ::ftello(stream);
    const off_t way = static_cast<off_t>(::__fbufsize(stream)) + 1;
    if (position < 0 || position > std::numeric_limits<off_t>::max() - way)
        return;
    if (::fseeko(stream, position + way, SEEK_SET) == 0)
        static_cast<void>(::fseeko(stream, position, SEEK_SET));  // where it was a moment ago
}

// Writes a piece through to the file. On a full disk a part of it may get there.
bool writeThrough(File& file, const char* piece, std::int64_t count, std::int64_t to)
{
    return file.write(piece, count, to) == count && file.flush();
}

// Reads a piece of the file at one offset and writes it at another. Whether all of it was moved; a piece larger than a
// block, of a file that somebody else makes longer meanwhile, is not.
bool movePiece(File& file, std::int64_t from, std::int64_t to, std::int64_t count)
{
    char block[blockSize];
    if (count > blockSize || file.read(block, count, from) != count)
        return false;
    if (writeThrough(file, block, count, to))
        return true;
    // Towards the end a part of the piece may have gone over the rest of it, which is nowhere else then. Its old place
    // needs no room on the disk.
    const int error = errno;
    if (to > from)
        static_cast<void>(writeThrough(file, block, count, from));
    errno = error;
    return false;
}

}  // namespace

File::File(std::string path) : _mode(NotOpen), _path(std::move(path)), _stream(nullptr) {}

// NOLINTNEXTLINE(performance-unnecessary-value-param): hosts link this signature.
File::File(std::string dir, std::string name) : _mode(NotOpen), _path(safeConcatenate(dir, name)), _stream(nullptr) {}

File::~File()
{
    close();
}

bool File::open(FileMode mode)
{
    if (_stream != nullptr || !exists())
        return false;
    const char* const openMode = streamMode(mode);
    if (openMode == nullptr)
        return false;
    _stream = std::fopen(paths::forSystem(_path), openMode);
    if (_stream == nullptr)
        return false;
    _mode = mode;
    return true;
}

void File::close()
{
    if (_stream != nullptr)
        static_cast<void>(std::fclose(_stream));  // a caller who must know whether all was written calls flush() first
    _stream = nullptr;
    _mode = NotOpen;
}

bool File::flush()
{
    return _stream != nullptr && std::fflush(_stream) == 0;
}

std::int64_t File::pos() const
{
    return _stream != nullptr ? ::ftello(_stream) : -1;
}

bool File::setPos(long pos)
{
    return _stream != nullptr && pos <= size() && ::fseeko(_stream, pos, SEEK_SET) == 0;
}

std::int64_t File::size() const
{
    std::FILE* const stream = std::fopen(paths::forSystem(_path), "r");
    if (stream == nullptr)
        return -1;
    if (::fseeko(stream, 0, SEEK_END) != 0)
        return -1;  // the stream stays open, on purpose: see the header
    const std::int64_t end = ::ftello(stream);
    static_cast<void>(std::fclose(stream));  // nothing was written
    return end;
}

bool File::atEnd() const
{
    return _stream != nullptr && pos() == size();
}

std::int64_t File::read(char* buf, long len, long off)
{
    if (_stream == nullptr || len < 1 || off < -1)
        return -1;
    // The bounds take -1 for what it is, on purpose, although it stands for the current position: see the header.
    const std::int64_t end = size();
    // A byte or more that ends within the file begins within it as well.
    const bool isTooLong = off == -1 ? len - 1 > end : len > end - off;
    if (isTooLong)
        return -1;
    if (off != -1 && ::fseeko(_stream, off, SEEK_SET) != 0)
        return -1;
    // Between a write and a read a stream wants a seek, or what waits to be written is lost.
    if (off == -1 && ::__fpending(_stream) != 0 && ::fseeko(_stream, 0, SEEK_CUR) != 0)
        return -1;
    std::clearerr(_stream);  // a stream that has seen the end would not look whether the file is longer by now
    return static_cast<std::int64_t>(std::fread(buf, 1, static_cast<std::size_t>(len), _stream));
}

std::int64_t File::write(const char* buf, long len, long off)
{
    if (_stream == nullptr || len < 1)
        return -1;
    // Here -1 is the end and not the current position, on purpose.
    const int sought = off == -1 ? ::fseeko(_stream, 0, SEEK_END) : ::fseeko(_stream, off, SEEK_SET);
    if (sought != 0)
        return -1;
    return static_cast<std::int64_t>(std::fwrite(buf, 1, static_cast<std::size_t>(len), _stream));
}

bool File::resize(long len)
{
    if (len < 0 || _stream == nullptr || ::ftruncate(::fileno(_stream), len) != 0)
        return false;
    forgetReadAhead(_stream);
    return true;
}

std::int64_t File::insert(long pos, const char* data, long len)
{
    if (_stream == nullptr || pos < 0 || len < 1)
        return -1;
    const std::int64_t end = size();
    if (pos >= end)
        return -1;
    // 32-bit on purpose: hosts rely on large files being refused. What does not fit must not reach the resize.
    if (end > std::numeric_limits<std::int32_t>::max() || len > std::numeric_limits<std::int64_t>::max() - end)
        return -1;
    const auto oldSize = static_cast<std::uint32_t>(end);
    std::int32_t cursor = static_cast<std::int32_t>(oldSize) - blockSize;

    if (!resize(oldSize + len))
        return -1;
    for (; pos < cursor; cursor -= blockSize) {
        if (!movePiece(*this, cursor, cursor + len, blockSize))
            return -1;
    }
    if (!movePiece(*this, pos, pos + len, cursor + blockSize - pos))
        return -1;
    return write(data, len, pos);
}

bool File::erase(long pos, long len)
{
    if (_stream == nullptr || pos < 0 || len < 1)
        return false;
    // A range up to the end is refused, on purpose: that is what resize() is for.
    if (len >= size() - pos)
        return false;
    std::int64_t from = pos + len;
    for (; from + blockSize < size(); from += blockSize) {
        if (!movePiece(*this, from, from - len, blockSize))
            return false;
    }
    return movePiece(*this, from, from - len, size() - from) && resize(size() - len);
}

bool File::create()
{
    if (exists())
        return true;
    Dir directory(path());
    if (!directory.exists() && !directory.create())
        return false;
    std::FILE* const stream = std::fopen(paths::forSystem(_path), "a");
    if (stream == nullptr)
        return false;
    static_cast<void>(std::fclose(stream));  // nothing was written
    // For everybody, on purpose. A file of somebody else's keeps its mode, so the result is nobody's concern.
    static_cast<void>(::chmod(paths::forSystem(_path), S_IRWXU | S_IRWXG | S_IRWXO));
    return true;
}

bool File::removeFile()
{
    return _stream == nullptr && std::remove(paths::forSystem(_path)) == 0;
}

bool File::move(const std::string& newPath)
{
    return std::rename(paths::forSystem(_path), paths::forSystem(newPath)) == 0;
}

void File::setPath(std::string path)
{
    if (!path.empty() && path.back() == '/')
        path.pop_back();
    _path = paths::resolved(path);
}

std::string File::fileName() const
{
    return paths::nameOf(_path);
}

std::string File::extension() const
{
    const std::string name = fileName();
    const std::size_t dot = name.rfind('.');
    return dot == std::string::npos ? std::string() : name.substr(dot + 1);
}

std::string File::path() const
{
    return _path.substr(0, _path.find_last_of(paths::separators) + 1);
}

std::string File::getParentPath() const
{
    return paths::parentOf(_path);
}

bool File::exists() const
{
    std::FILE* const stream = std::fopen(paths::forSystem(_path), "r");
    if (stream == nullptr)
        return false;
    static_cast<void>(std::fclose(stream));  // nothing was written
    return true;
}

bool File::lastAccessedTime(long& t) const
{
    return paths::lastAccessedTime(_path, t);
}

bool File::lastModifiedTime(long& t) const
{
    return paths::lastModifiedTime(_path, t);
}

bool File::setLastAccessedTime(const long& t)
{
    return paths::setLastAccessedTime(_path, t);
}

bool File::setLastModifiedTime(const long& t)
{
    return paths::setLastModifiedTime(_path, t);
}

std::string File::safeConcatenate(const std::string& a, const std::string& b)
{
    if (a.empty())
        return b;
    if (b.empty())
        return a;
    const bool isBefore = a.back() == '/';
    const bool isBehind = b.front() == '/';
    if (isBefore && isBehind)
        return a + b.substr(1);
    return isBefore || isBehind ? a + b : a + "/" + b;
}

}  // namespace Murn
