// Fuzz target: what is done to a file, against a vector of bytes that the same is done to.
#include <kxPAL/File.h>
#include <sys/stat.h>

#include <vector>

#include "Input.h"
#include "TemporaryFolder.h"

namespace {

using Murn::File;

constexpr std::int64_t largest = 60000;

/// One file, the object for it, and what it should be. Bytes that were written may wait in the stream: the vector has
/// them, the file's own size, which the bounds go by, does not count them.
class Case {
public:
    explicit Case(const TemporaryFolder& folder) : _path(folder.path("file")), _file(_path)
    {
        std::remove(_path.c_str());
    }

    void doOne(Input& input)
    {
        switch (input.upTo(11)) {
            case 0:
                return open(input);
            case 1:
                return close();
            case 2:
                FUZZ_CHECK(_file.flush() == _isOpen);
                return;
            case 3:
                return setPos(input.awkward(sizeOnDisk()));
            case 4:
                return read(input);
            case 5:
            case 6:
                return write(input);
            case 7:
                return resize(input);
            case 8:
                return insert(input);
            case 9:
                return erase(input);
            case 10:
                return create();
            default:
                return remove();
        }
    }

    void check() const
    {
        FUZZ_CHECK(_file.pos() == (_isOpen ? _position : -1));
        FUZZ_CHECK(_file.size() == sizeOnDisk());
        FUZZ_CHECK(_file.exists() == _exists);
        FUZZ_CHECK(_file.atEnd() == (_isOpen && _position == sizeOnDisk()));
    }

    void checkBytes()
    {
        if (!_exists)
            return;
        FUZZ_CHECK(!_isOpen || _file.flush());
        std::vector<char> bytes(_bytes.size() + 1);
        std::FILE* const stream = std::fopen(_path.c_str(), "rb");
        FUZZ_CHECK(stream != nullptr);
        bytes.resize(std::fread(bytes.data(), 1, bytes.size(), stream));
        std::fclose(stream);
        FUZZ_CHECK(bytes == _bytes);
    }

private:
    std::int64_t size() const { return static_cast<std::int64_t>(_bytes.size()); }

    std::int64_t sizeOnDisk() const
    {
        struct stat status {};
        return ::stat(_path.c_str(), &status) == 0 ? status.st_size : -1;
    }

    // Lengths that have a meaning, around those of blocks, and many that have none.
    long length(Input& input)
    {
        const long count = input.awkward(static_cast<long>(input.upTo(2)) * 8192);
        return size() > largest && count > 10 ? 10 : count;
    }

    std::vector<char> data(long count)
    {
        std::vector<char> bytes(static_cast<std::size_t>(std::max(count, 0L)));
        for (char& byte : bytes)
            byte = static_cast<char>(_next++ * 7 >> 2);
        return bytes;
    }

    void open(Input& input)
    {
        const int mode = input.flag() ? 1 + static_cast<int>(input.upTo(3)) : static_cast<int>(input.awkward(255));
        const bool opens = !_isOpen && _exists && mode >= File::ReadOnly && mode <= File::ReadWriteBinary;
        FUZZ_CHECK(_file.open(static_cast<File::FileMode>(mode)) == opens);
        if (!opens)
            return;
        _isOpen = true;
        _isWritable = mode == File::ReadWrite || mode == File::ReadWriteBinary;
        _position = 0;
    }

    void close()
    {
        _file.close();
        _isOpen = false;
    }

    void setPos(long place)
    {
        const bool isTaken = _isOpen && place >= 0 && place <= sizeOnDisk();
        FUZZ_CHECK(_file.setPos(place) == isTaken);
        if (isTaken)
            _position = place;
    }

