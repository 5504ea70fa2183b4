// Prints the checksums in the order of the command line.
#include "ResultPrinter.h"

#include <cstdio>
#include <cstring>
#include <utility>

#include "HashUnit.h"

namespace {

// A name as sha256sum writes it: on one line whatever is in it.
std::string escaped(const std::string& name)
{
    std::string result;
    for (const char character : name) {
        switch (character) {
            case '\\':
                result += "\\\\";
                break;
            case '\n':
                result += "\\n";
                break;
            case '\r':
                result += "\\r";
                break;
            default:
                result += character;
        }
    }
    return result;
}

}  // namespace

ResultPrinter::ResultPrinter(const std::vector<std::string>& files, std::function<void()> beforePrint)
    : _files(files), _beforePrint(std::move(beforePrint)), _printed(0), _anyFailed(false)
{
}

void ResultPrinter::event(Murn::Event* event)
{
    if (event->_type != HashEvent::Type) {
        Object::event(event);
        return;
    }
    auto* const arrival = static_cast<HashEvent*>(event);
    _waiting[arrival->_number] = std::move(arrival->_hash);
    for (auto next = _waiting.find(_printed); next != _waiting.end(); next = _waiting.find(_printed)) {
        print(_files[_printed], next->second);
        _waiting.erase(next);
        ++_printed;
    }
}

void ResultPrinter::print(const std::string& name, const FileHash& hash)
{
    _beforePrint();
    const std::string shown = escaped(name);
    if (hash.error != 0) {
        std::fprintf(stderr, "checksum: %s: %s\n", shown.empty() ? "''" : shown.c_str(), std::strerror(hash.error));
        _anyFailed = true;
        return;
    }
    // A backslash in front of the line says that the name is escaped.
    std::printf("%s%s  %s\n", shown == name ? "" : "\\", hash.digits.c_str(), shown.c_str());
}
