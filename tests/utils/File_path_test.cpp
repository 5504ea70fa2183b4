// Files: their paths, taken apart, joined and resolved.
#include <gtest/gtest.h>
#include <kxPAL/Application.h>
#include <kxPAL/File.h>

#include <stdexcept>
#include <string>

#include "FatalTest.h"
#include "TemporaryFolder.h"

namespace {

using Murn::File;

// The path of a file as the object holds it: its directory and its name make the whole.
std::string wholePath(const File& file)
{
    return file.path() + file.fileName();
}

// The path that a file has after setPath(), in a program that was started as `program`.
std::string pathSet(std::string program, const std::string& path)
{
    char* arguments[] = {program.data(), nullptr};
    const Murn::Application application(1, arguments);
    File file("before");
    file.setPath(path);
    return wholePath(file);
}

TEST(FilePath, isKeptAsItIsByTheConstructors)
{
    for (const char* const path : {"", "/", "a", "a/", "./a/../b//c", "/a/b", "dir\\name", "a b", "/\xc3\xa9\xff"})
        EXPECT_EQ(wholePath(File(path)), path);
    EXPECT_EQ(wholePath(File("dir", "name")), "dir/name");
    EXPECT_EQ(wholePath(File("/dir/", "/name/")), "/dir/name/");
    EXPECT_EQ(wholePath(File("", "name")), "name");
}

TEST(FilePath, isTakenApartAtSlashesAndBackslashesAlone)
{
    EXPECT_EQ(File("dir/a~b.c-d e").fileName(), "a~b.c-d e");
    EXPECT_EQ(File("dir/a~b.c-d e").path(), "dir/");
    EXPECT_EQ(File("dir\\name").fileName(), "name");
    EXPECT_EQ(File("dir\\name").path(), "dir\\");
}

TEST(FilePath, isJoinedWithOneSlash)
{
    EXPECT_EQ(File::safeConcatenate("a", "b"), "a/b");
    EXPECT_EQ(File::safeConcatenate("a/", "b"), "a/b");
    EXPECT_EQ(File::safeConcatenate("a", "/b"), "a/b");
    EXPECT_EQ(File::safeConcatenate("a/", "/b"), "a/b");
    EXPECT_EQ(File::safeConcatenate("/", "/"), "/");
    EXPECT_EQ(File::safeConcatenate("/", "b"), "/b");
}

TEST(FilePath, losesOneSlashAtTheSeamAtMost)
{
    EXPECT_EQ(File::safeConcatenate("a//", "/b"), "a//b");
    EXPECT_EQ(File::safeConcatenate("a/", "//b"), "a//b");
    EXPECT_EQ(File::safeConcatenate("a//", "b"), "a//b");
    EXPECT_EQ(File::safeConcatenate("a", "//b"), "a//b");
    EXPECT_EQ(File::safeConcatenate("a\\", "\\b"), "a\\/\\b") << "only \"/\" joins";
}

TEST(FilePath, isJoinedWithNothingWithoutASlash)
{
    EXPECT_EQ(File::safeConcatenate("", "b"), "b");
    EXPECT_EQ(File::safeConcatenate("", "/b"), "/b");
    EXPECT_EQ(File::safeConcatenate("a", ""), "a");
    EXPECT_EQ(File::safeConcatenate("a/", ""), "a/");
    EXPECT_EQ(File::safeConcatenate("", ""), "");
}

TEST(FilePath, hasTheNameBehindTheLastSeparatorOfEitherKind)
{
    EXPECT_EQ(File("/a/b").fileName(), "b");
    EXPECT_EQ(File("dir\\name.txt").fileName(), "name.txt");
    EXPECT_EQ(File("a\\b/c").fileName(), "c");
    EXPECT_EQ(File("a/b\\c").fileName(), "c");
    EXPECT_EQ(File("name").fileName(), "name");
    // Every other byte belongs to a name.
    for (int byte = 1; byte < 256; ++byte) {
        const std::string name = {'a', static_cast<char>(byte), 'b'};
        EXPECT_EQ(File(name).fileName(), byte == '/' || byte == '\\' ? "b" : name);
    }
    EXPECT_EQ(File("/a/").fileName(), "");
    EXPECT_EQ(File("").fileName(), "");
    EXPECT_EQ(File("/a/with blanks \xff").fileName(), "with blanks \xff");
}

TEST(FilePath, hasTheExtensionBehindTheNamesLastPoint)
{
    EXPECT_EQ(File("archive.tar.gz").extension(), "gz");
    EXPECT_EQ(File("README").extension(), "");
    EXPECT_EQ(File("name.").extension(), "");
    EXPECT_EQ(File(".hidden").extension(), "hidden");
    EXPECT_EQ(File("/dir.d/name").extension(), "");
    EXPECT_EQ(File("dir.d\\name").extension(), "");
    EXPECT_EQ(File("").extension(), "");
}

TEST(FilePath, hasTheDirectoryUpToTheLastSeparatorAndWithIt)
{
    EXPECT_EQ(File("x").path(), "");
    EXPECT_EQ(File("/x").path(), "/");
    EXPECT_EQ(File("/a/b").path(), "/a/");
    EXPECT_EQ(File("/a/").path(), "/a/");
    EXPECT_EQ(File("a\\b").path(), "a\\");
    EXPECT_EQ(File("").path(), "");
}

TEST(FilePath, hasAParentWithoutTheSeparator)
{
    EXPECT_EQ(File("/x").getParentPath(), "/");
    EXPECT_EQ(File("/").getParentPath(), "/");
    EXPECT_EQ(File("\\x").getParentPath(), "/") << "of the other kind, too";
    EXPECT_EQ(File("x").getParentPath(), "x");
    EXPECT_EQ(File("").getParentPath(), "");
    EXPECT_EQ(File("/a/b").getParentPath(), "/a");
    EXPECT_EQ(File("//b").getParentPath(), "/");
    EXPECT_EQ(File("a//b").getParentPath(), "a/");
    EXPECT_EQ(File("/a/").getParentPath(), "/a");
    EXPECT_EQ(File("a\\b").getParentPath(), "a");
}

TEST(FilePath, staysAsItIsWhenSetToAnAbsoluteOne)
{
    File file("before");
    for (const char* const path : {"/a", "/a/../b/./c", "//", "/a\\", "/with blanks/\xff"}) {
        const std::string set = path;
        file.setPath(set);
        EXPECT_EQ(wholePath(file), set == "//" ? "/" : set);
    }
}

TEST(FilePath, losesOneSlashAtItsEndWhenSet)
{
    File file("before");
    file.setPath("/a/");
    EXPECT_EQ(wholePath(file), "/a");
    file.setPath("/a//");
    EXPECT_EQ(wholePath(file), "/a/");
    file.setPath("/a\\");
    EXPECT_EQ(wholePath(file), "/a\\");
}

TEST(FilePath, isTakenFromTheProgramsDirectoryWhenSetToARelativeOne)
{
    EXPECT_EQ(pathSet("/opt/host/program", "x"), "/opt/host/x");
    EXPECT_EQ(pathSet("/opt/host/program", "x/y/"), "/opt/host/x/y");
    EXPECT_EQ(pathSet("/opt/host/program", "../x"), "/opt/host/../x");
    EXPECT_EQ(pathSet("/opt/host/program", "\\x"), "/opt/host/\\x") << "only \"/\" makes a path absolute";
    EXPECT_EQ(pathSet("bin/program", "x"), "bin/x");
    EXPECT_EQ(pathSet("host\\program", "x"), "host/x");
    EXPECT_EQ(pathSet("a/b\\program", "x"), "a/b/x");
}

TEST(FilePath, isTakenFromAProgramWithoutADirectoryByItsName)
{
    EXPECT_EQ(pathSet("program", "x"), "program/x");
    EXPECT_EQ(pathSet("/program", "x"), "/x");
    EXPECT_EQ(pathSet("", "x"), "/x");
}

TEST(FilePath, isTheProgramsDirectoryWhenSetToNothingOrTheRoot)
{
    EXPECT_EQ(pathSet("/opt/host/program", ""), "/opt/host");
    EXPECT_EQ(pathSet("/opt/host/program", "/"), "/opt/host");
    EXPECT_EQ(pathSet("/program", ""), "");
}

TEST(FilePath, isNotTakenFromTheWorkingDirectory)
{
    const TemporaryFolder folder;
    ASSERT_EQ(::chdir(folder.path().c_str()), 0);
    folder.makeFile("x");
    EXPECT_TRUE(File("x").exists()) << "a constructor's path is";
    char program[] = "/opt/host/program";
    char* arguments[] = {program, nullptr};
    const Murn::Application application(1, arguments);
    File file("x");
    file.setPath("x");
    EXPECT_FALSE(file.exists());
}

TEST(FilePath, cannotBeSetToARelativeOneWithoutArguments)
{
    const Murn::Application application(0, nullptr);
    File file("before");
    try {
        file.setPath("x");
        FAIL() << "nothing was thrown";
    } catch (const std::out_of_range& error) {
        EXPECT_EQ(std::string(error.what()).find("vector::_M_range_check"), 0U) << error.what();
    }
    EXPECT_EQ(wholePath(file), "before");
    EXPECT_NO_THROW(file.setPath("/x"));
}

TEST(FilePathDeathTest, cannotBeSetToARelativeOneWithoutAnApplication)
{
    EXPECT_FATAL(File("before").setPath("x"), "application != nullptr", "src/core/Application.cpp");
    EXPECT_FATAL(File("before").setPath("/"), "application != nullptr", "src/core/Application.cpp");
}

}  // namespace
