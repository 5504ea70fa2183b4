// A folder of the run's own.
#include "Folder.h"

#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <system_error>

Folder::Folder() : _path((std::filesystem::temp_directory_path() / "soak.XXXXXX").string())
{
    if (::mkdtemp(_path.data()) == nullptr)
        throw std::runtime_error("there can be no folder like " + _path);
}

Folder::~Folder()
{
    std::error_code ignored;  // there is nobody to tell any more
    std::filesystem::remove_all(_path, ignored);
}
