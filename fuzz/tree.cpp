// Fuzz target: directories and files being made, listed and removed under odd names, against a map of what is there.
#include <kxPAL/Application.h>
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>

#include <map>
#include <vector>

#include "Input.h"
#include "InterposeFiles.h"
#include "TemporaryFolder.h"

namespace {

using Murn::Dir;
using Murn::EntryInfo;
using Murn::File;

constexpr std::size_t longestName = 255;
constexpr std::size_t deepest = 6;

bool isName(const std::string& name)
{
    return !name.empty() && name != "." && name != ".." && name.size() <= longestName &&
           name.find('\0') == std::string::npos;
}

// Any bytes but separators: those lead removals astray, as the header says.
std::string nameFrom(Input& input)
{
    std::string name = input.text(12);
    const std::uint8_t stretch = input.byte();
    if (stretch > 0xf8)
        name.resize(250 + stretch % 8, 'x');
    for (char& letter : name) {
        if (letter == '/' || letter == '\\')
            letter = '|';
    }
    return name;
}

/// What is there: each path below the root with whether it is a directory. The root itself is the empty path.
class Model {
public:
    bool isDirectory(const std::string& path) const
    {
        const auto found = _entries.find(path);
        return path.empty() || (found != _entries.end() && found->second);
    }

    bool has(const std::string& path) const { return path.empty() || _entries.count(path) != 0; }
    void add(const std::string& path, bool isDirectory) { _entries[path] = isDirectory; }

    void remove(const std::string& path)
    {
        std::erase_if(_entries, [&path](const auto& entry) {
            return entry.first == path || entry.first.starts_with(path + "/");
        });
    }

    std::vector<std::string> childrenOf(const std::string& path) const
    {
        std::vector<std::string> children;
        for (const auto& [entry, isDirectory] : _entries) {
            const std::size_t end = entry.rfind('/');
            if (entry.substr(0, end) == path)
                children.push_back(entry.substr(end + 1) + (isDirectory ? "/" : ""));
        }
        std::sort(children.begin(), children.end());
        return children;
    }

private:
    std::map<std::string, bool> _entries;
};

class Case {
public:
    explicit Case(const std::string& root) : _root(root), _dir(root) {}

    void doOne(Input& input)
    {
        switch (input.upTo(7)) {
            case 0:
                return createDir(nameFrom(input));
            case 1:
                return create(input);
            case 2:
                return createFile(nameFrom(input));
            case 3:
                return enter(nameFrom(input));
            case 4:
                return leave();
            case 5:
                return removeChild(nameFrom(input));
            case 6:
                return setTimes(input.awkward(0));
            default:
                return removeFile(nameFrom(input));
        }
    }

    void check()
    {
        FUZZ_CHECK(_dir.path() == _root + _at);
        FUZZ_CHECK(_dir.exists());
        std::vector<std::string> listed;
        for (const EntryInfo& entry : _dir.entries())
            listed.push_back(entry.name + (entry.type == EntryInfo::DirectoryEntry ? "/" : ""));
        std::sort(listed.begin(), listed.end());
        FUZZ_CHECK(listed == _model.childrenOf(_at));
    }

    void removeAll()
    {
        Dir dir(_root);
        FUZZ_CHECK(dir.remove());
        FUZZ_CHECK(!dir.removeDir(_root));
    }

private:
    void createDir(const std::string& name)
    {
        const std::string child = _at + "/" + name;
        const bool isMade = isName(name) && !_model.has(child) && depth() < deepest;
        if (depth() >= deepest)
            return;
        FUZZ_CHECK(_dir.createDir(name) == isMade);
        if (!isMade)
            return;
        _model.add(child, true);
        _at = child;
    }

