// Activity: files are patched, and compared with a model.
#include "Files.h"

#include <kxPAL/File.h>

#include <fstream>
#include <sstream>
#include <string>

namespace {

using Murn::File;

std::string bytesOf(const std::string& path)
{
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << stream.rdbuf();
    return bytes.str();
}

// A file and the bytes that are to be in it.
class Pair {
public:
    Pair(const std::string& path, Round& round, Dice& dice) : _path(path), _round(round), _dice(dice), _file(path)
    {
        check(_file.create(), "a file is made");
        check(_file.open(File::ReadWriteBinary), "a file is opened");
    }

    void change()
    {
        switch (_dice.below(6)) {
            case 0:
                return insert();
            case 1:
                return erase();
            case 2:
                return resize();
            case 3:
                return read();
            default:
                return write();
        }
    }

    void compare()
    {
        check(_file.flush(), "a file is flushed");
        check(_file.size() == static_cast<std::int64_t>(_model.size()), "the size is that of the model");
        check(bytesOf(_path) == _model, "a file has the bytes of its model");
        _round.ledger().add(Figure::fileOperations);
    }

    void remove()
    {
        _file.close();
        const std::string other = _path + ".moved";
        check(_file.move(other) && !_file.exists(), "a file is moved");
        check(bytesOf(other) == _model && File(other).removeFile(), "a moved file has its bytes, and is removed");
    }

private:
    void check(bool holds, const char* what) { _round.ledger().check(holds, what); }
    unsigned int upTo(std::size_t limit) { return _dice.below(static_cast<unsigned int>(limit) + 1); }
    std::string data() { return _dice.bytes(_dice.between(1, _dice.oneIn(4) ? 20000 : 300)); }

    void insert()
    {
        if (_model.empty())
            return;
        const unsigned int place = upTo(_model.size() - 1);
        const std::string bytes = data();
        const auto size = static_cast<long>(bytes.size());
        check(_file.insert(place, bytes.data(), size) == size, "bytes are inserted");
        _model.insert(place, bytes);
    }

    void erase()
    {
        if (_model.size() < 3)
            return;
        const unsigned int place = upTo(_model.size() - 3);
        const unsigned int size = _dice.between(1, static_cast<unsigned int>(_model.size()) - place - 1);
        check(_file.erase(place, size), "bytes are erased");
        _model.erase(place, size);
    }

    void resize()
    {
        constexpr unsigned int longest = 60000;
        const unsigned int size = _dice.below(longest);
        check(_file.resize(size), "a file is resized");
        _model.resize(size);
    }

    void write()
    {
        const std::string bytes = data();
        const auto size = static_cast<long>(bytes.size());
        const bool appends = _dice.oneIn(2);
        const unsigned int place = appends ? static_cast<unsigned int>(_model.size()) : upTo(_model.size());
        check(_file.write(bytes.data(), size, appends ? -1 : static_cast<long>(place)) == size, "bytes are written");
        if (_model.size() < place + bytes.size())
            _model.resize(place + bytes.size());
        _model.replace(place, bytes.size(), bytes);
    }

    void read()
    {
        if (_model.empty())
            return;
        const unsigned int place = upTo(_model.size() - 1);
        std::string bytes(_dice.between(1, static_cast<unsigned int>(_model.size()) - place), '\0');
        const auto size = static_cast<long>(bytes.size());
        check(_file.read(bytes.data(), size, place) == size, "bytes are read");
        check(_model.compare(place, bytes.size(), bytes) == 0, "what is read is what was written");
    }

    const std::string _path;
    Round& _round;
    Dice& _dice;
    File _file;
    std::string _model;
};

}  // namespace

void Files::live(Round& round, Dice& dice)
{
    for (unsigned int number = 0; !round.isOver(); ++number) {
        Pair pair(_folder.path("file" + std::to_string(number)), round, dice);
        for (unsigned int turns = dice.between(1, 60); turns > 0 && !round.isOver(); --turns) {
            pair.change();
            pair.compare();
            if (turns % 4 == 0)
                round.rest();
        }
        pair.remove();
    }
}
