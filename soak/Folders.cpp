// Activity: folders are made, listed, moved and removed.
#include "Folders.h"

#include <kxPAL/Dir.h>
#include <kxPAL/File.h>

#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using Murn::Dir;
using Murn::EntryInfo;
using Entries = std::set<std::pair<std::string, bool>>;  // the name, and whether it is a folder

Entries entriesOf(const std::string& path)
{
    Entries entries;
    for (const EntryInfo& entry : Dir(path).entries())
        entries.emplace(entry.name, entry.type == EntryInfo::DirectoryEntry);
    return entries;
}

// Fills a folder with files and folders, some of which are filled in turn. Returns how many folders it made. They are
// made one by one: Dir::create() would also change the modes of those above.
// NOLINTNEXTLINE(misc-no-recursion): the depth is given.
unsigned int fill(const std::string& path, Round& round, Dice& dice, unsigned int depth)
{
    Entries made;
    unsigned int folders = 0;
    for (unsigned int number = dice.below(6); number > 0; --number) {
        const std::string name = "entry " + std::to_string(number);
        const bool isFolder = depth > 0 && dice.oneIn(2);
        if (isFolder) {
            Dir folder(path);
            round.ledger().check(folder.createDir(name) && folder.exists(), "a folder is made");
            folders += 1 + fill(folder.path(), round, dice, depth - 1);
        } else {
            round.ledger().check(Murn::File(path, name).create(), "a file is made in a folder");
        }
        made.emplace(name, isFolder);
    }
    round.ledger().check(entriesOf(path) == made, "a folder lists what was made in it");
    return folders;
}

}  // namespace

void Folders::live(Round& round, Dice& dice)
{
    constexpr unsigned int depth = 4;
    for (; !round.isOver(); round.rest()) {
        Dir tree(_folder.path(""));
        round.ledger().check(tree.createDir("tree"), "the root of a tree is made");
        round.ledger().add(Figure::folders, 1 + fill(tree.path(), round, dice, depth));
        const std::string other = _folder.path("moved tree");
        round.ledger().check(tree.move(other) && !tree.exists(), "a tree is moved");
        Dir moved(other);
        round.ledger().check(moved.exists() && moved.remove() && !Dir(other).exists(), "a tree is removed");
    }
}
