// One directory, by its path.
#ifndef MURN_DIR_H
#define MURN_DIR_H

#include <string>
#include <vector>

#include "EntryInfo.h"
#include "Export.h"

namespace Murn {

/// One directory, named by its path. Failures are told by the result alone, and errno says why when a system call
/// failed.
///
/// A relative path is taken from the directory of the program, as File::setPath() does; without an application that
/// ends the process through a fatal check. Several operations change the path of the object; each says so. A path with
/// a zero byte in it names nothing, as in File.
///
/// One thread at a time, not locked. exists() and createDir() change the working directory of the process for a moment,
/// and create(), remove() and File::create() use them: keep them away from threads that open relative paths.
class MURN_API Dir {
public:
    /// The directory of the program.
    Dir();
    /// As setPath().
    explicit Dir(std::string path);
    /// As setPath() with File::safeConcatenate(dir, name).
    Dir(std::string dir, std::string name);
    Dir(const Dir& other) = default;
    Dir& operator=(const Dir& other) = default;
    virtual ~Dir();

    /// Sets the path. One "/" at its end is taken off, but "/" alone stays. A relative path, and the empty one, are
    /// taken from the directory of the program.
    void setPath(std::string path);
    /// @return the whole path, unlike File::path()
    std::string path() const;
    /// @return what is behind the last separator, "/" or "\"; the whole path when there is none
    std::string name() const;
    /// @return the path up to its last separator, which is not part of it; "/" when that is the first character; the
    ///         whole path when there is none
    std::string getParentPath() const;

    /// Enters the directory and comes back (`getcwd`, `chdir`). From a working directory with a path of 256 bytes or
    /// more, and from one that is gone, there is no way back: the process stays in this one.
    /// @return whether it could be entered; one that may not be counts as absent
    bool exists() const;
    /// Makes a directory in this one, with mode 0755 less the umask (`mkdir`), and moves this object on to it.
    /// @param name  without "/"
    /// @return false when this one does not exist, for a name with "/", and when the system refuses; the path stays
    ///         then
    bool createDir(std::string name);
    /// Makes this directory and every one above it that is missing. The mode of each directory on the way, those that
    /// were there already included, becomes 0777 where the process may change it: meant for directories that several
    /// users share. A process that may do anything so opens every directory up to the root, and takes the sticky bit
    /// from /tmp. Where that is not wanted, make one directory after the other with createDir(). The path stays as it
    /// is.
    ///
    /// A missing directory right below the root is made in the directory of the program instead, and what follows fails
    /// then; where nothing follows, the result is true nevertheless. Kept, because the rule for empty paths says so. A
    /// program that was started by a relative path gets relative ones here, each of which counts from the directory of
    /// the program anew, so that this fails: give absolute paths.
    /// @return whether each of them was there or was made; true at once when this one exists
    bool create();

    /// Lists what is in the directory, in the system's order, without "." and ".." (`readdir`, `stat`).
    /// @return empty also for a directory that cannot be read, and only a part where reading fails in the middle. An
    ///         entry whose `stat` fails, such as a link to nothing, has the type of the entry before it; the first one
    ///         counts as a file.
    std::vector<EntryInfo> entries() const;

    /// Removes a directory and all that is in it, depth first (`remove`, `rmdir`), and leaves this object at the
    /// directory above; a failure leaves it wherever that came, and the rest in place.
    ///
    /// **A link to a directory counts as a directory: what it points to is emptied as well**, before the link itself
    /// makes the removal fail. **An empty path is the directory of the program, as everywhere, and so is the directory
    /// above one right below the root:** after the removal of "/x" this object names the directory of the program, so
    /// call nothing on it but setPath(). A directory with "\" in its name leads this astray: the removal fails where
    /// anything is listed behind it, and otherwise leaves this object at the directory that is gone. With a relative
    /// path of the program a directory that is not empty within the removed one makes it fail, after what is listed
    /// before that is gone.
    /// @param path  as in setPath() for what is in the directory. The directory itself is removed by the path as given,
    ///              so a relative one comes out right only when the working directory is the program's.
    /// @return whether all of it is gone
    bool removeDir(std::string path);
    /// As removeDir() with this object's path.
    /// @return false as well when it does not exist
    bool remove();
    /// Gives the directory another path (`rename`). This object keeps the old one, on purpose.
    /// @return false when the system refuses, as it does for a path on another file system
    bool move(const std::string& newPath);

    /// The time of the last access, from `stat`.
    /// @param t  set to whole seconds since 1970-01-01 00:00:00 UTC
    /// @return false when there is no such directory; `t` keeps its value then
    bool lastAccessedTime(long& t) const;
    /// The time of the last modification; otherwise as lastAccessedTime().
    bool lastModifiedTime(long& t) const;
    /// Sets the time of the last access and leaves that of the modification (`stat`, `utime`), in whole seconds.
    bool setLastAccessedTime(const long& t);
    /// Sets the time of the last modification and leaves that of the access.
    bool setLastModifiedTime(const long& t);

private:
    std::string _path;
};

}  // namespace Murn

#endif
