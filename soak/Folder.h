// A folder of the run's own.
#ifndef SOAK_FOLDER_H
#define SOAK_FOLDER_H

#include <string>

/// A temporary folder, which goes with all that is in it.
class Folder {
public:
    /// Throws std::runtime_error when there can be none.
    Folder();
    ~Folder();

    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string path(const std::string& name) const { return _path + "/" + name; }

private:
    std::string _path;
};

#endif
