// One file, by its path.
#ifndef MURN_FILE_H
#define MURN_FILE_H

#include <cstdint>
#include <cstdio>
#include <string>

#include "Export.h"

namespace Murn {

/// One file, named by its path: whole-file operations, and reads and writes at an offset. Stands on the streams of
/// stdio. Offsets and sizes are in bytes.
///
/// A fifo that nobody writes to makes open(), exists() and size() wait, and whatever asks for these.
///
/// A file must exist to be opened; create() is the only way to make one. Failures are told by the result alone, and
/// errno says why when a system call failed. Operations on the path (exists(), size(), create(), removeFile(), move(),
/// the times) work whether the file is open or not.
///
/// Bytes that were written may wait in the stream's buffer until flush(), close(), or the next seek. size() looks at
/// the file itself and does not count them; so does every bound below that is made with it. flush() before asking.
/// What waits is gone when writing it fails, as on a full disk, and the operation that tried is the one that tells:
/// flush(), setPos(), read(), write() and insert() fail then, and the next one may succeed again.
///
/// One thread at a time, not locked. Paths are bytes; where a path is taken apart, both "/" and "\" separate. A path
/// with a zero byte in it names nothing, not what is named up to there: whatever would reach the file fails (ENOENT).
class MURN_API File {
public:
    enum FileMode : int {
        ReadOnly = 1,         ///< "r"
        ReadWrite = 2,        ///< "r+"
        ReadOnlyBinary = 3,   ///< "rb"
        ReadWriteBinary = 4,  ///< "rb+"
        NotOpen = 255         ///< The closed state.
    };

    /// @param path  kept as it is: a relative one stays relative to the working directory, unlike in setPath() and Dir
    explicit File(std::string path);
    /// The path is safeConcatenate(dir, name).
    File(std::string dir, std::string name);
    /// Closes the file.
    virtual ~File();

    File(const File&) = delete;
    File& operator=(const File&) = delete;

    /// Opens the file (`fopen`).
    /// @return false when the file is open already, and stays so; when it does not exists(); for a mode that is not in
    ///         the list above `NotOpen`; when the system refuses
    bool open(FileMode mode);
    /// Closes the file (`fclose`), which writes what waits in the buffer, and tells nobody when that fails: flush()
    /// before. Does nothing to a closed one.
    void close();
    /// Writes what waits in the stream's buffer (`fflush`).
    /// @return false when not open, or when that failed
    bool flush();

    /// @return the stream's position (`ftello`); -1 when not open
    std::int64_t pos() const;
    /// Moves the stream's position (`fseeko`).
    /// @param pos  from 0 to size(), the end included
    /// @return false for another position, and when not open
    bool setPos(long pos);
    /// Opens the path anew, with `fopen`, and looks for its end.
    /// @return the size of the file itself; -1 when the path cannot be opened. When it cannot be sought in, -1 as well,
    ///         and the stream that was opened to look stays open for good, which is how this works.
    std::int64_t size() const;
    /// @return whether the position is at size(); false when not open
    bool atEnd() const;

    /// Reads (`fseeko`, `fread`).
    /// @param buf  room for `len` bytes
    /// @param len  how many bytes; at least 1
    /// @param off  where from, below size(); or -1 for the current position
    /// @return how many were read; -1 when not open, when the range does not lie within size(), or when the seek
    ///         failed. With -1 as `off` the bounds are made with the number -1 itself, on purpose: only `len` above
    ///         size() + 1 is refused, and a read across the end gives the bytes that are there.
    std::int64_t read(char* buf, long len, long off);
    /// Writes (`fseeko`, `fwrite`). A write behind the end makes the file longer.
    /// @param buf  `len` bytes
    /// @param len  how many; at least 1
    /// @param off  where to; or -1 for the end. The difference to read() is intended: what has no place is appended.
    /// @return how many were taken, 0 in a file that is open for reading only; -1 when not open or when the seek failed
    std::int64_t write(const char* buf, long len, long off);
    /// Makes the file longer, with zeros, or shorter (`ftruncate`).
    /// Does not flush: bytes that wait are written to their place later, even behind the new end.
    /// @return false when `len` is negative, when not open, and when the system refuses
    bool resize(long len);

