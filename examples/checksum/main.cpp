// Prints the SHA-256 checksums of files, in the words of sha256sum: a pool of threads reads the files, and the main
// thread prints.
#include <kxPAL/Application.h>
#include <kxPAL/ThreadPool.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "HashUnit.h"
#include "Options.h"
#include "ProgressLine.h"
#include "ResultPrinter.h"

namespace {

std::string progressText(std::size_t arrived, std::size_t files, std::uint64_t bytes)
{
    char text[100];
    std::snprintf(text, sizeof text, "%zu of %zu files, %" PRIu64 " MB", arrived, files, bytes / 1'000'000);
    return text;
}

// Returns whether all files were hashed.
bool hashFiles(const Options& options)
{
    const std::vector<std::string>& files = options.files;
    std::atomic<std::uint64_t> bytesRead{0};
    std::size_t arrived = 0;
    ProgressLine progress([&] { return progressText(arrived, files.size(), bytesRead); });
    ResultPrinter printer(files, [&] { progress.clear(); });

    // Declared last, so that the workers have ended before what they use is gone.
    Murn::ThreadPool pool(std::min(options.jobs, static_cast<int>(files.size())));
    for (std::size_t number = 0; number < files.size(); ++number)
        pool.run(new HashUnit(number, files[number], printer, bytesRead));
    while (!printer.isDone()) {
        Murn::Application::ProcessEvents(true);
        arrived = printer.arrived();
    }
    return !printer.anyFailed();
}

// Returns whether everything that was printed has reached its place.
bool finishOutput()
{
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0)
        return true;
    std::fprintf(stderr, "checksum: standard output: %s\n", std::strerror(errno));
    return false;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (const std::optional<int> status = readOptions(argc, argv, options))
        return *status;

    Murn::Application application(argc, argv);
    const bool allHashed = hashFiles(options);
    return finishOutput() && allHashed ? 0 : 1;
}
