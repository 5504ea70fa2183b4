// Directories: paths, presence, one child, listings, rename and times.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kxPAL/Application.h>
#include <kxPAL/Dir.h>
#include <kxPAL/EntryInfo.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "FatalTest.h"
#include "InterposeFiles.h"
#include "OnlyWithin.h"
#include "TemporaryFolder.h"

namespace {

using Murn::Dir;
using Murn::EntryInfo;

static_assert(EntryInfo::DirectoryEntry == 0 && EntryInfo::FileEntry == 1, "the values of types");
static_assert(sizeof(EntryInfo::EntryType) == 4, "32 bits");
static_assert(offsetof(EntryInfo, name) == 0 && offsetof(EntryInfo, type) == sizeof(std::string),
              "the order of fields");
static_assert(std::has_virtual_destructor<Dir>::value && std::is_copy_constructible<Dir>::value, "a value");
static_assert(sizeof(Dir) == sizeof(void*) + sizeof(std::string), "a table and a path");

// Acts as a user without rights for as long as it lives, if the process may.
class OrdinaryUser {
public:
    OrdinaryUser() : _was(::geteuid())
    {
        if (_was == 0 && ::seteuid(65534) != 0)
            throw std::runtime_error("no other user");
    }

    ~OrdinaryUser()
    {
        if (::seteuid(_was) == 0)
            ::prctl(PR_SET_DUMPABLE, 1);  // the leak sanitizer wants to look at the process
    }

private:
    uid_t _was;
};

class DirTest : public ::testing::Test {
protected:
    DirTest() { EXPECT_EQ(::chdir(_elsewhere.c_str()), 0); }

    // Every test ends where it began, unless it says otherwise.
    void TearDown() override { EXPECT_EQ(std::filesystem::current_path(), _elsewhere); }

    // The names in a directory and their types.
    static std::map<std::string, int> entriesOf(const Dir& dir)
    {
        std::map<std::string, int> types;
        for (const EntryInfo& entry : dir.entries())
            EXPECT_TRUE(types.emplace(entry.name, entry.type).second) << entry.name << " stands twice";
        return types;
    }