    void read(Input& input)
    {
        const long off = input.flag() ? -1 : input.awkward(sizeOnDisk());
        const long count = length(input);
        const std::int64_t end = sizeOnDisk();
        const bool isTaken =
            _isOpen && count >= 1 && off >= -1 && off < end && (off == -1 ? count - 1 <= end : count <= end - off);
        std::vector<char> buffer(isTaken ? static_cast<std::size_t>(count) : 1);  // exact, for the sanitizer
        const std::int64_t result = _file.read(buffer.data(), count, off);
        if (!isTaken) {
            FUZZ_CHECK(result == -1);
            return;
        }
        if (off != -1)
            _position = off;
        const std::int64_t begin = std::min(_position, size());
        const std::int64_t part = std::min<std::int64_t>(count, size() - begin);
        FUZZ_CHECK(result == part);
        FUZZ_CHECK(std::equal(buffer.begin(), buffer.begin() + part, _bytes.begin() + begin));
        _position += part;
    }

    void write(Input& input)
    {
        long off = input.flag() ? -1 : input.awkward(sizeOnDisk());
        if (off > 2 * largest)
            off %= largest;
        const long count = length(input) % (largest + 1);
        const std::vector<char> bytes = data(count);
        const std::int64_t result = _file.write(bytes.data(), count, off);
        if (!_isOpen || count < 1 || off < -1) {
            FUZZ_CHECK(result == -1);
            return;
        }
        _position = off == -1 ? size() : off;
        FUZZ_CHECK(result == (_isWritable ? count : 0));
        if (!_isWritable)
            return;
        if (_position + count > size())
            _bytes.resize(static_cast<std::size_t>(_position + count));
        std::copy(bytes.begin(), bytes.end(), _bytes.begin() + _position);
        _position += count;
    }

    void resize(Input& input)
    {
        long count = input.awkward(size());
        if (count > largest)
            count %= largest;
        _file.flush();
        const bool isTaken = _isOpen && _isWritable && count >= 0;
        FUZZ_CHECK(_file.resize(count) == isTaken);
        if (isTaken)
            _bytes.resize(static_cast<std::size_t>(count));
    }

    void insert(Input& input)
    {
        const long place = input.awkward(size());
        const bool isInside = place >= 0 && place < size();
        const long count = isInside ? length(input) % (largest + 1) : length(input);
        const std::vector<char> bytes = data(isInside ? count : 1);
        _file.flush();
        const bool isTaken = _isOpen && _isWritable && isInside && count >= 1;
        FUZZ_CHECK(_file.insert(place, bytes.data(), count) == (isTaken ? count : -1));
        if (!isTaken)
            return;
        _bytes.insert(_bytes.begin() + place, bytes.begin(), bytes.end());
        _position = place + count;
    }

    void erase(Input& input)
    {
        const long place = input.awkward(size());
        const long count = input.flag() ? length(input) : input.awkward(size());
        _file.flush();
        const bool isRange = _isOpen && place >= 0 && count >= 1 && place < size() && count < size() - place;
        FUZZ_CHECK(_file.erase(place, count) == (isRange && _isWritable));
        if (!isRange)
            return;
        if (!_isWritable) {
            _position = place;  // where the first block was to be written
            return;
        }
        _position = size() - count;  // behind the last piece that moved
        _bytes.erase(_bytes.begin() + place, _bytes.begin() + place + count);
    }

    void create()
    {
        FUZZ_CHECK(_file.create());
        if (!_exists)
            _bytes.clear();
        _exists = true;
    }

    void remove()
    {
        FUZZ_CHECK(_file.removeFile() == (_exists && !_isOpen));
        if (!_isOpen)
            _exists = false;
    }

    std::string _path;
    File _file;
    bool _exists = false;
    bool _isOpen = false;
    bool _isWritable = false;
    std::vector<char> _bytes;
    std::int64_t _position = 0;
    unsigned int _next = 0;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TemporaryFolder folder;
    Input input(data, size);
    Case both(folder);
    for (int step = 0; step < 200 && !input.isEmpty(); ++step) {
        both.doOne(input);
        both.check();
    }
    both.checkBytes();
    return 0;
}
