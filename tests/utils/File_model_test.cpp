// Files against a model of them: a plain vector of bytes that the same operations are done to.
//
// KXPAL_MODEL_SEED=12345 tries the sequence of one seed alone, for example one that a failure has named.
#include <gtest/gtest.h>
#include <kxPAL/File.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "TemporaryFolder.h"

namespace {

using Murn::File;

/// What a file is to do, in the words of a vector. Everything written is in the file at once.
class Model {
public:
    std::vector<char> bytes;
    std::int64_t position = 0;

    std::int64_t size() const { return static_cast<std::int64_t>(bytes.size()); }

    std::string read(long length, long offset)
    {
        if (length < 1 || offset < -1 || offset + length > size() || offset >= size())
            return "refused";
        if (offset != -1)
            position = offset;
        const std::int64_t begin = std::min(position, size());
        const std::int64_t end = std::min(begin + length, size());
        if (begin < end)
            position = end;
        return std::string(bytes.begin() + begin, bytes.begin() + end);
    }

    std::int64_t write(const std::string& data, long offset)
    {
        if (data.empty() || offset < -1)
            return -1;
        position = offset == -1 ? size() : offset;
        const auto length = static_cast<std::int64_t>(data.size());
        if (position + length > size())
            bytes.resize(static_cast<std::size_t>(position + length));
        std::copy(data.begin(), data.end(), bytes.begin() + position);
        position += length;
        return length;
    }

    bool resize(long length)
    {
        if (length >= 0)
            bytes.resize(static_cast<std::size_t>(length));
        return length >= 0;
    }

    std::int64_t insert(long place, const std::string& data)
    {
        if (place < 0 || place >= size() || data.empty())
            return -1;
        bytes.insert(bytes.begin() + place, data.begin(), data.end());
        position = place + static_cast<std::int64_t>(data.size());
        return static_cast<std::int64_t>(data.size());
    }

    bool erase(long place, long length)
    {
        if (place < 0 || length < 1 || place >= size() || place + length >= size())
            return false;
        position = size() - length;  // behind the last piece that moved
        bytes.erase(bytes.begin() + place, bytes.begin() + place + length);
        return true;
    }

    bool setPos(long place)
    {
        const bool taken = place >= 0 && place <= size();
        if (taken)
            position = place;
        return taken;
    }
};

/// One sequence of operations, made up from a seed and done to both.
class Sequence {
public:
    explicit Sequence(std::uint32_t seed) : _random(seed)
    {
        _folder.makeFile("file", data(anyOf({0, 1, 100, 8192, 20000})));
        const std::string bytes = _folder.bytesOf("file");
        _model.bytes.assign(bytes.begin(), bytes.end());
        EXPECT_TRUE(_file.open(anyOf({0, 1}) == 0 ? File::ReadWrite : File::ReadWriteBinary));
    }

    void run(int steps)
    {
        for (int step = 0; step < steps && !::testing::Test::HasFailure(); ++step) {
            std::ostringstream operation;
            doOne(operation);
            SCOPED_TRACE("step " + std::to_string(step) + ": " + operation.str());
            EXPECT_EQ(_file.pos(), _model.position);
            // No more often than needed, so that what the stream has read ahead stays for the next steps.
            EXPECT_TRUE(!_hasWritten || _file.flush());
            _hasWritten = false;
            EXPECT_EQ(_file.size(), _model.size());
            EXPECT_EQ(_file.atEnd(), _model.position == _model.size());
            const std::string bytes = _folder.bytesOf("file");
            EXPECT_TRUE(std::equal(bytes.begin(), bytes.end(), _model.bytes.begin(), _model.bytes.end()));
        }
    }

private:
    long anyOf(const std::vector<long>& values) { return values[_random() % values.size()]; }
    long upTo(long limit) { return static_cast<long>(_random() % static_cast<std::uint64_t>(limit + 1)); }

    // Places and lengths within the file, around its ends and around those of blocks.
    long place()
    {
        const long size = _model.size();
        const long near = anyOf({0, size, size / 2, 8192, size - 8192, 16384, 4096});
        return anyOf({upTo(size), upTo(size), near, near + 1, near - 1, -1, -2});
    }

    long length() { return anyOf({upTo(10), upTo(10), upTo(9000), upTo(20000), 8192, 4096, 1, 0, -1}); }

    std::string data(long length)
    {
        std::string bytes(static_cast<std::size_t>(std::max(length, 0L)), '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(_random());
        return bytes;
    }

    std::string read(long length, long offset)
    {
        std::string buffer(static_cast<std::size_t>(std::max(length, 1L)), '.');
        const std::int64_t count = _file.read(buffer.data(), length, offset);
        return count == -1 ? "refused" : buffer.substr(0, static_cast<std::size_t>(count));
    }

    void doOne(std::ostringstream& operation)
    {
        const long at = place();
        // Small files stay interesting, large ones slow.
        const long count = _model.size() > 60000 ? std::min(length(), 10L) : length();
        switch (_random() % 7) {
            case 0: {
                operation << "read " << count << " at " << at;
                EXPECT_TRUE(read(count, at) == _model.read(count, at)) << operation.str();
                break;
            }
            case 1: {
                operation << "write " << count << " at " << at;
                const std::string bytes = data(count);
                _hasWritten = true;
                EXPECT_EQ(_file.write(bytes.data(), count, at), _model.write(bytes, at)) << operation.str();
                break;
            }
            case 2: {
                const long size = std::min(at, 60000L);
                operation << "resize to " << size;
                EXPECT_EQ(_file.resize(size), _model.resize(size)) << operation.str();
                break;
            }
            case 3: {
                operation << "insert " << count << " at " << at;
                const std::string bytes = data(count);
                _hasWritten = true;
                EXPECT_EQ(_file.insert(at, bytes.data(), count), _model.insert(at, bytes)) << operation.str();
                break;
            }
            case 4: {
                operation << "erase " << count << " at " << at;
                _hasWritten = true;
                EXPECT_EQ(_file.erase(at, count), _model.erase(at, count)) << operation.str();
                break;
            }
            case 5: {
                operation << "erase all but a byte from " << at;
                const long most = _model.size() - at - 1;
                _hasWritten = true;
                EXPECT_EQ(_file.erase(at, most), _model.erase(at, most)) << operation.str();
                break;
            }
            default: {
                operation << "go to " << at;
                EXPECT_EQ(_file.setPos(at), _model.setPos(at)) << operation.str();
                break;
            }
        }
    }

    std::mt19937 _random;  // gives the same numbers everywhere
    bool _hasWritten = false;
    TemporaryFolder _folder;
    Model _model;
    File _file{_folder.path("file")};
};

TEST(FileModel, doesWhatAVectorDoes)
{
    const char* const given = std::getenv("KXPAL_MODEL_SEED");
    const std::uint32_t first = given != nullptr ? static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10)) : 1;
    const std::uint32_t sequences = given != nullptr ? 1 : 100;
    for (std::uint32_t seed = first; seed < first + sequences && !HasFailure(); ++seed) {
        SCOPED_TRACE("KXPAL_MODEL_SEED=" + std::to_string(seed));
        Sequence(seed).run(100);
    }
}

}  // namespace
