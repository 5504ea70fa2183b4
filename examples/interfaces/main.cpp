// Lists the network interfaces of this machine, as a table or as JSON.
#include <kxPAL/NetworkInterface.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "Listing.h"
#include "Options.h"

namespace {

/// While it lives, what the library prints goes to standard error: standard output is to hold nothing but the lists.
class DiagnosticsAside {
public:
    DiagnosticsAside() : _output(::dup(STDOUT_FILENO))
    {
        if (_output != -1)
            ::dup2(STDERR_FILENO, STDOUT_FILENO);
    }

    ~DiagnosticsAside()
    {
        if (_output == -1)
            return;
        std::fflush(stdout);
        ::dup2(_output, STDOUT_FILENO);
        ::close(_output);
    }

    DiagnosticsAside(const DiagnosticsAside&) = delete;
    DiagnosticsAside& operator=(const DiagnosticsAside&) = delete;

private:
    int _output;
};

Listing listInterfaces()
{
    const DiagnosticsAside diagnosticsAside;
    const Murn::NetworkInterface enumeration;  // asks the system, once for the whole process
    Listing listing;
    Murn::NetworkInterface::getInterfaces(listing.addressed);
    Murn::NetworkInterface::getAllPhysicalInterfaces(listing.physical);
    return listing;
}

}  // namespace

int main(int argc, char** argv)
{
    Options options;
    if (const std::optional<int> status = readOptions(argc, argv, options))
        return *status;

    const Listing listing = listInterfaces();
    const std::string text = options.json ? asJson(listing) : asTable(listing);
    if (std::fputs(text.c_str(), stdout) == EOF || std::fflush(stdout) != 0) {
        std::fprintf(stderr, "interfaces: cannot print: %s\n", std::strerror(errno));
        return 1;
    }
    return 0;
}
