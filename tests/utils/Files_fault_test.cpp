// Files and directories: each of their calls to the system that fails.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "Fault.h"
#include "InterposeFiles.h"
#include "OnlyWithin.h"
#include "TemporaryFolder.h"

namespace {

using Murn::Dir;
using Murn::EntryInfo;
using Murn::File;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class FileFaultTable : public ::testing::Test {
protected:
    FileFaultTable() { EXPECT_TRUE(_open.open(File::ReadWriteBinary)); }

    std::string onDisk() const { return _folder.bytesOf("file"); }
    std::string nextTo() const { return _folder.path("other"); }

    const TemporaryFolder _folder;
    const std::string _path = _folder.makeFile("file", "0123456789");
    File _file{_path};  // stays closed
    File _open{_path};
    char _buffer[4] = "xyz";
};

FAULT_TEST(FileFaultTable, cannotBeLookedAt, fopen, "`File::exists`, `open`, `size`, `create`",
           "returns false or -1 and leaves `errno`; nothing is made", EMFILE, ENFILE, ENOENT, EACCES, ELOOP, ENOMEM,
           ENAMETOOLONG, EINTR, EROFS)
{
    EXPECT_FALSE(_file.exists());
    EXPECT_FALSE(_file.open(File::ReadOnly));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_file.size(), -1);
    EXPECT_EQ(errno, error());
    File other(nextTo());
    EXPECT_FALSE(other.create());
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(std::filesystem::exists(nextTo()));
}

FAULT_TEST(FileFaultTable, hasNoSizeWhileItIsOpen, fopen, "`read`, `setPos`, `insert`, `erase` of an open file",
           "returns -1 or false and leaves `errno`; nothing changes", EMFILE, ENFILE, ENOENT, EACCES, ENOMEM)
{
    EXPECT_EQ(_open.read(_buffer, 1, 0), -1);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_open.read(_buffer, 1, -1), -1);
    EXPECT_FALSE(_open.setPos(1));
    EXPECT_FALSE(_open.atEnd());
    EXPECT_EQ(_open.insert(1, "abc", 3), -1);
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_open.erase(1, 3));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(onDisk(), "0123456789");
}

FAULT_TEST_BY_HAND(FileFaultTable, isClosedAllTheSame, fclose, "`File::close`, the destructor",
                   "closes, and tells nobody: what waited is lost", ENOSPC, EIO, EDQUOT, EFBIG, EINTR)
{
    {
        const Interposed closing(interpose::fclose, [this](auto real, FILE* stream) {
            real(stream);
            errno = error();
            return EOF;
        });
        _open.close();
    }
    EXPECT_FALSE(_open.flush());
    EXPECT_TRUE(_open.open(File::ReadOnly));
}

FAULT_TEST_BY_HAND(FileFaultTable, isThereAllTheSame, fclose, "`File::exists`, `size`, `create`",
                   "goes on: nothing was written", EIO, EINTR)
{
    const Interposed closing(interpose::fclose, [this](auto real, FILE* stream) {
        real(stream);
        errno = error();
        return EOF;
    });
    EXPECT_TRUE(_file.exists());
    EXPECT_EQ(_file.size(), 10);
    EXPECT_TRUE(File(nextTo()).create());
}

FAULT_TEST(FileFaultTable, readsNothing, fread, "`File::read`, `insert`, `erase`",
           "`read` returns the bytes before the failure; the others return -1 or false, and nothing is lost", EIO,
           EISDIR, EAGAIN, EINTR, ESTALE)
{
    EXPECT_EQ(_open.read(_buffer, 3, 0), 0);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_open.insert(4, "abc", 3), -1);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(onDisk(), std::string("0123456789\0\0\0", 13));
    EXPECT_FALSE(_open.erase(4, 3));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(onDisk(), std::string("0123456789\0\0\0", 13));
}

FAULT_TEST(FileFaultTable, writesNothing, fwrite, "`File::write`, `insert`, `erase`",
           "`write` returns the bytes before the failure; the others return -1 or false, and nothing is lost", ENOSPC,
           EDQUOT, EIO, EFBIG, EBADF, EINTR)
{
    EXPECT_EQ(_open.write(_buffer, 3, 0), 0);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_open.insert(4, "abc", 3), -1);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(onDisk(), std::string("0123456789\0\0\0", 13));
    EXPECT_FALSE(_open.erase(4, 3));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(onDisk(), std::string("0123456789\0\0\0", 13));
}

