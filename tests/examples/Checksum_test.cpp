// The checksum program, run as its users run it, against sha256sum.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ChildProcess.h"
#include "Sanitizers.h"
#include "Wait.h"

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

namespace fs = std::filesystem;

using Names = ChildProcess::Arguments;

/// What is printed of an empty file.
std::string lineOfEmpty(const std::string& name)
{
    return "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855  " + name + "\n";
}

class TemporaryFolder {
public:
    TemporaryFolder()
    {
        std::string path = (fs::temp_directory_path() / "checksum-test-XXXXXX").string();
        if (::mkdtemp(path.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        _path = path;
    }
    ~TemporaryFolder() { fs::remove_all(_path); }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    std::string pathOf(const std::string& name) const { return (_path / name).string(); }

    /// Makes a file and returns its path.
    std::string file(const std::string& name, const std::string& content) const
    {
        std::ofstream(pathOf(name), std::ios::binary) << content;
        return pathOf(name);
    }

    /// Makes a file that is read for as long as somebody writes to it, and returns its path.
    std::string fifo(const std::string& name) const
    {
        if (::mkfifo(pathOf(name).c_str(), 0600) != 0)
            throw std::runtime_error("no named pipe");
        return pathOf(name);
    }

private:
    fs::path _path;
};

/// Writes to a named pipe that the program is to read. The reader finds the end when this object goes.
class FifoWriter {
public:
    explicit FifoWriter(const std::string& path) : _fd(-1)
    {
        // Without a reader the opening fails.
        _isRead = waitUntil([&] { return (_fd = ::open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC)) != -1; });
        ::fcntl(_fd, F_SETFL, 0);
    }
    ~FifoWriter() { ::close(_fd); }

    FifoWriter(const FifoWriter&) = delete;
    FifoWriter& operator=(const FifoWriter&) = delete;

    bool isRead() const { return _isRead; }

    bool write(const std::string& data) const
    {
        return ::write(_fd, data.data(), data.size()) == static_cast<ssize_t>(data.size());
    }

private:
    int _fd;
    bool _isRead;
};

/// A terminal, and what was printed on it.
class Terminal {
public:
    Terminal() : _master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)), _slave(-1)
    {
        char name[100];
        if (::grantpt(_master) != 0 || ::unlockpt(_master) != 0 || ::ptsname_r(_master, name, sizeof name) != 0)
            throw std::runtime_error("no terminal");
        _name = name;
        _slave = ::open(name, O_RDWR | O_NOCTTY | O_CLOEXEC);  // keeps what was printed readable
    }
    ~Terminal()
    {
        ::close(_slave);
        ::close(_master);
    }

    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    const std::string& name() const { return _name; }

    /// Everything until now.
    const std::string& text()
    {
        char part[4096];
        for (ssize_t count = 0; (count = ::read(_master, part, sizeof part)) > 0;)
            _text.append(part, static_cast<std::size_t>(count));
        return _text;
    }

private:
    int _master;
    int _slave;
    std::string _name;
    std::string _text;
};

struct Outcome {
    int status;
    std::string output;
    std::string errors;
};

Outcome runToEnd(const std::string& program, const Names& arguments)
{
    ChildProcess child(program, arguments);
    const int status = child.wait().value_or(-1000);
    return {status, child.output(), child.errors()};
}

Outcome checksum(const Names& arguments)
{
    return runToEnd(CHECKSUM_PROGRAM, arguments);
}

/// Runs the program from a shell's line, in which it and its arguments are "$@".
Names inShell(const std::string& line, const Names& arguments)
{
    Names all = {"-c", line, "sh", CHECKSUM_PROGRAM};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

void expectWhatSha256sumPrints(const Names& files, const std::string& jobs)
{
    Names arguments = {"-j", jobs, "--"};
    arguments.insert(arguments.end(), files.begin(), files.end());
    Names expectedArguments = {"sha256sum", "--"};
    expectedArguments.insert(expectedArguments.end(), files.begin(), files.end());
    const Outcome expected = runToEnd("/usr/bin/env", expectedArguments);
    ASSERT_EQ(expected.status, 0) << expected.errors;

    const Outcome outcome = checksum(arguments);

    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.output, expected.output);
    EXPECT_THAT(outcome.errors, IsEmpty());
}

// Checksums

TEST(Checksum, printsWhatSha256sumPrintsForATreeOfHeaders)
{
    Names files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator("/usr/include/glib-2.0")) {
        if (entry.is_regular_file())
            files.push_back(entry.path().string());
    }
    ASSERT_GT(files.size(), 50U);

    for (const char* const jobs : {"1", "4", "256"})
        expectWhatSha256sumPrints(files, jobs);
}

