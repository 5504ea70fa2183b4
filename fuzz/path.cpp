// Fuzz target: what files and directories do with the text of paths, against rules written out letter by letter.
#include <kxPAL/Application.h>
#include <kxPAL/Dir.h>
#include <kxPAL/File.h>

#include <optional>
#include <stdexcept>
#include <vector>

#include "Input.h"

namespace {

using Murn::Dir;
using Murn::File;

bool isSeparator(char letter)
{
    return letter == '/' || letter == '\\';
}

/// A path cut at its last separator.
struct Cut {
    std::string before;
    std::string name;
    bool hasSeparator = false;

    explicit Cut(const std::string& path) : name(path)
    {
        for (std::size_t i = path.size(); i > 0 && !hasSeparator; --i) {
            if (!isSeparator(path[i - 1]))
                continue;
            hasSeparator = true;
            before = path.substr(0, i - 1);
            name = path.substr(i);
        }
    }
};

std::string extensionOf(const std::string& name)
{
    std::string extension;
    bool hasDot = false;
    for (const char letter : name) {
        if (letter == '.') {
            hasDot = true;
            extension.clear();
        } else if (hasDot) {
            extension += letter;
        }
    }
    return extension;
}

std::string parentOf(const std::string& path)
{
    const Cut cut(path);
    if (!cut.hasSeparator)
        return path;
    return cut.before.empty() ? "/" : cut.before;
}

std::string joined(const std::string& a, const std::string& b)
{
    if (a.empty() || b.empty())
        return a + b;
    std::string result = a;
    if (a[a.size() - 1] == '/' && b[0] == '/')
        result.pop_back();
    if (a[a.size() - 1] != '/' && b[0] != '/')
        result += '/';
    return result + b;
}

// Without a first argument there is no program's directory: nothing, for a failure.
std::optional<std::string> resolved(const std::vector<std::string>& arguments, std::string path, bool keepsRoot)
{
    if (!path.empty() && path[path.size() - 1] == '/' && !(keepsRoot && path.size() == 1))
        path.erase(path.size() - 1);
    if (!path.empty() && path[0] == '/')
        return path;
    if (arguments.empty())
        return std::nullopt;
    const Cut program(arguments[0]);
    const std::string directory = program.hasSeparator ? program.before : arguments[0];
    return path.empty() ? directory : directory + "/" + path;
}

void checkFile(const File& file, const std::string& path)
{
    const Cut cut(path);
    FUZZ_CHECK(file.path() + file.fileName() == path);
    FUZZ_CHECK(file.fileName() == cut.name);
    FUZZ_CHECK(file.path().empty() == !cut.hasSeparator);
    FUZZ_CHECK(file.extension() == extensionOf(cut.name));
    FUZZ_CHECK(file.getParentPath() == parentOf(path));
}

void checkDir(const Dir& dir, const std::string& path)
{
    FUZZ_CHECK(dir.path() == path);
    FUZZ_CHECK(dir.name() == Cut(path).name);
    FUZZ_CHECK(dir.getParentPath() == parentOf(path));
    FUZZ_CHECK(Dir(dir).path() == path);
}

template <typename Function>
bool isOutOfRange(Function function)
{
    try {
        function();
    } catch (const std::out_of_range&) {
        return true;
    }
    return false;
}

void checkPiece(const std::vector<std::string>& arguments, const std::string& piece)
{
    File file(piece);
    checkFile(file, piece);
    const auto filePath = resolved(arguments, piece, false);
    FUZZ_CHECK(isOutOfRange([&] { file.setPath(piece); }) == !filePath.has_value());
    checkFile(file, filePath.value_or(piece));

    const auto dirPath = resolved(arguments, piece, true);
    if (dirPath)
        checkDir(Dir(piece), *dirPath);
    else
        FUZZ_CHECK(isOutOfRange([&] { const Dir dir(piece); }));
}

void checkPair(const std::vector<std::string>& arguments, const std::string& a, const std::string& b)
{
    const std::string both = joined(a, b);
    FUZZ_CHECK(File::safeConcatenate(a, b) == both);
    checkFile(File(a, b), both);
    const auto dirPath = resolved(arguments, both, true);
    if (dirPath)
        checkDir(Dir(a, b), *dirPath);
    else
        FUZZ_CHECK(isOutOfRange([&] { const Dir dir(a, b); }));
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    std::vector<std::string> arguments;
    if (input.byte() != 0xff)
        arguments.emplace_back(input.text(40).c_str());  // up to the first zero byte, as arguments are
    char* argv[] = {arguments.empty() ? nullptr : arguments[0].data(), nullptr};
    const Murn::Application application(static_cast<int>(arguments.size()), argv);
    FUZZ_CHECK(Murn::Application::Arguments() == arguments);

    const std::string a = input.text(80);
    const std::string b = input.rest();
    checkPiece(arguments, a);
    checkPiece(arguments, b);
    checkPair(arguments, a, b);
    return 0;
}
