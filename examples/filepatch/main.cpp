// Puts bytes into the middle of a file, takes bytes out of it, or shows some. The status is 2 when that cannot be done
// and the file is as it was, and 1 when it went wrong on the way.
#include <kxPAL/File.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string>

#include "Options.h"

namespace {

using Murn::File;

constexpr int wentWrong = 1;
constexpr int cannotDo = 2;
// File::insert() counts with 32 bits.
constexpr std::int64_t insertLimit = std::numeric_limits<std::int32_t>::max();
constexpr long blockSize = 65536;

int refuse(const std::string& name, const std::string& why)
{
    std::fprintf(stderr, "filepatch: %s: %s\n", name.c_str(), why.c_str());
    return cannotDo;
}

int fail(const std::string& name)
{
    std::fprintf(stderr, "filepatch: %s: it went wrong on the way, and the file may be damaged: %s\n", name.c_str(),
                 std::strerror(errno));
    return wentWrong;
}

std::string bytes(std::int64_t count)
{
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

// Opens the file, or says why not.
std::optional<int> open(File& file, const std::string& name, File::FileMode mode)
{
    errno = 0;
    if (file.open(mode))
        return std::nullopt;
    return refuse(name, errno != 0 ? std::strerror(errno) : "it cannot be opened");
}

// What lies outside of the file, if anything does.
std::optional<int> checkRange(const File& file, const Options& options)
{
    const std::int64_t size = file.size();
    if (options.offset <= size && options.length <= size - options.offset)
        return std::nullopt;
    return refuse(options.file, bytes(options.length) + " at " + std::to_string(options.offset) +
                                    " are not all in the file, which has " + bytes(size));
}

// Reads a whole file that is to be inserted into another one.
std::optional<int> readAll(const std::string& name, std::string& all)
{
    File file(name);
    if (const std::optional<int> status = open(file, name, File::ReadOnlyBinary))
        return status;
    const std::int64_t size = file.size();
    if (size > insertLimit)
        return refuse(name, "2 GiB and more cannot be inserted");
    all.resize(static_cast<std::size_t>(size));
    if (size > 0 && file.read(all.data(), size, 0) != size)
        return refuse(name, "it cannot be read");
    return std::nullopt;
}

int report(File& file, const Options& options, const char* what, std::int64_t count)
{
    if (!file.flush())  // what is still in the buffer can fail, too
        return fail(options.file);
    std::printf("%s: %s %s at %ld, now %s\n", options.file.c_str(), what, bytes(count).c_str(), options.offset,
                bytes(file.size()).c_str());
    return 0;
}

int insert(const Options& options)
{
    std::string data = options.text.value_or("");
    if (options.from) {
        if (const std::optional<int> status = readAll(*options.from, data))
            return *status;
    }
    if (data.empty())
        return refuse(options.file, "there is nothing to insert");
    File file(options.file);
    if (const std::optional<int> status = open(file, options.file, File::ReadWriteBinary))
        return *status;
    const std::int64_t size = file.size();
    if (options.offset > size)
        return refuse(options.file,
                      std::to_string(options.offset) + " is behind the end of the file, which has " + bytes(size));
    if (size > insertLimit && options.offset < size)
        return refuse(options.file, "nothing can be inserted into 2 GiB and more");

    const auto length = static_cast<std::int64_t>(data.size());
    // insert() is for the middle; write() with -1 appends.
    const std::int64_t written =
        options.offset == size ? file.write(data.data(), length, -1) : file.insert(options.offset, data.data(), length);
    return written == length ? report(file, options, "inserted", length) : fail(options.file);
}

int erase(const Options& options)
{
    File file(options.file);
    if (const std::optional<int> status = open(file, options.file, File::ReadWriteBinary))
        return *status;
    if (const std::optional<int> status = checkRange(file, options))
        return *status;
    // erase() is for the middle; resize() cuts off the end.
    const bool isAtEnd = options.offset + options.length == file.size();
    const bool erased = isAtEnd ? file.resize(options.offset) : file.erase(options.offset, options.length);
    return erased ? report(file, options, "erased", options.length) : fail(options.file);
}

int show(const Options& options)
{
    File file(options.file);
    if (const std::optional<int> status = open(file, options.file, File::ReadOnlyBinary))
        return *status;
    if (const std::optional<int> status = checkRange(file, options))
        return *status;
    char block[blockSize];
    for (long shown = 0; shown < options.length;) {
        const long left = options.length - shown;
        const std::int64_t count = file.read(block, left < blockSize ? left : blockSize, options.offset + shown);
        if (count <= 0)
            return refuse(options.file, "it cannot be read");
        if (std::fwrite(block, 1, static_cast<std::size_t>(count), stdout) != static_cast<std::size_t>(count))
            break;
        shown += count;
    }
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return 0;
    std::fprintf(stderr, "filepatch: cannot print: %s\n", std::strerror(errno));
    return wentWrong;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (const std::optional<int> status = readOptions(argc, argv, options))
        return *status;
    switch (options.command) {
        case Options::Command::Insert:
            return insert(options);
        case Options::Command::Erase:
            return erase(options);
        case Options::Command::Show:
            return show(options);
    }
    return cannotDo;
}
