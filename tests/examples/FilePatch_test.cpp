// The program that patches files, run as its users run it.
#include <glib.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <tuple>

#include "ChildProcess.h"
#include "TemporaryFolder.h"

namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

std::string checksumOf(const std::string& bytes)
{
    gchar* const digits =
        g_compute_checksum_for_data(G_CHECKSUM_SHA256, reinterpret_cast<const guchar*>(bytes.data()), bytes.size());
    const std::string checksum = digits;
    g_free(digits);
    return checksum;
}

std::string madeUpBytes(std::size_t count)
{
    std::string bytes;
    for (std::size_t number = 0; bytes.size() < count; ++number)
        bytes += std::to_string(number) + '\0';
    bytes.resize(count);
    return bytes;
}

class FilePatchTest : public ::testing::Test {
protected:
    // What the program prints when all is well.
    static std::string printed(const ChildProcess::Arguments& arguments)
    {
        ChildProcess program(FILEPATCH_PROGRAM, arguments);
        EXPECT_EQ(program.wait(), 0) << program.errors();
        EXPECT_THAT(program.errors(), IsEmpty());
        return program.output();
    }

    // What the program complains of, with the status for a file that is as it was.
    static std::string refused(const ChildProcess::Arguments& arguments)
    {
        ChildProcess program(FILEPATCH_PROGRAM, arguments);
        EXPECT_EQ(program.wait(), 2) << program.output();
        EXPECT_THAT(program.output(), IsEmpty());
        return program.errors();
    }

    std::string checksum() const { return checksumOf(_folder.bytesOf("file")); }

    TemporaryFolder _folder;
    const std::string _bytes = madeUpBytes(20000);
    const std::string _path = _folder.makeFile("file", _bytes);
};

TEST_F(FilePatchTest, insertsAText)
{
    EXPECT_EQ(printed({"insert", _path, "3", "a b"}), _path + ": inserted 3 bytes at 3, now 20003 bytes\n");
    EXPECT_EQ(checksum(), checksumOf(std::string(_bytes).insert(3, "a b")));
}

TEST_F(FilePatchTest, insertsTheBytesOfAFile)
{
    const std::string other = madeUpBytes(10001);
    printed({"insert", _path, "0", "--from", _folder.makeFile("other", other)});
    EXPECT_EQ(checksum(), checksumOf(other + _bytes));
    EXPECT_EQ(checksumOf(_folder.bytesOf("other")), checksumOf(other));
}

TEST_F(FilePatchTest, insertsAFileIntoItself)
{
    printed({"insert", _path, "5", "--from", _path});
    EXPECT_EQ(checksum(), checksumOf(std::string(_bytes).insert(5, _bytes)));
}

TEST_F(FilePatchTest, appendsAtTheEndAlsoToAnEmptyFile)
{
    printed({"insert", _path, "20000", "end"});
    EXPECT_EQ(checksum(), checksumOf(_bytes + "end"));
    printed({"insert", _folder.makeFile("empty"), "0", "x"});
    EXPECT_EQ(_folder.bytesOf("empty"), "x");
}

TEST_F(FilePatchTest, erasesInTheMiddleAndAtTheEnd)
{
    EXPECT_EQ(printed({"erase", _path, "100", "9000"}), _path + ": erased 9000 bytes at 100, now 11000 bytes\n");
    EXPECT_EQ(checksum(), checksumOf(std::string(_bytes).erase(100, 9000)));
    EXPECT_EQ(printed({"erase", _path, "10999", "1"}), _path + ": erased 1 byte at 10999, now 10999 bytes\n");
    EXPECT_EQ(checksum(), checksumOf(std::string(_bytes).erase(100, 9000).substr(0, 10999)));
    printed({"erase", _path, "0", "10999"});
    EXPECT_EQ(_folder.bytesOf("file"), "");
}

TEST_F(FilePatchTest, showsBytesAsTheyAre)
{
    EXPECT_EQ(printed({"show", _path, "7", "15000"}), _bytes.substr(7, 15000));
    EXPECT_EQ(printed({"show", _path, "0", "20000"}), _bytes);
    EXPECT_EQ(printed({"show", _path, "19999", "1"}), _bytes.substr(19999));
    EXPECT_EQ(checksum(), checksumOf(_bytes));
}

