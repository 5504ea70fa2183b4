// Directories: made with those above them, and removed with all that is in them.
#include <gtest/gtest.h>
#include <kxPAL/Application.h>
#include <kxPAL/Dir.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "InterposeFiles.h"
#include "OnlyWithin.h"
#include "TemporaryFolder.h"

namespace {

using Murn::Dir;
using Calls = std::vector<std::string>;
namespace fs = std::filesystem;

class DirTreeTest : public ::testing::Test {
protected:
    DirTreeTest() { EXPECT_EQ(::chdir(_elsewhere.c_str()), 0); }

    void TearDown() override { EXPECT_EQ(fs::current_path(), _elsewhere); }

    // Lets the program have been started from a directory within the folder.
    void startFrom(const std::string& directory)
    {
        _program = directory + "/program";
        char* arguments[] = {_program.data(), nullptr};
        _application = std::make_unique<Murn::Application>(1, arguments);
    }

    static mode_t modeOf(const std::string& path)
    {
        struct stat status {};
        return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
    }

    // What chmod is asked for on the way to a path.
    static Calls modesDownTo(const std::string& path)
    {
        Calls calls;
        for (std::size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
            calls.push_back(path.substr(0, at) + " 777");
        calls.push_back(path + " 777");
        return calls;
    }

    void makeTree()
    {
        for (const char* const directory : {"tree", "tree/a", "tree/a/b", "tree/c"})
            _folder.makeDirectory(directory);
        for (const char* const file : {"tree/file", "tree/a/file", "tree/a/b/file", "tree/with blanks \xff\\"})
            _folder.makeFile(file, "x");
    }

    TemporaryFolder _folder;
    const OnlyWithin _guard{_folder};
    const std::string _elsewhere = _folder.makeDirectory("elsewhere");
    std::string _program;
    std::unique_ptr<Murn::Application> _application;
};

TEST_F(DirTreeTest, makesWhatIsMissingAndKeepsItsPath)
{
    Dir dir(_folder.path("a/b c/\xff"));
    EXPECT_TRUE(dir.create());
    EXPECT_EQ(dir.path(), _folder.path("a/b c/\xff"));
    EXPECT_TRUE(dir.exists());
    EXPECT_TRUE(dir.create());
}

TEST_F(DirTreeTest, opensEveryDirectoryOnTheWayToEverybody)
{
    _folder.makeDirectory("there");
    const mode_t before = ::umask(077);
    EXPECT_TRUE(Dir(_folder.path("there/a/b")).create());
    ::umask(before);
    EXPECT_EQ(_guard.modes(), modesDownTo(_folder.path("there/a/b")));
    for (const char* const name : {"there", "there/a", "there/a/b"})
        EXPECT_EQ(modeOf(_folder.path(name)), 0777U) << name;
    EXPECT_EQ(modeOf(_folder.path()), 0777U);
}

TEST_F(DirTreeTest, changesNoModeWhenItIsThere)
{
    const std::string path = _folder.makeDirectory("there");
    EXPECT_TRUE(Dir(path).create());
    EXPECT_EQ(_guard.modes(), Calls());
}

TEST_F(DirTreeTest, isMadeAlsoWhereModesCannotBeChanged)
{
    const Interposed failing(interpose::chmod, interpose::failsWith(EPERM));
    EXPECT_TRUE(Dir(_folder.path("a/b")).create());
    EXPECT_TRUE(fs::is_directory(_folder.path("a/b")));
}

TEST_F(DirTreeTest, keepsItsPathAlsoWhenItCannotBeMade)
{
    _folder.makeFile("file");
    Dir dir(_folder.path("file/a"));
    EXPECT_FALSE(dir.create());
    EXPECT_EQ(dir.path(), _folder.path("file/a"));
    EXPECT_EQ(_guard.modes(), modesDownTo(_folder.path())) << "what cannot be made keeps its mode";
}

TEST_F(DirTreeTest, makesOneByOneFromTheTop)
{
    Calls made;
    {
        const Interposed noted(interpose::mkdir, [&](auto real, const char* path, mode_t mode) {
            made.push_back(fs::current_path().string() + " " + path);
            return real(path, mode);
        });
        EXPECT_TRUE(Dir(_folder.path("a/b")).create());
    }
    EXPECT_EQ(made, (Calls{_folder.path() + " a", _folder.path("a") + " b"}));
}

TEST_F(DirTreeTest, makesDirectoriesBehindDoubledSlashes)
{
    EXPECT_TRUE(Dir(_folder.path("a//b")).create());
    EXPECT_TRUE(fs::is_directory(_folder.path("a/b")));
}

TEST_F(DirTreeTest, takesAPathApartAtEverySlashButTheFirst)
{
    Calls modes;
    const std::string path = "/" + _folder.path("a//b");
    {
        const Interposed noted(interpose::chmod, [&](auto*, const char* name, mode_t mode) {
            modes.push_back(std::string(name) + (mode == 0777 ? " 777" : " another mode"));
            return 0;
        });
        EXPECT_TRUE(Dir(path).create());
    }
    EXPECT_EQ(modes, modesDownTo(path));
    EXPECT_EQ(modes.front(), "/ 777");
}

TEST_F(DirTreeTest, splitsNamesAtBackslashesOnTheWay)
{
    // The directory above "x\y" is "x", and its child "y": so it is made there, and what was asked for is not.
    _folder.makeDirectory("x");
    Dir dir(_folder.path("x\\y"));
    EXPECT_TRUE(dir.create());
    EXPECT_TRUE(fs::is_directory(_folder.path("x/y")));
    EXPECT_FALSE(dir.exists());
}

TEST_F(DirTreeTest, doesNotMakeWhatEndsWithABackslash)
{
    Dir dir(_folder.path("a\\"));
    EXPECT_TRUE(dir.create()) << "only what is above it";
    EXPECT_FALSE(dir.exists());
    EXPECT_EQ(_guard.modes(), modesDownTo(_folder.path()));
}

TEST_F(DirTreeTest, isMadeInTheProgramsDirectoryForARelativePath)
{
    startFrom(_folder.path());
    Dir dir("a/b");
    EXPECT_TRUE(dir.create());
    EXPECT_TRUE(fs::is_directory(_folder.path("a/b")));
    EXPECT_EQ(dir.path(), _folder.path("a/b"));
}

TEST_F(DirTreeTest, isMadeInTheProgramsDirectoryWhenMissingRightBelowTheRoot)
{
    startFrom(_folder.path());
    const std::string name = fs::path(_folder.path()).filename();
    ASSERT_FALSE(fs::exists("/" + name));
    Dir dir("/" + name);
    EXPECT_TRUE(dir.create());
    EXPECT_EQ(dir.path(), "/" + name);
    EXPECT_FALSE(dir.exists());
    EXPECT_TRUE(fs::is_directory(_folder.path(name)));
    EXPECT_EQ(_guard.modes(), Calls{"/" + name + " 777"}) << "by the path that was asked for";

    Dir below("/" + name + "/below");
    EXPECT_FALSE(below.create()) << "it is there, but not below the root";
    EXPECT_EQ(below.path(), "/" + name + "/below");
}

TEST_F(DirTreeTest, namesTheProgramsDirectoryAfterARemovalRightBelowTheRoot)
{
    startFrom(_folder.path());
    const std::string path = "/" + fs::path(_folder.path()).filename().string();
    ASSERT_FALSE(fs::exists(path));
    std::string removed;
    // It is made up: nothing is there, and nothing is done.
    const Interposed removing(interpose::rmdir, [&](auto, const char* asked) {
        removed = asked;
        return 0;
    });
    Dir dir(path);
    EXPECT_TRUE(dir.removeDir(path));
    EXPECT_EQ(removed, path);
    EXPECT_EQ(dir.path(), _folder.path());
}

TEST_F(DirTreeTest, isRemovedWithAllThatIsInItDepthFirst)
{
    makeTree();
    Dir dir(_folder.path("tree"));
    Calls removed;
    {
        const Interposed noted(interpose::rmdir, [&](auto real, const char* path) {
            removed.emplace_back(path);
            EXPECT_TRUE(_folder.holds(path));
            return real(path);
        });
        EXPECT_TRUE(dir.remove());
    }
    EXPECT_FALSE(fs::exists(_folder.path("tree")));
    EXPECT_EQ(dir.path(), _folder.path()) << "the directory above";
    ASSERT_EQ(removed.size(), 4U);
    EXPECT_EQ(removed.back(), _folder.path("tree"));
    EXPECT_TRUE(fs::exists(_elsewhere));
}

TEST_F(DirTreeTest, isRemovedByAnObjectOfAnotherPath)
{
    makeTree();
    Dir dir("/");
    EXPECT_TRUE(dir.removeDir(_folder.path("tree/a")));
    EXPECT_EQ(dir.path(), _folder.path("tree"));
    EXPECT_FALSE(fs::exists(_folder.path("tree/a")));
    EXPECT_TRUE(fs::exists(_folder.path("tree/file")));
}

TEST_F(DirTreeTest, removesLinksAndFifosAsFiles)
{
    makeTree();
    ASSERT_EQ(::symlink(_folder.makeFile("kept", "x").c_str(), _folder.path("tree/c/link").c_str()), 0);
    ASSERT_EQ(::symlink("nothing", _folder.path("tree/a/b/../../c/dangling").c_str()), 0);
    ASSERT_EQ(::mkfifo(_folder.path("tree/c/fifo").c_str(), S_IRUSR), 0);
    EXPECT_TRUE(Dir(_folder.path("tree")).remove());
    EXPECT_EQ(_folder.bytesOf("kept"), "x");
}

TEST_F(DirTreeTest, emptiesWhatALinkToADirectoryPointsToAndFailsAtTheLink)
{
    _folder.makeDirectory("target");
    _folder.makeFile("target/file");
    const std::string tree = _folder.makeDirectory("tree");
    ASSERT_EQ(::symlink(_folder.path("target").c_str(), (tree + "/link").c_str()), 0);
    Dir dir(tree);
    EXPECT_FALSE(dir.remove());
    EXPECT_EQ(dir.path(), tree + "/link");
    EXPECT_TRUE(fs::is_empty(_folder.path("target")));
    EXPECT_TRUE(fs::is_symlink(tree + "/link"));
}

TEST_F(DirTreeTest, stopsAtWhatCannotBeRemovedAndStaysThere)
{
    makeTree();
    Dir dir(_folder.path("tree"));
    {
        const Interposed failing(interpose::remove, [&](auto real, const char* path) {
            EXPECT_TRUE(_folder.holds(path));
            return path == _folder.path("tree/a/b/file") ? -1 : real(path);
        });
        EXPECT_FALSE(dir.remove());
    }
    EXPECT_EQ(dir.path(), _folder.path("tree/a/b"));
    EXPECT_TRUE(fs::exists(_folder.path("tree/a/b/file")));
}

TEST_F(DirTreeTest, leavesEverythingBehindWhatCannotBeRemovedAlone)
{
    for (const char* const file : {"1", "2", "3"})
        _folder.makeFile(file, "x");
    int removals = 0;
    {
        const Interposed failing(interpose::remove, [&](auto...) {
            ++removals;
            return -1;
        });
        EXPECT_FALSE(Dir(_folder.path()).remove());
    }
    EXPECT_EQ(removals, 1);
}

TEST_F(DirTreeTest, staysAtADirectoryThatCannotBeRemoved)
{
    makeTree();
    Dir dir(_folder.path("tree"));
    {
        const Interposed failing(interpose::rmdir, [&](auto real, const char* path) {
            EXPECT_TRUE(_folder.holds(path));
            return path == _folder.path("tree/a") ? -1 : real(path);
        });
        EXPECT_FALSE(dir.remove());
    }
    EXPECT_EQ(dir.path(), _folder.path("tree/a"));
    EXPECT_TRUE(fs::is_empty(_folder.path("tree/a")));
}

TEST_F(DirTreeTest, touchesNothingWhenItIsMissing)
{
    int touched = 0;
    const auto refused = [&](auto*, auto...) {
        ++touched;
        return -1;
    };
    Dir dir(_folder.path("missing"));
    {
        const Interposed removing(interpose::remove, refused);
        const Interposed removingDirectories(interpose::rmdir, refused);
        EXPECT_FALSE(dir.remove());
    }
    EXPECT_EQ(touched, 0);
    EXPECT_EQ(dir.path(), _folder.path("missing"));
}

// The paths of what is in it would all name the directory itself, again and again.
TEST_F(DirTreeTest, isNotRemovedByAPathWithAZeroByteInIt)
{
    using namespace std::string_literals;
    const std::string path = _folder.makeDirectory("dir");
    _folder.makeDirectory("dir/child");
    _folder.makeFile("dir/child/file");
    Dir dir(path + "\0"s);
    EXPECT_FALSE(dir.remove());
    EXPECT_FALSE(dir.removeDir(path + "\0"s));
    EXPECT_TRUE(fs::exists(path + "/child/file"));
}

TEST_F(DirTreeTest, isRemovedByARelativePathFromTheProgramsAndTheWorkingDirectory)
{
    makeTree();
    startFrom(_folder.path());
    ASSERT_EQ(::chdir(_folder.path().c_str()), 0);
    Dir dir;
    EXPECT_TRUE(dir.removeDir("tree"));
    EXPECT_EQ(dir.path(), _folder.path());
    EXPECT_FALSE(fs::exists(_folder.path("tree")));
    ASSERT_EQ(::chdir(_elsewhere.c_str()), 0);
}

TEST_F(DirTreeTest, isEmptiedButNotRemovedByARelativePathFromElsewhere)
{
    makeTree();
    startFrom(_folder.path());
    Dir dir;
    EXPECT_FALSE(dir.removeDir("tree")) << "the working directory has none";
    EXPECT_EQ(dir.path(), _folder.path("tree"));
    EXPECT_TRUE(fs::is_empty(_folder.path("tree")));

    // Where it has one of the same name, that one goes, unless there is something in it.
    _folder.makeDirectory("elsewhere/tree");
    EXPECT_TRUE(dir.removeDir("tree"));
    EXPECT_TRUE(fs::exists(_folder.path("tree")));
    EXPECT_FALSE(fs::exists(_elsewhere + "/tree"));
}

}  // namespace