FAULT_TEST(FileFaultTable, findsNoPlace, fseeko, "`File::setPos`, `read`, `write`, `size`, `insert`, `erase`",
           "returns -1 or false and leaves `errno`; nothing changes. `size` leaves a stream open", ESPIPE, EINVAL,
           EOVERFLOW, EIO)
{
    std::vector<FILE*> leftOpen;
    const Interposed opening(interpose::fopen, [&](auto real, const char* path, const char* mode) {
        leftOpen.push_back(real(path, mode));
        return leftOpen.back();
    });
    EXPECT_EQ(_file.size(), -1);
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_open.setPos(1));
    EXPECT_EQ(_open.read(_buffer, 1, 0), -1);
    EXPECT_EQ(_open.write(_buffer, 1, 0), -1);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_open.write(_buffer, 1, -1), -1);
    EXPECT_EQ(_open.insert(1, "abc", 3), -1);
    EXPECT_FALSE(_open.erase(1, 3));
    EXPECT_EQ(onDisk(), "0123456789");
    EXPECT_THAT(leftOpen, SizeIs(5));
    for (FILE* const stream : leftOpen)
        EXPECT_EQ(std::fclose(stream), 0);
}

FAULT_TEST(FileFaultTable, knowsNoPlace, ftello, "`File::pos`, `size`", "returns -1 and leaves `errno`", ESPIPE,
           EOVERFLOW, EIO)
{
    EXPECT_EQ(_open.pos(), -1);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_file.size(), -1);
    EXPECT_EQ(errno, error());
    EXPECT_TRUE(_open.resize(3));
    EXPECT_EQ(onDisk(), "012");
}

FAULT_TEST(FileFaultTable, isNotFlushed, fflush, "`File::flush`, `insert`, `erase`",
           "returns false or -1 and leaves `errno`; a file that bytes are erased from keeps its size", ENOSPC, EDQUOT,
           EIO, EFBIG, EINTR, EPIPE)
{
    EXPECT_FALSE(_open.flush());
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_open.erase(4, 3));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(onDisk().size(), 10U);
    EXPECT_EQ(_open.insert(4, "abc", 3), -1);
    EXPECT_EQ(errno, error());
}

FAULT_TEST(FileFaultTable, keepsItsSize, ftruncate, "`File::resize`, `insert`, `erase`",
           "returns false or -1 and leaves `errno`", EFBIG, EIO, EINVAL, ENOSPC, EDQUOT, EPERM, EROFS, EINTR)
{
    EXPECT_FALSE(_open.resize(20));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_open.insert(1, "abc", 3), -1);
    EXPECT_EQ(errno, error());
    EXPECT_EQ(onDisk(), "0123456789");
    EXPECT_FALSE(_open.erase(1, 3));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(onDisk(), "0456789789") << "what is behind the range, and what was not cut off";
}

FAULT_TEST(FileFaultTable, isNotRemoved, remove, "`File::removeFile`, `Dir::removeDir`",
           "returns false and leaves `errno`", EACCES, EPERM, EBUSY, ENOENT, EROFS, EIO)
{
    EXPECT_FALSE(_file.removeFile());
    EXPECT_EQ(errno, error());
    Dir dir(_folder.path());
    EXPECT_FALSE(dir.removeDir(_folder.path()));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(dir.path(), _folder.path());
    EXPECT_EQ(onDisk(), "0123456789");
}

FAULT_TEST(FileFaultTable, isNotMoved, rename, "`File::move`, `Dir::move`", "returns false and leaves `errno`", EXDEV,
           EACCES, EPERM, ENOENT, EROFS, ENOSPC, EDQUOT, EBUSY, ENOTEMPTY, EINVAL, EISDIR)
{
    EXPECT_FALSE(_file.move(nextTo()));
    EXPECT_EQ(errno, error());
    Dir dir(_folder.makeDirectory("dir"));
    EXPECT_FALSE(dir.move(nextTo()));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(dir.path(), _folder.path("dir"));
}

