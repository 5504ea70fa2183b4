// Fuzz target: plug-ins that are none. What begins as a shared object is the platform's loader's business, and it
// trusts such files; everything else is refused with one warning.
#include <glib.h>
#include <kxPAL/Plugin.h>

#include <fstream>
#include <vector>

#include "Input.h"
#include "TemporaryFolder.h"

namespace {

/// What is logged while it lives.
class Messages {
public:
    Messages() : _previous(g_log_set_default_handler(take, this)) {}
    ~Messages() { g_log_set_default_handler(_previous, nullptr); }
    Messages(const Messages&) = delete;
    Messages& operator=(const Messages&) = delete;

    std::vector<std::string> texts;

private:
    static void take(const gchar* domain, GLogLevelFlags level, const gchar* message, gpointer self)
    {
        FUZZ_CHECK(std::string(domain) == "PAL" && level == G_LOG_LEVEL_WARNING);
        static_cast<Messages*>(self)->texts.emplace_back(message);
    }

    GLogFunc _previous;
};

void checkRefused(const std::string& path)
{
    const Messages messages;
    FUZZ_CHECK(Murn::Plugin::Load(path) == nullptr);
    FUZZ_CHECK(messages.texts.size() == 1);
    const std::string expected = "]Shared library \"" + std::string(path.c_str()) + "\" failed to open with error: ";
    FUZZ_CHECK(messages.texts[0].find(expected) != std::string::npos);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const TemporaryFolder folder;
    Input input(data, size);
    const std::string name = input.text(40);
    std::string bytes = input.rest();
    if (bytes.starts_with('\x7f'))
        bytes[0] = '\0';
    const std::string path = folder.path("plugin.so");
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    checkRefused(path);
    // A zero byte must not hide the rest of a path, so this names no file at all, whatever stands before it.
    checkRefused(path + '\0' + name);
    checkRefused('\0' + name);
    checkRefused(folder.path("no such/") + name);
    return 0;
}