TEST(Checksum, printsOddNamesAsSha256sumDoes)
{
    const TemporaryFolder folder;
    fs::create_directory(folder.pathOf("new\nfolder"));
    Names files;
    for (const char* const name :
         {"back\\slash", "new\nline", "carriage\rreturn", "\\n", "tab\tulator", "two words", " ", "[a,b]", "{}", "'",
          "\"", "-", "--jobs", "%s", "\x1f[", "na\xc3\xafve", "\xff\xfe", "new\nfolder/file"})
        files.push_back(folder.file(name, name));

    expectWhatSha256sumPrints(files, "4");
}

TEST(Checksum, takesNamesFromTheCommandLineAsTheyAre)
{
    const TemporaryFolder folder;
    const Names names = {"[a,b]", "-j", "--", "\x1f[", "{}", "-"};
    for (const std::string& name : names)
        folder.file(name, "");
    Names arguments = inShell("cd \"$0\" && exec \"$@\"", {"--"});
    arguments[2] = folder.pathOf("");
    arguments.insert(arguments.end(), names.begin(), names.end());

    const Outcome outcome = runToEnd("/bin/sh", arguments);

    std::string expected;
    for (const std::string& name : names)
        expected += lineOfEmpty(name);
    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_EQ(outcome.output, expected);
}

TEST(Checksum, readsFilesOfAllSizes)
{
    const TemporaryFolder folder;
    Names files;
    for (const std::size_t size : {0U, 1U, 63U, 64U, 65U, 65535U, 65536U, 65537U, 3'000'000U})
        files.push_back(folder.file(std::to_string(size), std::string(size, 'x')));

    expectWhatSha256sumPrints(files, "3");
}

TEST(Checksum, printsManyFilesInTheOrderOfTheCommandLine)
{
    const TemporaryFolder folder;
    Names files;
    for (std::size_t size = 100'000; size > 0; size -= 200)  // those that take longest come first
        files.push_back(folder.file(std::to_string(size), std::string(size, 'x')));

    expectWhatSha256sumPrints(files, "4");
}

TEST(Checksum, takesAFileTwice)
{
    const TemporaryFolder folder;
    const std::string file = folder.file("file", "content");

    expectWhatSha256sumPrints({file, file, file}, "2");
}

TEST(Checksum, readsAsManyFilesAtATimeAsItIsTold)
{
    const TemporaryFolder folder;
    Names arguments = {"-j", "4"};
    for (const char* const name : {"1", "2", "3", "4"})
        arguments.push_back(folder.fifo(name));
    ChildProcess child(CHECKSUM_PROGRAM, arguments);
    {
        const FifoWriter fourth(arguments[5]);
        const FifoWriter third(arguments[4]);
        const FifoWriter second(arguments[3]);
        const FifoWriter first(arguments[2]);
        EXPECT_TRUE(first.isRead() && second.isRead() && third.isRead() && fourth.isRead());
    }

    EXPECT_EQ(child.wait(), 0);
    std::string expected;
    for (std::size_t file = 2; file < arguments.size(); ++file)
        expected += lineOfEmpty(arguments[file]);
    EXPECT_EQ(child.output(), expected);
}

TEST(Checksum, needsNoMoreMemoryForALargeFile)
{
    if (KXPAL_TESTS_ADDRESS_SANITIZER || KXPAL_TESTS_THREAD_SANITIZER)
        GTEST_SKIP() << "the sanitizers take address space of their own";
    const TemporaryFolder folder;
    const std::string file = folder.file("large", "");
    constexpr off_t size = 200'000'000;
    ASSERT_EQ(::truncate(file.c_str(), size), 0);  // takes no room on the disk

    const Outcome outcome = runToEnd("/bin/sh", inShell("ulimit -v 150000 && exec \"$@\"", {"-j", "1", file}));

    EXPECT_EQ(outcome.status, 0) << outcome.errors;
    EXPECT_THAT(outcome.output, EndsWith("  " + file + "\n"));
}

// Failures

TEST(Checksum, goesOnBehindFilesThatCannotBeRead)
{
    const TemporaryFolder folder;
    const std::string first = folder.file("first", "");
    const std::string last = folder.file("last", "");
    const std::string missing = folder.pathOf("missing");
    const std::string directory = folder.pathOf("");

    const Outcome outcome = checksum({"-j", "2", first, missing, directory, "/proc/self/mem", "", "odd\nname", last});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.output, lineOfEmpty(first) + lineOfEmpty(last));
    EXPECT_EQ(outcome.errors, "checksum: " + missing + ": No such file or directory\n" +  //
                                  "checksum: " + directory + ": Is a directory\n" +       //
                                  "checksum: /proc/self/mem: Input/output error\n" +      //
                                  "checksum: '': No such file or directory\n" +           //
                                  "checksum: odd\\nname: No such file or directory\n");
}