    /// Makes room at `pos`, by moving what is behind it towards the end in blocks of 8192 bytes, the last one first,
    /// and writes the data there. Needs a file that is open for reading and writing, and below 2 GiB: the arithmetic is
    /// of 32 bits on purpose, and a larger file is refused before anything changes. flush() before: the end that counts
    /// is that of the file itself, and with bytes that wait to be written the outcome is undefined.
    ///
    /// A failure in the middle leaves the file longer by `len`, with the room for the data at the end of some block
    /// behind `pos`, or at the end of the file, instead of at `pos`: what is before the room stands at its old place,
    /// what is behind it at its new one, and what is in it means nothing. So nothing is lost, on a full disk either:
    /// a block that was written in part is put back. Where that fails as well, up to `len` bytes of it are gone.
    ///
    /// The data itself is written like anything else, and may wait in the buffer.
    /// @param pos   where, below size(); to append, write() with -1
    /// @param data  `len` bytes
    /// @param len   at least 1
    /// @return how many bytes of the data were taken, fewer than `len` where they could not be written into the room
    ///         at `pos`; -1 when not open, for other arguments, and when the room could not be made
    std::int64_t insert(long pos, const char* data, long len);
    /// Takes bytes out, by moving what is behind them towards the start in blocks of 8192 bytes, the first one first,
    /// and making the file shorter. Needs a file that is open for reading and writing. flush() before: with bytes that
    /// wait to be written the outcome is undefined.
    ///
    /// Everything has reached the file before it becomes shorter. A failure in the middle leaves the file at its size:
    /// some of the bytes behind the range stand at their new places, one after the other from `pos` on, and what is
    /// behind these stands as it was. So nothing is lost but what was to go.
    /// @param pos  the first byte that goes
    /// @param len  how many go, at least 1. The range must end before the end of the file, on purpose: to cut off the
    ///             end, resize().
    /// @return whether it is done
    bool erase(long pos, long len);

    /// Makes an empty file, and the missing directories above it by Dir::create(), which takes a relative path as Dir
    /// does. The file's mode becomes 0777, whatever the umask.
    /// One that is there but cannot be opened for reading does not count as there: if it can be written, it keeps its
    /// bytes and gets that mode.
    /// @return true also for a file that exists(); false when the directory or the file cannot be made
    bool create();
    /// Removes the file (`remove`).
    /// @return false while it is open, and when the system refuses
    bool removeFile();
    /// Gives the file another path (`rename`). This object keeps the old one, on purpose.
    /// @return false when the system refuses, as it does for a path on another file system
    bool move(const std::string& newPath);

    /// Sets the path. It ends at most one "/" at its end. A relative path is taken from the directory of the program,
    /// which is what comes before the last separator of its first argument, and not from the working directory; an
    /// empty one and "/" alone are that directory. Without an application that ends the process through a fatal check;
    /// with one that has no arguments, `std::out_of_range` is thrown.
    void setPath(std::string path);
    /// @return what is behind the last separator; the whole path when there is none
    std::string fileName() const;
    /// @return what is behind the last "." of fileName(); empty when there is none
    std::string extension() const;
    /// @return the path up to its last separator, which is part of it; empty when there is none
    std::string path() const;
    /// @return the path up to its last separator, which is not part of it; "/" when that is the first character; the
    ///         whole path when there is none
    std::string getParentPath() const;
    /// @return whether the path can be opened for reading (`fopen`). A file that may not be read counts as absent, and
    ///         a directory that may as present.
    bool exists() const;

    /// The time of the last access, from `stat`.
    /// @param t  set to whole seconds since 1970-01-01 00:00:00 UTC
    /// @return false when there is no such file; `t` keeps its value then
    bool lastAccessedTime(long& t) const;
    /// The time of the last modification; otherwise as lastAccessedTime().
    bool lastModifiedTime(long& t) const;
    /// Sets the time of the last access and leaves that of the modification (`stat`, `utime`), in whole seconds.
    bool setLastAccessedTime(const long& t);
    /// Sets the time of the last modification and leaves that of the access.
    bool setLastModifiedTime(const long& t);

    /// Joins two pieces of a path with one "/": one that `a` ends with or `b` begins with serves, and of two at the
    /// seam one goes. More than one on a side stay. An empty piece leaves the other one as it is.
    static std::string safeConcatenate(const std::string& a, const std::string& b);

private:
    FileMode _mode;
    std::string _path;
    std::FILE* _stream;  // owned; null when closed
};

}  // namespace Murn

#endif
