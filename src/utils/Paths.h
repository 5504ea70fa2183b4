// What files and directories do alike with a path. Private.
#ifndef MURN_PATHS_H
#define MURN_PATHS_H

#include <string>

namespace Murn::paths {

/// Both kinds of separators are known wherever a path is taken apart.
constexpr const char* separators = "/\\";

/// What is behind the last separator; the whole path when there is none.
std::string nameOf(const std::string& path);
/// What is before the last separator; the whole path when there is none.
std::string beforeName(const std::string& path);
/// As beforeName(), but "/" for a name at the root.
std::string parentOf(const std::string& path);
/// An absolute path as it is; any other one from the directory of the program's first argument.
std::string resolved(const std::string& path);

/// The path in the way that system calls take it. They would end it at its first zero byte, where it may name something
/// else altogether; so a path with such a byte is handed on as the empty one, which names nothing (ENOENT).
const char* forSystem(const std::string& path);

/// The times in whole seconds since the Unix epoch. False when the path has none.
bool lastAccessedTime(const std::string& path, long& t);
bool lastModifiedTime(const std::string& path, long& t);
/// Each sets one time and leaves the other one. False when the other one cannot be read or the system refuses.
bool setLastAccessedTime(const std::string& path, long t);
bool setLastModifiedTime(const std::string& path, long t);

}  // namespace Murn::paths

#endif