TEST(Checksum, saysWhichFileItMayNotRead)
{
    if (::geteuid() == 0)
        GTEST_SKIP() << "root may read every file";
    const TemporaryFolder folder;
    const std::string secret = folder.file("secret", "");
    fs::permissions(secret, fs::perms::none);

    const Outcome outcome = checksum({secret});

    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.output, IsEmpty());
    EXPECT_EQ(outcome.errors, "checksum: " + secret + ": Permission denied\n");
}

TEST(Checksum, failsWhenItsOutputGoesNowhere)
{
    const TemporaryFolder folder;

    const Outcome outcome = runToEnd("/bin/sh", inShell("exec \"$@\" >/dev/full", {folder.file("file", "")}));

    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.errors, "checksum: standard output: No space left on device\n");
}

TEST(Checksum, refusesCommandLinesThatItDoesNotUnderstand)
{
    for (const Names& arguments : {Names{}, Names{"-j", "2"}, Names{"-j", "0", "file"}, Names{"-j", "257", "file"},
                                   Names{"-j", "many", "file"}, Names{"file", "-j"}, Names{"--unknown", "file"}}) {
        const Outcome outcome = checksum(arguments);
        EXPECT_EQ(outcome.status, 2) << ::testing::PrintToString(arguments);
        EXPECT_THAT(outcome.output, IsEmpty());
        EXPECT_THAT(outcome.errors, HasSubstr("Run with --help"));
    }
}

TEST(Checksum, explainsItself)
{
    const Outcome outcome = checksum({"--help"});

    EXPECT_EQ(outcome.status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("Usage: checksum [OPTIONS] FILE..."));
    EXPECT_THAT(outcome.output, HasSubstr("--jobs"));
    EXPECT_THAT(outcome.errors, IsEmpty());
}

// Progress

TEST(Checksum, showsItsProgressOnATerminalAndNowhereElse)
{
    const TemporaryFolder folder;
    const std::string ready = folder.file("ready", "");
    const std::string shownFifo = folder.fifo("shown");
    const std::string silentFifo = folder.fifo("silent");
    Terminal terminal;
    ChildProcess silent(CHECKSUM_PROGRAM, {"-j", "2", silentFifo, ready});
    ChildProcess shown("/bin/sh", inShell("exec \"$@\" 2>" + terminal.name(), {"-j", "2", shownFifo, ready}));
    {
        const FifoWriter silentWriter(silentFifo);
        const FifoWriter shownWriter(shownFifo);
        EXPECT_TRUE(shownWriter.write(std::string(2'000'000, 'x')));
        EXPECT_TRUE(waitUntil([&] { return terminal.text().find("\r1 of 2 files, 2 MB\033[K") != std::string::npos; }))
            << terminal.text();
        EXPECT_THAT(silent.errors(), IsEmpty());  // though it has been waiting for longer
    }

    EXPECT_EQ(shown.wait(), 0);
    EXPECT_THAT(terminal.text(), EndsWith("\r\033[K"));
    EXPECT_THAT(shown.output(), HasSubstr("  " + shownFifo + "\n" + lineOfEmpty(ready)));
    EXPECT_EQ(silent.wait(), 0);
    EXPECT_THAT(silent.errors(), IsEmpty());
    EXPECT_EQ(silent.output(), lineOfEmpty(silentFifo) + lineOfEmpty(ready));
}

TEST(Checksum, makesRoomForWhatItPrintsOnATerminal)
{
    const TemporaryFolder folder;
    const std::string fifo = folder.fifo("fifo");
    const std::string missing = folder.pathOf("missing");
    Terminal terminal;
    ChildProcess child("/bin/sh", inShell("exec \"$@\" 2>" + terminal.name(), {"-j", "2", fifo, missing}));
    {
        const FifoWriter writer(fifo);
        EXPECT_TRUE(waitUntil([&] { return terminal.text().find("1 of 2 files") != std::string::npos; }));
    }

    EXPECT_EQ(child.wait(), 1);
    EXPECT_THAT(terminal.text(), HasSubstr("\033[K\r\033[Kchecksum: " + missing + ": No such file or directory\r\n"));
}

}  // namespace
