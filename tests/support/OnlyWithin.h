// Keeps a test's changes of the file system within a folder of its own.
#ifndef KXPAL_TESTS_ONLY_WITHIN_H
#define KXPAL_TESTS_ONLY_WITHIN_H

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "InterposeFiles.h"
#include "TemporaryFolder.h"

/// While the object lives, files and directories can be made, removed, renamed and given modes within the folder only:
/// what would reach out of it, through links as well, is refused with EPERM. That fails the test, but for modes, which
/// the library gives to all directories above one that it makes. One thread at a time, not locked.
class OnlyWithin {
public:
    explicit OnlyWithin(const TemporaryFolder& folder)
        : _folder(folder),
          _chmod(interpose::chmod,
                 [this](auto real, const char* path, mode_t mode) {
                     _modes.push_back(std::string(path) + " " + octal(mode));
                     std::error_code error;
                     const std::string target = std::filesystem::canonical(path, error);
                     return error || isWithin(target) ? real(path, mode) : refuse();
                 }),
          _mkdir(interpose::mkdir, [this](auto real, const char* path,
                                          mode_t mode) { return allows("mkdir", path) ? real(path, mode) : refuse(); }),
          _rmdir(interpose::rmdir,
                 [this](auto real, const char* path) { return allows("rmdir", path) ? real(path) : refuse(); }),
          _remove(interpose::remove,
                  [this](auto real, const char* path) { return allows("remove", path) ? real(path) : refuse(); }),
          _rename(interpose::rename, [this](auto real, const char* from, const char* to) {
              return allows("rename", from) && allows("rename", to) ? real(from, to) : refuse();
          })
    {
    }

    OnlyWithin(const OnlyWithin&) = delete;
    OnlyWithin& operator=(const OnlyWithin&) = delete;

    /// All that chmod was asked for, in order: "/path 777".
    const std::vector<std::string>& modes() const { return _modes; }

private:
    static int refuse()
    {
        errno = EPERM;
        return -1;
    }

    static std::string octal(mode_t mode)
    {
        std::string digits;
        for (; mode != 0; mode /= 8)
            digits.insert(digits.begin(), static_cast<char>('0' + mode % 8));
        return digits;
    }

    bool isWithin(const std::string& path) const { return path == _folder.path() || _folder.holds(path); }

    // Whether what the path names, which need not exist and may be a link, lies in a directory within the folder.
    bool allows(const char* call, const std::string& path) const
    {
        if (path.empty())
            return true;  // names nothing
        std::error_code error;
        std::filesystem::path absolute = std::filesystem::absolute(path, error);
        if (!error && !absolute.has_filename())
            absolute = absolute.parent_path();
        const std::string parent = std::filesystem::weakly_canonical(absolute.parent_path(), error);
        const std::string name = absolute.filename();
        const bool allowed = !error && isWithin(parent) && name != ".." && name != ".";
        EXPECT_TRUE(allowed) << call << " of " << path << " reaches out of " << _folder.path();
        return allowed;
    }

    const TemporaryFolder& _folder;
    std::vector<std::string> _modes;
    Interposed<int(const char*, mode_t)> _chmod;
    Interposed<int(const char*, mode_t)> _mkdir;
    Interposed<int(const char*)> _rmdir;
    Interposed<int(const char*)> _remove;
    Interposed<int(const char*, const char*)> _rename;
};

#endif
