// Lists what is in a directory and in those below it: what each entry is, its size, when it was changed (UTC), and its
// name. A link is shown with what it points to and is not followed, so the list ends also where links lead in circles.
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

struct Counts {
    unsigned long directories = 0;
    unsigned long files = 0;
    unsigned long links = 0;
    unsigned long others = 0;
    bool complete = true;
};

// Names may be of any bytes, and a terminal takes some of them for commands.
std::string printable(std::string name)
{
    const auto isControl = [](char c) { return (static_cast<unsigned char>(c) < 0x20U) || c == 0x7f; };
    std::replace_if(name.begin(), name.end(), isControl, '?');
    return name;
}

void print(const char* kind, const std::string& size, long modified, unsigned int depth, const std::string& name)
{
    char time[32] = "-";
    const std::time_t seconds = modified;
    std::tm date{};
    if (modified != LONG_MIN && ::gmtime_r(&seconds, &date) != nullptr)
        std::strftime(time, sizeof time, "%Y-%m-%d %H:%M:%S", &date);
    std::printf("%-9s %12s  %-19s  %*s%s\n", kind, size.c_str(), time, static_cast<int>(2 * depth), "",
                printable(name).c_str());
}

// What a link points to; empty for anything that is no link.
std::string targetOf(const std::string& path)
{
    char target[PATH_MAX];
    const ssize_t length = ::readlink(path.c_str(), target, sizeof target);
    return length > 0 ? std::string(target, static_cast<std::size_t>(length)) : std::string();
}

// Only these are opened to learn their size: a fifo would keep us waiting, and a device may do anything.
bool isPlainFile(const std::string& path)
{
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

void listFile(const std::string& path, unsigned int depth, const std::string& name, Counts& counts)
{
    const Murn::File file(path);
    const bool isPlain = isPlainFile(path);
    const std::int64_t size = isPlain ? file.size() : -1;
    long modified = LONG_MIN;
    file.lastModifiedTime(modified);
    print(isPlain ? "file" : "other", size >= 0 ? std::to_string(size) : "-", modified, depth, name);
    ++(isPlain ? counts.files : counts.others);
}

// NOLINTNEXTLINE(misc-no-recursion): directories without links end somewhere.
void listContents(const Murn::Dir& dir, unsigned int depth, Counts& counts)
{
    if (!dir.exists()) {
        static_cast<void>(std::fprintf(stderr, "tree: %s: %s\n", printable(dir.path()).c_str(), std::strerror(errno)));
        counts.complete = false;
        return;
    }
    std::vector<Murn::EntryInfo> entries = dir.entries();  // in no order
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    for (const Murn::EntryInfo& entry : entries) {
        const std::string path = Murn::File::safeConcatenate(dir.path(), entry.name);
        const std::string target = targetOf(path);
        if (!target.empty()) {
            print("link", "-", LONG_MIN, depth, entry.name + " -> " + target);
            ++counts.links;
        } else if (entry.type == Murn::EntryInfo::DirectoryEntry) {
            const Murn::Dir below(path);
            long modified = LONG_MIN;
            below.lastModifiedTime(modified);
            print("directory", "-", modified, depth, entry.name + "/");
            ++counts.directories;
            listContents(below, depth + 1, counts);
        } else {
            listFile(path, depth, entry.name, counts);
        }
    }
}

// The library takes relative paths from the directory of the program; people mean the working directory.
std::string absolute(const std::string& path)
{
    char here[PATH_MAX];
    if ((!path.empty() && path.front() == '/') || ::getcwd(here, sizeof here) == nullptr)
        return path.empty() ? "/" : path;
    return path == "." ? here : Murn::File::safeConcatenate(here, path);
}

}  // namespace

int main(int argc, char** argv)
{
    const std::string argument = argc > 1 ? argv[1] : ".";
    if (argc > 2 || (argument.size() > 1 && argument.front() == '-')) {
        const bool wantsHelp = argc == 2 && (argument == "--help" || argument == "-h");
        static_cast<void>(std::fputs("usage: tree [DIRECTORY]\n", wantsHelp ? stdout : stderr));
        return wantsHelp ? 0 : 2;
    }
    const Murn::Dir top(absolute(argument));
    if (!top.exists()) {
        static_cast<void>(std::fprintf(stderr, "tree: %s: %s\n", printable(argument).c_str(), std::strerror(errno)));
        return 2;
    }
    std::printf("%s\n", printable(top.path()).c_str());
    Counts counts;
    listContents(top, 0, counts);
    std::printf("%lu directories, %lu files, %lu links, %lu others\n", counts.directories, counts.files, counts.links,
                counts.others);
    return counts.complete ? 0 : 1;
}
