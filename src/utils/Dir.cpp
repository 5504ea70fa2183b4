// One directory, by its path.
#include "Dir.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "File.h"
#include "Paths.h"

namespace Murn {

namespace {

/// The working directory, to come back to.
class WorkingDirectory {
public:
    WorkingDirectory()
    {
        if (::getcwd(_path, sizeof _path) == nullptr)
            _path[0] = '\0';  // too long for us; there will be no way back
    }

    // Nothing can be done about a failure, and the caller wants to know why something before it failed.
    void comeBack() const
    {
        const int error = errno;
        static_cast<void>(::chdir(_path) == 0);
        errno = error;
    }

private:
    char _path[256];
};

constexpr mode_t childMode = S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH;
constexpr mode_t sharedMode = S_IRWXU | S_IRWXG | S_IRWXO;

bool isItselfOrParent(const std::string& name)
{
    return name == "." || name == "..";
}

}  // namespace

Dir::Dir()
{
    setPath(std::string());
}

Dir::Dir(std::string path)
{
    setPath(std::move(path));
}

// NOLINTNEXTLINE(performance-unnecessary-value-param): hosts link this signature.
Dir::Dir(std::string dir, std::string name)
{
    setPath(File::safeConcatenate(dir, name));
}

Dir::~Dir() = default;

void Dir::setPath(std::string path)
{
    if (path.size() > 1 && path.back() == '/')
        path.pop_back();
    _path = paths::resolved(path);
}

std::string Dir::path() const
{
    return _path;
}

std::string Dir::name() const
{
    return paths::nameOf(_path);
}

std::string Dir::getParentPath() const
{
    return paths::parentOf(_path);
}

// Whoever may not enter a directory can do nothing with it, so entering it is the test, on purpose.
bool Dir::exists() const
{
    const WorkingDirectory here;
    if (::chdir(paths::forSystem(_path)) != 0)
        return false;
    here.comeBack();
    return true;
}

bool Dir::createDir(std::string name)
{
    if (!exists() || name.find('/') != std::string::npos)
        return false;
    const WorkingDirectory here;
    if (::chdir(paths::forSystem(_path)) != 0)
        return false;  // gone since it was seen; never make the child somewhere else
    const bool made = ::mkdir(paths::forSystem(name), childMode) == 0;
    here.comeBack();
    if (made)
        _path += "/" + std::move(name);
    return made;
}

bool Dir::create()
{
    if (exists())
        return true;
    const std::string kept = _path;
    const std::string all = paths::nameOf(kept).empty() ? kept : kept + "/";
    bool made = true;
    for (std::size_t end = all.find('/', 1); made && end != std::string::npos; end = all.find('/', end + 1)) {
        const std::string component = all.substr(0, end);
        setPath(component);
        if (!exists()) {
            // Right below the root this is the empty path, and so the directory of the program, as always.
            setPath(paths::beforeName(component));
            made = createDir(paths::nameOf(component));
        }
        // For everybody, directories that were there before included, on purpose; others' keep their mode.
        if (made)
            static_cast<void>(::chmod(paths::forSystem(component), sharedMode));
    }
    _path = kept;
    return made;
}

std::vector<EntryInfo> Dir::entries() const
{
    std::vector<EntryInfo> found;
    DIR* const directory = ::opendir(paths::forSystem(_path));
    if (directory == nullptr)
        return found;
    struct stat status {};  // what cannot be looked at keeps the mode of what came before
    while (const dirent* const entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        if (isItselfOrParent(name))
            continue;
        static_cast<void>(::stat((_path + "/" + name).c_str(), &status));
        found.push_back({name, S_ISDIR(status.st_mode) ? EntryInfo::DirectoryEntry : EntryInfo::FileEntry});
    }
    ::closedir(directory);
    return found;
}

// The path moves along: into each directory, and back above it once that is gone.
// NOLINTNEXTLINE(performance-unnecessary-value-param,misc-no-recursion): hosts link this signature; trees are finite.
bool Dir::removeDir(std::string path)
{
    setPath(path);
    for (const EntryInfo& entry : entries()) {
        const std::string inside = _path + "/" + entry.name;
        const bool gone = entry.type == EntryInfo::DirectoryEntry ? removeDir(inside) : File(inside).removeFile();
        if (!gone)
            return false;
    }
    if (::rmdir(paths::forSystem(path)) != 0)  // as given, on purpose, unlike what is in it
        return false;
    setPath(paths::beforeName(_path));
    return true;
}

bool Dir::remove()
{
    return exists() && removeDir(path());
}

bool Dir::move(const std::string& newPath)
{
    return std::rename(paths::forSystem(_path), paths::forSystem(newPath)) == 0;
}

bool Dir::lastAccessedTime(long& t) const
{
    return paths::lastAccessedTime(_path, t);
}

bool Dir::lastModifiedTime(long& t) const
{
    return paths::lastModifiedTime(_path, t);
}

bool Dir::setLastAccessedTime(const long& t)
{
    return paths::setLastAccessedTime(_path, t);
}

bool Dir::setLastModifiedTime(const long& t)
{
    return paths::setLastModifiedTime(_path, t);
}

}  // namespace Murn
