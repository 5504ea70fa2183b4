// A folder of the test's own.
#ifndef KXPAL_TESTS_TEMPORARY_FOLDER_H
#define KXPAL_TESTS_TEMPORARY_FOLDER_H

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

/// Makes an empty folder, and takes it away with all that is in it. The working directory, which belongs to the whole
/// process, is what it was before once the object is gone.
class TemporaryFolder {
public:
    TemporaryFolder() : _before(std::filesystem::current_path())
    {
        const char* const parent = std::getenv("TMPDIR");
        std::string path = std::string(parent != nullptr && *parent == '/' ? parent : "/tmp") + "/kxpal-test-XXXXXX";
        if (::mkdtemp(path.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        _path = std::filesystem::canonical(path);
        ::chmod(_path.c_str(), S_IRWXU | S_IRGRP | S_IXGRP | S_IROTH | S_IXOTH);
    }

    ~TemporaryFolder()
    {
        std::error_code ignored;
        std::filesystem::current_path(_before, ignored);
        std::filesystem::remove_all(_path, ignored);  // follows no link
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    /// Absolute, without links in it and without a slash at its end.
    const std::string& path() const { return _path; }
    /// @param name  of something in the folder
    std::string path(const std::string& name) const { return _path + "/" + name; }
    /// Whether the path, absolute and without "..", lies in the folder.
    bool holds(const std::string& path) const
    {
        return path.compare(0, _path.size() + 1, _path + "/") == 0 && path.find("/../") == std::string::npos;
    }

    /// Makes a file with these bytes, or gives them to the one that is there.
    /// @return its path
    std::string makeFile(const std::string& name, const std::string& bytes = std::string()) const
    {
        std::ofstream(path(name), std::ios::binary | std::ios::trunc) << bytes;
        return path(name);
    }

    /// Makes a directory.
    /// @return its path
    std::string makeDirectory(const std::string& name) const
    {
        std::filesystem::create_directory(path(name));
        return path(name);
    }

    /// The bytes of a file on disk.
    std::string bytesOf(const std::string& name) const
    {
        // By system calls: streams open files with functions that tests let fail.
        const int file = ::open(path(name).c_str(), O_RDONLY | O_CLOEXEC);
        std::string bytes;
        char part[4096];
        ssize_t count = 0;
        while ((count = ::read(file, part, sizeof part)) > 0)
            bytes.append(part, static_cast<std::size_t>(count));
        ::close(file);
        return bytes;
    }

private:
    std::string _path;
    std::string _before;
};

#endif
