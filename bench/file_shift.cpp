// Insertions at the head of a large file, against the same moves of blocks with bare stdio.
#include <getopt.h>
#include <kxPAL/File.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "FileShift.h"

namespace {

constexpr char usage[] =
    "usage: file_shift [OPTION...]\n"
    "\n"
    "Puts ten bytes at the head of a file, again and again: with File::insert(), with bare stdio that opens the path\n"
    "for each block as the library does, and with bare stdio alone, by turns. Prints how long one insertion takes.\n"
    "\n"
    "  --inserts N    how many insertions of each kind (5; 1000 take minutes)\n"
    "  --size MIB     how large the file is at first (64)\n"
    "  --folder PATH  where the file is made (/tmp)\n";

constexpr char data[] = "0123456789";
constexpr long length = 10;

struct Options {
    long inserts = 5;
    long size = 64;
    std::string folder = "/tmp";
};

[[noreturn]] void explain(int status)
{
    static_cast<void>(std::fputs(usage, status == 0 ? stdout : stderr));
    std::exit(status);
}

long number(const char* text, long most)
{
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (end == text || *end != '\0' || value < 1 || value > most)
        explain(2);
    return value;
}

Options readOptions(int argc, char** argv)
{
    static const option known[] = {{"inserts", required_argument, nullptr, 'i'},
                                   {"size", required_argument, nullptr, 's'},
                                   {"folder", required_argument, nullptr, 'f'},
                                   {"help", no_argument, nullptr, 'h'},
                                   {nullptr, 0, nullptr, 0}};
    Options options;
    for (int found = 0; (found = ::getopt_long(argc, argv, "h", known, nullptr)) != -1;) {
        switch (found) {
            case 'i':
                options.inserts = number(optarg, 1000000);
                break;
            case 's':
                options.size = number(optarg, 2000);
                break;
            case 'f':
                options.folder = optarg;
                break;
            default:
                explain(found == 'h' ? 0 : 2);
        }
    }
    return options;
}

[[noreturn]] void giveUp(const std::string& path, const char* what)
{
    std::perror(what);
    ::unlink(path.c_str());
    std::exit(1);
}

void fill(const std::string& path, int fd, long size)
{
    const std::vector<char> block(1 << 20, 'x');
    for (long written = 0; written < size; written += static_cast<long>(block.size())) {
        if (::write(fd, block.data(), block.size()) != static_cast<ssize_t>(block.size()))
            giveUp(path, "file_shift: cannot fill the file");
    }
}

double secondsOf(const std::function<bool()>& insertion, const std::string& path)
{
    const auto begin = std::chrono::steady_clock::now();
    if (!insertion())
        giveUp(path, "file_shift: cannot insert");
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void measure(const Options& options, const std::string& path)
{
    Murn::File file(path);
    std::FILE* const stream = std::fopen(path.c_str(), "rb+");
    if (stream == nullptr || !file.open(Murn::File::ReadWriteBinary))
        giveUp(path, "file_shift: cannot open the file");

    long size = options.size << 20;
    std::vector<double> library;
    std::vector<double> opening;
    std::vector<double> bare;
    for (long done = 0; done < options.inserts; ++done, size += 3 * length) {
        library.push_back(secondsOf([&] { return file.insert(0, data, length) == length && file.flush(); }, path));
        opening.push_back(
            secondsOf([&] { return insertByHand(stream, size + length, 0, data, length, path.c_str()); }, path));
        bare.push_back(secondsOf([&] { return insertByHand(stream, size + 2 * length, 0, data, length); }, path));
    }
    if (file.size() != size)
        giveUp(path, "file_shift: the file has another size than it should");
    std::fclose(stream);

    const double floor = median(bare);
    std::printf("%ld insertions of each kind into %ld MiB; one of them (median):\n", options.inserts, options.size);
    std::printf("%-40s %9.2f ms\n", "bare stdio", floor * 1e3);
    std::printf("%-40s %9.2f ms   %5.2f\n", "bare stdio, opening for each block", median(opening) * 1e3,
                median(opening) / floor);
    std::printf("%-40s %9.2f ms   %5.2f\n", "File::insert", median(library) * 1e3, median(library) / floor);
}

}  // namespace

int main(int argc, char** argv)
{
    const Options options = readOptions(argc, argv);
    std::string path = options.folder + "/kxpal-bench-XXXXXX";
    const int fd = ::mkstemp(path.data());
    if (fd == -1) {
        std::perror("file_shift: cannot make a file");
        return 1;
    }
    fill(path, fd, options.size << 20);
    ::close(fd);
    measure(options, path);
    ::unlink(path.c_str());
    return 0;
}