    // A chain of directories, up to the first that cannot be.
    void create(Input& input)
    {
        std::string path = _at;
        bool isMade = true;
        for (std::size_t count = 1 + input.upTo(2); count > 0 && depth() + count < deepest; --count) {
            const std::string name = nameFrom(input);
            if (name.empty() || name == "." || name == "..")
                return;
            path += "/" + name;
        }
        Dir chain(_root + path);
        for (std::size_t end = path.find('/', _at.size() + 1);; end = path.find('/', end + 1)) {
            const std::string part = path.substr(0, end);
            const bool canBe =
                _model.isDirectory(part) || (!_model.has(part) && isName(part.substr(part.rfind('/') + 1)));
            // A zero byte anywhere spoils only what it is part of: what comes before is made.
            isMade = isMade && canBe;
            if (!isMade)
                break;
            if (!part.empty())
                _model.add(part, true);
            if (end == std::string::npos)
                break;
        }
        FUZZ_CHECK(chain.create() == isMade);
        FUZZ_CHECK(chain.path() == _root + path && chain.exists() == isMade);
    }

    void createFile(const std::string& name)
    {
        if (name.empty() || name == "." || name == "..")
            return;
        const std::string child = _at + "/" + name;
        File file(_root + _at, name);
        FUZZ_CHECK(file.exists() == (isName(name) && _model.has(child)));
        FUZZ_CHECK(file.create() == isName(name));
        if (isName(name) && !_model.has(child))
            _model.add(child, false);
        FUZZ_CHECK(!isName(name) || file.fileName() == name);
    }

    void removeFile(const std::string& name)
    {
        const std::string child = _at + "/" + name;
        File file(_root + _at, name);
        const bool isGone =
            isName(name) && _model.has(child) && (!_model.isDirectory(child) || _model.childrenOf(child).empty());
        if (!isName(name) && name.find('\0') == std::string::npos)
            return;
        FUZZ_CHECK(file.removeFile() == isGone);
        if (isGone)
            _model.remove(child);
    }

    void enter(const std::string& name)
    {
        if (!isName(name) || !_model.isDirectory(_at + "/" + name))
            return;
        _at += "/" + name;
        _dir.setPath(_root + _at + "/");
    }

    void leave()
    {
        if (_at.empty())
            return;
        _at = _at.substr(0, _at.rfind('/'));
        _dir.setPath(_dir.getParentPath());
    }

    void removeChild(const std::string& name)
    {
        if (name.empty() || name == "." || name == "..")
            return;
        const std::string child = _at + "/" + name;
        Dir dir(_root + _at, name);
        const bool isGone = isName(name) && _model.isDirectory(child);
        FUZZ_CHECK(dir.exists() == isGone);
        FUZZ_CHECK(dir.removeDir(_root + child) == isGone);
        FUZZ_CHECK(dir.path() == _root + (isGone ? _at : child));
        if (isGone)
            _model.remove(child);
    }

    // Times that every file system knows come back; the others only have to do no harm.
    void setTimes(long t)
    {
        long accessed = 0;
        FUZZ_CHECK(_dir.lastAccessedTime(accessed));
        const bool isSet = _dir.setLastModifiedTime(t);
        long back = 0;
        FUZZ_CHECK(_dir.lastModifiedTime(back));
        const bool isCommon = t > -0x7fffffff && t < 0x7fffffff;
        FUZZ_CHECK(!isCommon || (isSet && back == t));
        FUZZ_CHECK(_dir.lastAccessedTime(back) && back == accessed);
    }

    std::size_t depth() const { return static_cast<std::size_t>(std::count(_at.begin(), _at.end(), '/')); }

    std::string _root;
    std::string _at;
    Dir _dir;
    Model _model;
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TemporaryFolder folder;
    static char program[] = "/nowhere/program";
    static char* argv[] = {program, nullptr};
    static const Murn::Application application(1, argv);
    // Directories above the folder get no new mode.
    const Interposed<int(const char*, mode_t)> within(interpose::chmod, [](auto real, const char* path, mode_t mode) {
        return folder.holds(path) ? real(path, mode) : 0;
    });

    Input input(data, size);
    Case both(folder.makeDirectory("root"));
    for (int step = 0; step < 60 && !input.isEmpty(); ++step) {
        both.doOne(input);
        both.check();
    }
    both.removeAll();
    return 0;
}
