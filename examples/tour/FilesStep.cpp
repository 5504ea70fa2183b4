// Step: a file that is written, patched in the middle and read, and the directory it lies in.
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>

#include <cstdlib>
#include <string>

#include "Steps.h"

namespace {

using Murn::Dir;
using Murn::File;

std::string readAll(File& file)
{
    std::string all(static_cast<std::size_t>(file.size()), '\0');
    return file.read(all.data(), static_cast<long>(all.size()), 0) == file.size() ? all : std::string();
}

void patchAFile(Findings& findings, const std::string& path)
{
    File file(path);
    findings.check(!file.open(File::ReadWrite), "what does not exist is not opened");
    findings.check(file.create() && file.open(File::ReadWriteBinary), "create() makes it, and then it opens");
    file.write("abcghi", 6, -1);
    findings.check(file.size() == 0 && file.flush() && file.size() == 6,
                   "what was written is in the file once flushed");
    findings.check(file.insert(3, "def", 3) == 3 && file.flush(), "three bytes go into the middle");
    findings.check(readAll(file) == "abcdefghi", "what was behind them has made room");
    findings.check(file.erase(0, 6) && file.flush() && readAll(file) == "ghi", "six bytes go, and the rest moves up");
    findings.check(!file.removeFile(), "an open file is not removed");
}

void lookIntoADirectory(Findings& findings, const std::string& path)
{
    Dir dir(path);
    findings.check(dir.createDir("below") && dir.path() == path + "/below", "whoever makes a directory is in it then");
    dir.setPath(path);
    unsigned long directories = 0;
    unsigned long files = 0;
    for (const Murn::EntryInfo& entry : dir.entries())
        ++(entry.type == Murn::EntryInfo::DirectoryEntry ? directories : files);
    say("In %s: %lu directory, %lu file.", path.c_str(), directories, files);
    findings.check(directories == 1 && files == 1, "both are listed");
    findings.check(dir.remove() && !Dir(path).exists(), "the directory goes with all that is in it");
}

Findings walk(Murn::Application&)
{
    Findings findings;
    std::string path = "/tmp/kxpal-tour-XXXXXX";
    if (findings.check(::mkdtemp(path.data()) != nullptr, "there is room for a folder of our own")) {
        patchAFile(findings, path + "/file");
        lookIntoADirectory(findings, path);
    }
    return findings;
}

}  // namespace

const Step filesStep = {"Patching a file, listing and removing a directory", walk};