FAULT_TEST(FileFaultTable, hasNoTimes, stat, "the times of `File` and `Dir`",
           "returns false and leaves `errno`; no time is set", ENOENT, EACCES, ELOOP, ENOTDIR, EOVERFLOW, EIO)
{
    const Dir dir(_folder.path());
    long time = 77;
    EXPECT_FALSE(_file.lastAccessedTime(time));
    EXPECT_FALSE(_file.lastModifiedTime(time));
    EXPECT_FALSE(dir.lastModifiedTime(time));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(time, 77);
    interpose::CallLog calls;
    const Interposed setting(interpose::utime, calls.noting("utime"));
    EXPECT_FALSE(_file.setLastAccessedTime(1));
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_file.setLastModifiedTime(1));
    EXPECT_THAT(calls.calls(), IsEmpty());
}

FAULT_TEST(FileFaultTable, keepsItsTimes, utime, "the setters of times of `File` and `Dir`",
           "returns false and leaves `errno`", EACCES, EPERM, EROFS, ENOENT)
{
    Dir dir(_folder.path());
    EXPECT_FALSE(_file.setLastAccessedTime(1));
    EXPECT_FALSE(_file.setLastModifiedTime(1));
    EXPECT_FALSE(dir.setLastModifiedTime(1));
    EXPECT_EQ(errno, error());
}

FAULT_TEST(FileFaultTable, isMadeAllTheSame, chmod, "`File::create`, `Dir::create`", "goes on", EPERM, EROFS, ENOENT)
{
    EXPECT_TRUE(File(_folder.path("a/new")).create());
    EXPECT_TRUE(std::filesystem::exists(_folder.path("a/new")));
}

class DirFaultTable : public ::testing::Test {
protected:
    std::vector<std::string> names() const
    {
        std::vector<std::string> result;
        for (const EntryInfo& entry : _dir.entries())
            result.push_back(entry.name);
        return result;
    }

    const TemporaryFolder _folder;
    const OnlyWithin _guard{_folder};
    const std::string _path = _folder.makeDirectory("dir");
    const std::string _inside = _folder.makeFile("dir/file");
    Dir _dir{_path};
};

FAULT_TEST(DirFaultTable, isNotThere, chdir, "`Dir::exists`, `createDir`, `remove`",
           "returns false and leaves `errno`; nothing is made or removed", EACCES, ENOENT, ENOTDIR, ELOOP, EIO,
           ENAMETOOLONG)
{
    const auto before = std::filesystem::current_path();
    EXPECT_FALSE(_dir.exists());
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_dir.createDir("child"));
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_dir.remove());
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_dir.path(), _path);
    EXPECT_TRUE(std::filesystem::exists(_inside));
    EXPECT_EQ(std::filesystem::current_path(), before);
}

FAULT_TEST_BY_HAND(DirFaultTable, doesNotComeBack, chdir, "`Dir::exists`, `createDir`, on the way back",
                   "goes on: the process stays in the directory", EACCES, ENOENT, EIO)
{
    int calls = 0;
    const Interposed entering(interpose::chdir, [&](auto real, const char* path) {
        if (++calls % 2 == 1)
            return real(path);
        errno = error();
        return -1;
    });
    EXPECT_TRUE(_dir.exists());
    EXPECT_EQ(std::filesystem::current_path(), _path);
    EXPECT_TRUE(_dir.createDir("child"));
    EXPECT_EQ(_dir.path(), _path + "/child");
}

FAULT_TEST(DirFaultTable, knowsNoWayBack, getcwd, "`Dir::exists`, `createDir`",
           "goes on: the process stays in the directory", ERANGE, ENOENT, EACCES, ENOMEM)
{
    EXPECT_TRUE(_dir.exists());
    EXPECT_TRUE(std::filesystem::equivalent(".", _path));
}

