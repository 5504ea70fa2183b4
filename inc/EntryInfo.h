// One entry of a directory.
#ifndef MURN_ENTRY_INFO_H
#define MURN_ENTRY_INFO_H

#include <string>

#include "Export.h"

namespace Murn {

/// One entry of the list that Dir::entries() returns. A plain record.
struct MURN_API EntryInfo {
    enum EntryType : int {
        DirectoryEntry = 0,  ///< A directory, or a link to one.
        FileEntry = 1        ///< Everything else: files, links to them or to nothing, devices, sockets and so on.
    };

    std::string name;  ///< The bare name, without a directory.
    EntryType type;
};

}  // namespace Murn

#endif
