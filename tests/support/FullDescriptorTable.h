// A process that may open nothing more.
#ifndef KXPAL_TESTS_FULL_DESCRIPTOR_TABLE_H
#define KXPAL_TESTS_FULL_DESCRIPTOR_TABLE_H

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <stdexcept>
#include <vector>

/// Leaves this process without a free descriptor while the object lives.
class FullDescriptorTable {
public:
    FullDescriptorTable()
    {
        if (::getrlimit(RLIMIT_NOFILE, &_before) != 0)
            throw std::runtime_error("the limit of descriptors is unknown");
        rlimit lower = _before;
        lower.rlim_cur = 128;
        ::setrlimit(RLIMIT_NOFILE, &lower);
        for (int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC); fd != -1; fd = ::fcntl(fd, F_DUPFD_CLOEXEC, 0))
            _filling.push_back(fd);
    }

    ~FullDescriptorTable()
    {
        for (const int fd : _filling)
            ::close(fd);
        ::setrlimit(RLIMIT_NOFILE, &_before);
    }

    FullDescriptorTable(const FullDescriptorTable&) = delete;
    FullDescriptorTable& operator=(const FullDescriptorTable&) = delete;

private:
    rlimit _before{};
    std::vector<int> _filling;
};

#endif