FAULT_TEST(DirFaultTable, isNotMade, mkdir, "`Dir::createDir`, `Dir::create`, `File::create`",
           "returns false and leaves `errno`; the path stays", ENOSPC, EDQUOT, EROFS, EACCES, EEXIST, EMLINK,
           ENAMETOOLONG)
{
    EXPECT_FALSE(_dir.createDir("child"));
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_dir.path(), _path);
    Dir missing(_folder.path("a/b"));
    EXPECT_FALSE(missing.create());
    EXPECT_EQ(errno, error());
    EXPECT_EQ(missing.path(), _folder.path("a/b"));
    EXPECT_FALSE(File(_folder.path("a/file")).create());
    EXPECT_EQ(errno, error());
}

FAULT_TEST(DirFaultTable, tellsWhyItIsNotMadeWithoutAWayBack, mkdir, "`Dir::createDir`, where there is no way back",
           "returns false and leaves `errno`: that of `mkdir`", ENOSPC, EROFS, EEXIST)
{
    const Interposed asking(interpose::getcwd, [](auto, auto...) -> char* { return nullptr; });
    EXPECT_FALSE(_dir.createDir("child"));
    EXPECT_EQ(errno, error());
}

FAULT_TEST(DirFaultTable, isNotRemoved, rmdir, "`Dir::removeDir`, `remove`",
           "returns false and leaves `errno`; what was in it is gone", ENOTEMPTY, EBUSY, EACCES, EPERM, EROFS, EIO)
{
    EXPECT_FALSE(_dir.remove());
    EXPECT_EQ(errno, error());
    EXPECT_EQ(_dir.path(), _path);
    EXPECT_FALSE(std::filesystem::exists(_inside));
}

FAULT_TEST(DirFaultTable, listsNothing, opendir, "`Dir::entries`, `removeDir`",
           "lists nothing; what is not empty is not removed", EMFILE, ENFILE, EACCES, ENOENT, ENOTDIR, ENOMEM)
{
    EXPECT_THAT(_dir.entries(), IsEmpty());
    EXPECT_EQ(errno, error());
    EXPECT_FALSE(_dir.remove());
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_TRUE(std::filesystem::exists(_inside));
}

FAULT_TEST_BY_HAND(DirFaultTable, listsAPart, readdir, "`Dir::entries`, `removeDir`",
                   "lists what came before; the directory is not removed", EIO, EBADF, ENOENT, EOVERFLOW)
{
    for (const char* const name : {"dir/a", "dir/b", "dir/c"})
        _folder.makeFile(name);
    int calls = 0;
    const Interposed reading(interpose::readdir, [&](auto real, DIR* directory) -> dirent* {
        if (++calls % 4 != 0)
            return real(directory);
        errno = error();
        return nullptr;
    });
    const std::size_t before = names().size();
    EXPECT_GT(before, 0U);
    EXPECT_LT(before, 4U);
    EXPECT_FALSE(_dir.remove());
    EXPECT_EQ(errno, ENOTEMPTY);
    EXPECT_TRUE(std::filesystem::exists(_path));
}

FAULT_TEST_BY_HAND(DirFaultTable, isListedAllTheSame, closedir, "`Dir::entries`", "goes on", EBADF, EINTR)
{
    const Interposed closing(interpose::closedir, [this](auto real, DIR* directory) {
        real(directory);
        errno = error();
        return -1;
    });
    EXPECT_THAT(names(), ElementsAre("file"));
}

FAULT_TEST_BY_HAND(DirFaultTable, listsWhatItCannotLookAt, stat, "`Dir::entries`",
                   "the entry has the type of the one before it; the first one counts as a file", ENOENT, EACCES, ELOOP,
                   EIO)
{
    _folder.makeDirectory("dir/a");
    _folder.makeDirectory("dir/b");
    int calls = 0;
    const Interposed looking(interpose::stat, [&](auto, const char*, struct ::stat* status) {
        if (++calls != 2) {
            errno = error();
            return -1;
        }
        status->st_mode = S_IFDIR;
        return 0;
    });
    const std::vector<EntryInfo> entries = _dir.entries();
    ASSERT_THAT(entries, SizeIs(3));
    EXPECT_EQ(entries[0].type, EntryInfo::FileEntry);
    EXPECT_EQ(entries[1].type, EntryInfo::DirectoryEntry);
    EXPECT_EQ(entries[2].type, EntryInfo::DirectoryEntry);
}

}  // namespace
