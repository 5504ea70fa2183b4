// What files and directories do alike with a path.
#include "Paths.h"

#include <sys/stat.h>
#include <utime.h>

#include "Application.h"

namespace Murn::paths {

std::string nameOf(const std::string& path)
{
    return path.substr(path.find_last_of(separators) + 1);  // no separator is one before the first character
}

std::string beforeName(const std::string& path)
{
    return path.substr(0, path.find_last_of(separators));
}

std::string parentOf(const std::string& path)
{
    return path.find_last_of(separators) == 0 ? "/" : beforeName(path);
}

std::string resolved(const std::string& path)
{
    if (!path.empty() && path.front() == '/')
        return path;
    // The program's directory rather than the working directory, on purpose: what a host brings along is found
    // wherever it was started. at() throws where there is no first argument.
    const std::string directory = beforeName(Application::Arguments().at(0));
    return path.empty() ? directory : directory + "/" + path;
}

const char* forSystem(const std::string& path)
{
    return path.find('\0') == std::string::npos ? path.c_str() : "";
}

bool lastAccessedTime(const std::string& path, long& t)
{
    struct stat status {};
    if (::stat(forSystem(path), &status) != 0)
        return false;
    t = status.st_atime;
    return true;
}

bool lastModifiedTime(const std::string& path, long& t)
{
    struct stat status {};
    if (::stat(forSystem(path), &status) != 0)
        return false;
    t = status.st_mtime;
    return true;
}

bool setLastAccessedTime(const std::string& path, long t)
{
    utimbuf times{t, 0};
    return lastModifiedTime(path, times.modtime) && ::utime(forSystem(path), &times) == 0;
}

bool setLastModifiedTime(const std::string& path, long t)
{
    utimbuf times{0, t};
    return lastAccessedTime(path, times.actime) && ::utime(forSystem(path), &times) == 0;
}

}  // namespace Murn::paths
