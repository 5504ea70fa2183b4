// A file that is written, patched and read; a directory that is listed and removed.
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

int main()
{
    char folder[] = "/tmp/kxpal-files-XXXXXX";
    if (::mkdtemp(folder) == nullptr)
        return 1;

    // [write]
    Murn::File file(folder, "notes.txt");
    if (!file.create() || !file.open(Murn::File::ReadWriteBinary))
        return 1;
    file.write("one three", 9, -1);  // -1: at the end
    bool written = file.flush();     // before this, size() may still be 0
    // [end]

    // [patch]
    std::int64_t inserted = file.insert(4, "two ", 4);  // one two three
    bool erased = file.erase(0, 4) && file.flush();     // two three
    // [end]

    // [read]
    std::string text(static_cast<std::size_t>(file.size()), '\0');
    std::int64_t count = file.read(&text[0], static_cast<long>(text.size()), 0);
    file.close();
    // [end]

    // [list]
    Murn::Dir dir(folder);
    for (const Murn::EntryInfo& entry : dir.entries())
        std::printf("%s%s\n", entry.name.c_str(), entry.type == Murn::EntryInfo::DirectoryEntry ? "/" : "");
    // [end]

    // [remove]
    bool removed = dir.remove();  // everything in it, and the directory
    // [end]

    const bool holds = written && inserted == 4 && erased && text == "two three" && count == 9 && removed;
    return holds ? 0 : 1;
}
