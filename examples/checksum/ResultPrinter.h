// Prints the checksums in the order of the command line.
#ifndef CHECKSUM_RESULT_PRINTER_H
#define CHECKSUM_RESULT_PRINTER_H

#include <kxPAL/Object.h>

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "FileHash.h"

/// Gets a HashEvent for each file, in any order, and prints the results in the order of the files: checksums on
/// standard output, in the words of sha256sum, and failures on standard error.
class ResultPrinter : public Murn::Object {
public:
    /// @param files        outlive this object
    /// @param beforePrint  called before something is printed
    ResultPrinter(const std::vector<std::string>& files, std::function<void()> beforePrint);

    void event(Murn::Event* event) override;

    bool isDone() const { return _printed == _files.size(); }
    /// How many files have arrived, printed or not.
    std::size_t arrived() const { return _printed + _waiting.size(); }
    bool anyFailed() const { return _anyFailed; }

private:
    void print(const std::string& name, const FileHash& hash);

    const std::vector<std::string>& _files;
    std::function<void()> _beforePrint;
    std::map<std::size_t, FileHash> _waiting;  // for a file before them
    std::size_t _printed;
    bool _anyFailed;
};

#endif