TEST_F(FilePatchTest, refusesRangesThatAreNotInTheFile)
{
    for (const char* const command : {"erase", "show"}) {
        EXPECT_EQ(refused({command, _path, "19999", "2"}),
                  "filepatch: " + _path + ": 2 bytes at 19999 are not all in the file, which has 20000 bytes\n");
        EXPECT_THAT(refused({command, _path, "20000", "1"}), HasSubstr("1 byte at 20000 are not all in the file"));
        EXPECT_THAT(refused({command, _path, "1", "9223372036854775807"}), HasSubstr("are not all in the file"));
        EXPECT_THAT(refused({command, _path, "9223372036854775808", "1"}), HasSubstr("are not all in the file"));
    }
    EXPECT_EQ(refused({"insert", _path, "20001", "x"}),
              "filepatch: " + _path + ": 20001 is behind the end of the file, which has 20000 bytes\n");
    EXPECT_EQ(checksum(), checksumOf(_bytes));
}

TEST_F(FilePatchTest, refusesWhatIsNoNumber)
{
    for (const char* const number : {"x", "-1", "1.5", ""}) {
        EXPECT_THAT(refused({"insert", _path, number, "x"}), HasSubstr("--help")) << number;
        EXPECT_THAT(refused({"erase", _path, number, "1"}), HasSubstr("--help")) << number;
        EXPECT_THAT(refused({"erase", _path, "1", number}), HasSubstr("--help")) << number;
    }
    EXPECT_THAT(refused({"erase", _path, "1", "0"}), HasSubstr("LENGTH"));
    EXPECT_EQ(checksum(), checksumOf(_bytes));
}

TEST_F(FilePatchTest, saysWhichFileIsMissingAndMakesNone)
{
    const std::string missing = _folder.path("missing");
    EXPECT_EQ(refused({"insert", missing, "0", "x"}), "filepatch: " + missing + ": No such file or directory\n");
    EXPECT_EQ(refused({"erase", missing, "0", "1"}), "filepatch: " + missing + ": No such file or directory\n");
    EXPECT_EQ(refused({"show", missing, "0", "1"}), "filepatch: " + missing + ": No such file or directory\n");
    EXPECT_EQ(refused({"insert", _path, "0", "--from", missing}),
              "filepatch: " + missing + ": No such file or directory\n");
    EXPECT_FALSE(std::filesystem::exists(missing));
    EXPECT_EQ(checksum(), checksumOf(_bytes));
}

TEST_F(FilePatchTest, refusesDirectories)
{
    EXPECT_THAT(refused({"insert", _folder.path(), "0", "x"}), HasSubstr("Is a directory"));
    EXPECT_THAT(refused({"show", _folder.path(), "0", "1"}), StartsWith("filepatch: " + _folder.path()));
    EXPECT_THAT(refused({"insert", _path, "0", "--from", _folder.path()}), StartsWith("filepatch: " + _folder.path()));
    EXPECT_EQ(checksum(), checksumOf(_bytes));
}

TEST_F(FilePatchTest, refusesToInsertIntoTwoGigabytes)
{
    std::error_code error;
    std::filesystem::resize_file(_path, std::uintmax_t{1} << 31U, error);
    if (error)
        GTEST_SKIP() << "the file system of the temporary folder has no files of this size";
    const auto time = std::filesystem::last_write_time(_path);
    EXPECT_EQ(refused({"insert", _path, "0", "x"}),
              "filepatch: " + _path + ": nothing can be inserted into 2 GiB and more\n");
    EXPECT_EQ(refused({"insert", _folder.makeFile("small", "x"), "0", "--from", _path}),
              "filepatch: " + _path + ": 2 GiB and more cannot be inserted\n");
    EXPECT_EQ(std::filesystem::file_size(_path), std::uintmax_t{1} << 31U);
    EXPECT_EQ(std::filesystem::last_write_time(_path), time);
    EXPECT_EQ(printed({"show", _path, "0", "20000"}), _bytes);
}

TEST_F(FilePatchTest, refusesToInsertNothingOrTwoThings)
{
    EXPECT_THAT(refused({"insert", _path, "0", "--from", _folder.makeFile("empty")}), HasSubstr("nothing to insert"));
    EXPECT_THAT(refused({"insert", _path, "0"}), HasSubstr("--help"));
    EXPECT_THAT(refused({"insert", _path, "0", "x", "--from", _path}), HasSubstr("--help"));
    EXPECT_THAT(refused({}), HasSubstr("--help"));
    EXPECT_EQ(checksum(), checksumOf(_bytes));
}

TEST_F(FilePatchTest, explainsItself)
{
    EXPECT_THAT(printed({"--help"}), HasSubstr("insert"));
    EXPECT_THAT(printed({"insert", "--help"}), HasSubstr("--from"));
}

}  // namespace