    TemporaryFolder _folder;
    const OnlyWithin _guard{_folder};
    const std::string _elsewhere = _folder.makeDirectory("elsewhere");
    const std::string _path = _folder.makeDirectory("dir");
};

// The path that an operation leaves in an object, in a program that was started as `program`.
template <typename Operation>
std::string pathOf(std::string program, Operation operation)
{
    char* arguments[] = {program.data(), nullptr};
    const Murn::Application application(1, arguments);
    return operation().path();
}

TEST_F(DirTest, keepsAbsolutePathsButOneSlashAtTheEnd)
{
    EXPECT_EQ(Dir("/").path(), "/");
    EXPECT_EQ(Dir("/a/b/").path(), "/a/b");
    EXPECT_EQ(Dir("/a//").path(), "/a/");
    EXPECT_EQ(Dir("//").path(), "/");
    EXPECT_EQ(Dir("/a\\").path(), "/a\\");
    EXPECT_EQ(Dir("/a/../b/.").path(), "/a/../b/.");
    EXPECT_EQ(Dir("/a/", "/b/").path(), "/a/b");
    EXPECT_EQ(Dir("/", "").path(), "/");
    EXPECT_EQ(Dir("/a b\xff").path(), "/a b\xff");
}

TEST_F(DirTest, takesOtherPathsFromTheProgramsDirectory)
{
    EXPECT_EQ(pathOf("/opt/host/program", [] { return Dir(); }), "/opt/host");
    EXPECT_EQ(pathOf("/opt/host/program", [] { return Dir(""); }), "/opt/host");
    EXPECT_EQ(pathOf("/opt/host/program", [] { return Dir("", ""); }), "/opt/host");
    EXPECT_EQ(pathOf("/opt/host/program", [] { return Dir("a/b/"); }), "/opt/host/a/b");
    EXPECT_EQ(pathOf("/opt/host/program", [] { return Dir("a", "b"); }), "/opt/host/a/b");
    EXPECT_EQ(pathOf("/opt/host/program", [] { return Dir(".."); }), "/opt/host/..");
    EXPECT_EQ(pathOf("host\\program", [] { return Dir("a"); }), "host/a");
    EXPECT_EQ(pathOf("program", [] { return Dir("a"); }), "program/a");
    EXPECT_EQ(pathOf("/program", [] { return Dir("a"); }), "/a");
    EXPECT_EQ(pathOf("/program", [] { return Dir(); }), "");
}

TEST_F(DirTest, setsItsPathAnewFromTheProgramsDirectory)
{
    EXPECT_EQ(pathOf("/opt/host/program",
                     [] {
                         Dir dir("/a");
                         dir.setPath("b/");
                         return dir;
                     }),
              "/opt/host/b");
    EXPECT_EQ(pathOf("/opt/host/program",
                     [] {
                         Dir dir("/a");
                         dir.setPath("/");
                         return dir;
                     }),
              "/");
}

TEST_F(DirTest, needsArgumentsForARelativePath)
{
    const Murn::Application application(0, nullptr);
    try {
        const Dir dir("a");
        FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_EQ(std::string(error.what()).find("vector::_M_range_check"), 0U) << error.what();
    }
    EXPECT_THROW(Dir(), std::out_of_range);
    EXPECT_EQ(Dir("/a").path(), "/a");
}

TEST_F(DirTest, hasANameAndAParent)
{
    EXPECT_EQ(Dir("/a/b").name(), "b");
    EXPECT_EQ(Dir("/a\\b").name(), "b");
    EXPECT_EQ(Dir("/").name(), "");
    EXPECT_EQ(Dir("/a/b").getParentPath(), "/a");
    EXPECT_EQ(Dir("/a\\b").getParentPath(), "/a");
    EXPECT_EQ(Dir("/a").getParentPath(), "/");
    EXPECT_EQ(Dir("/").getParentPath(), "/");
    const auto nothing = [](const std::string& program) {
        std::string started = program;
        char* arguments[] = {started.data(), nullptr};
        const Murn::Application application(1, arguments);
        const Dir dir;
        return dir.name() + "," + dir.getParentPath();
    };
    EXPECT_EQ(nothing("program"), "program,program") << "without a separator";
}

TEST_F(DirTest, existsWhenItCanBeEntered)
{
    EXPECT_TRUE(Dir(_path).exists());
    EXPECT_TRUE(Dir("/").exists());
    EXPECT_FALSE(Dir(_folder.path("missing")).exists());
    EXPECT_FALSE(Dir(_folder.makeFile("file")).exists());
    ASSERT_EQ(::symlink(_path.c_str(), _folder.path("link").c_str()), 0);
    EXPECT_TRUE(Dir(_folder.path("link")).exists());
}

TEST_F(DirTest, doesNotExistWithoutTheRightToEnter)
{
    ASSERT_EQ(::chmod(_path.c_str(), S_IRUSR | S_IWUSR | S_IRGRP | S_IROTH), 0);
    {
        const OrdinaryUser user;
        EXPECT_FALSE(Dir(_path).exists());
        EXPECT_FALSE(Dir(_path).createDir("child"));
        EXPECT_FALSE(Dir(_path).remove());
    }
    ASSERT_EQ(::chmod(_path.c_str(), S_IRWXU), 0);
}

TEST_F(DirTest, comesBackToTheWorkingDirectory)
{
    std::vector<std::string> entered;
    {
        const Interposed noted(interpose::chdir, [&](auto real, const char* path) {
            entered.emplace_back(path);
            return real(path);
        });
        EXPECT_TRUE(Dir(_path).exists());
        EXPECT_FALSE(Dir(_folder.path("missing")).exists());
    }
    EXPECT_EQ(entered, (std::vector<std::string>{_path, _elsewhere, _folder.path("missing")}));
}

TEST_F(DirTest, asksForTheWorkingDirectoryWithRoomFor256Bytes)
{
    std::size_t room = 0;
    const Interposed noted(interpose::getcwd, [&](auto real, char* buffer, std::size_t size) {
        room = size;
        return real(buffer, size);
    });
    EXPECT_TRUE(Dir(_path).exists());
    EXPECT_EQ(room, 256U);
}

TEST_F(DirTest, staysWhereItWentFromAWorkingDirectoryWithALongPath)
{
    std::string deep = _elsewhere;
    while (deep.size() < 256) {
        deep += "/" + std::string(50, 'x');
        std::filesystem::create_directory(deep);
    }
    ASSERT_EQ(::chdir(deep.c_str()), 0);
    EXPECT_FALSE(Dir(_folder.path("missing")).exists());
    EXPECT_EQ(std::filesystem::current_path(), deep) << "nothing was entered";
    EXPECT_TRUE(Dir(_path).exists());
    EXPECT_EQ(std::filesystem::current_path(), _path);
    ASSERT_EQ(::chdir(deep.c_str()), 0);
    Dir dir(_path);
    EXPECT_TRUE(dir.createDir("child")) << "which does no harm to what it makes";
    EXPECT_EQ(dir.path(), _path + "/child");
    EXPECT_TRUE(std::filesystem::is_directory(_path + "/child"));
    ASSERT_EQ(::chdir(_elsewhere.c_str()), 0);
}

TEST_F(DirTest, doesNotComeBackToWhatIsNotTheWorkingDirectory)
{
    std::vector<std::string> entered;
    {
        // The platform leaves open what is in the buffer after a failure.
        const Interposed failing(interpose::getcwd, [](auto*, char* buffer, std::size_t) -> char* {
            std::strcpy(buffer, "/");
            errno = ERANGE;
            return nullptr;
        });
        const Interposed noted(interpose::chdir, [&](auto real, const char* path) {
            entered.emplace_back(path);
            return real(path);
        });
        EXPECT_TRUE(Dir(_path).exists());
    }
    EXPECT_EQ(entered, (std::vector<std::string>{_path, ""}));
    ASSERT_EQ(::chdir(_elsewhere.c_str()), 0);
}

TEST_F(DirTest, makesAChildAndBecomesIt)
{
    const mode_t before = ::umask(022);
    Dir dir(_path);
    EXPECT_TRUE(dir.createDir("with blanks \xff\\"));
    ::umask(before);
    EXPECT_EQ(dir.path(), _path + "/with blanks \xff\\");
    struct stat status {};
    ASSERT_EQ(::stat(dir.path().c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0755U);
    EXPECT_TRUE(dir.createDir("below"));
    EXPECT_EQ(dir.path(), _path + "/with blanks \xff\\/below");
}

TEST_F(DirTest, makesAChildWithMode755LessTheUmask)
{
    mode_t asked = 0;
    {
        const Interposed noted(interpose::mkdir, [&](auto real, const char* path, mode_t mode) {
            asked = mode;
            EXPECT_STREQ(path, "child");
            return real(path, mode);
        });
        const mode_t before = ::umask(077);
        EXPECT_TRUE(Dir(_path).createDir("child"));
        ::umask(before);
    }
    EXPECT_EQ(asked, 0755U);
    struct stat status {};
    ASSERT_EQ(::stat((_path + "/child").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0700U);
}

TEST_F(DirTest, makesNoChildThatItCannot)
{
    Dir dir(_path);
    _folder.makeFile("dir/file");
    for (const char* const name : {"a/b", "/a", "a/", "/", "", "file"}) {
        EXPECT_FALSE(dir.createDir(name)) << name;
        EXPECT_EQ(dir.path(), _path);
    }
    Dir missing(_folder.path("missing"));
    EXPECT_FALSE(missing.createDir("child"));
    EXPECT_EQ(missing.path(), _folder.path("missing"));
    EXPECT_EQ(entriesOf(dir), (std::map<std::string, int>{{"file", 1}}));
}

TEST_F(DirTest, isNotFoundByAPathWithAZeroByteInIt)
{
    using namespace std::string_literals;
    Dir dir(_path + "\0/x"s);
    EXPECT_FALSE(dir.exists());
    EXPECT_TRUE(Dir(_folder.path() + "\0"s).entries().empty());
    EXPECT_FALSE(dir.move(_folder.path("moved")));
    EXPECT_FALSE(Dir(_path).move(_folder.path("moved\0"s)));

    Dir parent(_path);
    EXPECT_FALSE(parent.createDir("child\0x"s));
    EXPECT_EQ(parent.path(), _path);
    EXPECT_FALSE(Dir(_path + "/child\0x"s).create());
    EXPECT_TRUE(parent.entries().empty());
}

TEST_F(DirTest, makesNoChildElsewhereWhenItIsGoneMeanwhile)
{
    int entries = 0;
    {
        const Interposed failing(interpose::chdir, [&](auto real, const char* path) {
            if (path == _path && ++entries == 2) {
                errno = ENOENT;
                return -1;
            }
            return real(path);
        });
        Dir dir(_path);
        EXPECT_FALSE(dir.createDir("child"));
        EXPECT_EQ(dir.path(), _path);
    }
    EXPECT_EQ(entries, 2);
    EXPECT_FALSE(std::filesystem::exists(_elsewhere + "/child"));
}

TEST_F(DirTest, listsEverythingButItselfAndItsParent)
{
    EXPECT_EQ(entriesOf(Dir(_path)), (std::map<std::string, int>{}));
    _folder.makeFile("dir/file");
    _folder.makeFile("dir/.hidden");
    _folder.makeFile("dir/with blanks \xff\\");
    _folder.makeDirectory("dir/...");
    _folder.makeDirectory("dir/below");
    EXPECT_EQ(
        entriesOf(Dir(_path)),
        (std::map<std::string, int>{{"file", 1}, {".hidden", 1}, {"with blanks \xff\\", 1}, {"...", 0}, {"below", 0}}));
}

TEST_F(DirTest, listsDirectoriesAndLinksToThemAsDirectoriesAndAllElseAsFiles)
{
    _folder.makeFile("dir/file");
    ASSERT_EQ(::symlink(_elsewhere.c_str(), (_path + "/link to directory").c_str()), 0);
    ASSERT_EQ(::symlink("file", (_path + "/link to file").c_str()), 0);
    ASSERT_EQ(::mkfifo((_path + "/fifo").c_str(), S_IRUSR), 0);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (_path + "/socket").c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ::close(fd);
    EXPECT_EQ(entriesOf(Dir(_path)),
              (std::map<std::string, int>{
                  {"file", 1}, {"link to directory", 0}, {"link to file", 1}, {"fifo", 1}, {"socket", 1}}));
    EXPECT_EQ(entriesOf(Dir("/dev")).at("null"), 1);
    EXPECT_EQ(entriesOf(Dir("/")).at("dev"), 0);
}

TEST_F(DirTest, takesALinkToNothingForWhatCameBeforeIt)
{
    _folder.makeDirectory("dir/below");
    _folder.makeFile("dir/file");
    ASSERT_EQ(::symlink("nothing", (_path + "/dangling").c_str()), 0);
    // All orders, whatever the system's own.
    std::vector<std::string> names = {"below", "dangling", "file"};
    do {
        std::size_t next = 0;
        dirent made{};
        std::vector<EntryInfo> entries;
        {
            const Interposed listing(interpose::readdir, [&](auto*, DIR*) -> dirent* {
                if (next == names.size())
                    return nullptr;
                std::strcpy(made.d_name, names[next++].c_str());
                return &made;
            });
            entries = Dir(_path).entries();
        }
        ASSERT_EQ(entries.size(), 3U);
        int before = 1;  // what the first one counts as
        for (std::size_t at = 0; at < names.size(); ++at) {
            EXPECT_EQ(entries[at].name, names[at]) << "in the system's order";
            const int type = names[at] == "below" ? 0 : names[at] == "file" ? 1 : before;
            EXPECT_EQ(entries[at].type, type) << names[at];
            before = type;
        }
    } while (std::next_permutation(names.begin(), names.end()));
}

TEST_F(DirTest, listsInTheSystemsOrder)
{
    for (int number = 0; number < 100; ++number)
        _folder.makeFile("dir/" + std::to_string(number * 7919 % 1000));
    std::vector<std::string> order;
    DIR* const directory = ::opendir(_path.c_str());
    while (const dirent* const entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        if (name != "." && name != "..")
            order.push_back(name);
    }
    ::closedir(directory);
    std::vector<std::string> listed;
    for (const EntryInfo& entry : Dir(_path).entries())
        listed.push_back(entry.name);
    EXPECT_EQ(listed, order);
    EXPECT_EQ(listed.size(), 100U);
}

TEST_F(DirTest, listsNothingThatItCannotRead)
{
    EXPECT_TRUE(Dir(_folder.path("missing")).entries().empty());
    EXPECT_TRUE(Dir(_folder.makeFile("file")).entries().empty());
}

TEST_F(DirTest, closesWhatItLists)
{
    int closed = 0;
    const Interposed noted(interpose::closedir, [&](auto real, DIR* directory) {
        ++closed;
        return real(directory);
    });
    EXPECT_EQ(entriesOf(Dir(_folder.path())).size(), 2U);
    EXPECT_EQ(closed, 1);
}

TEST_F(DirTest, keepsItsPathWhenMoved)
{
    _folder.makeFile("dir/file", "x");
    Dir dir(_path);
    EXPECT_TRUE(dir.move(_folder.path("moved")));
    EXPECT_EQ(dir.path(), _path);
    EXPECT_FALSE(dir.exists());
    EXPECT_EQ(_folder.bytesOf("moved/file"), "x");
    EXPECT_FALSE(dir.move(_folder.path("again")));
}

TEST_F(DirTest, hasTimesInWholeSeconds)
{
    Dir dir(_path);
    long accessed = 0;
    long modified = 0;
    EXPECT_TRUE(dir.setLastAccessedTime(1000000001));
    EXPECT_TRUE(dir.setLastModifiedTime(1000000002));
    EXPECT_TRUE(dir.lastAccessedTime(accessed));
    EXPECT_TRUE(dir.lastModifiedTime(modified));
    EXPECT_EQ(accessed, 1000000001);
    EXPECT_EQ(modified, 1000000002);
    EXPECT_TRUE(dir.setLastAccessedTime(3));
    EXPECT_TRUE(dir.lastModifiedTime(modified));
    EXPECT_EQ(modified, 1000000002);
}

TEST_F(DirTest, hasNoTimesWhenItIsMissing)
{
    Dir dir(_folder.path("missing"));
    long time = 42;
    EXPECT_FALSE(dir.lastAccessedTime(time));
    EXPECT_FALSE(dir.lastModifiedTime(time));
    EXPECT_FALSE(dir.setLastAccessedTime(time));
    EXPECT_FALSE(dir.setLastModifiedTime(time));
    EXPECT_EQ(time, 42);
}

TEST(DirDeathTest, needsAnApplicationForARelativePath)
{
    EXPECT_FATAL(Dir(), "application != nullptr", "src/core/Application.cpp");
    EXPECT_FATAL(Dir("a"), "application != nullptr", "src/core/Application.cpp");
    EXPECT_FATAL(Dir("/a").setPath("a"), "application != nullptr", "src/core/Application.cpp");
}

}  // namespace
