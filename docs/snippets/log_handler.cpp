// A host takes the library's messages into a log of its own.
#include <kxPAL/Application.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>
#include <kxPAL/Mutex.h>
#include <kxPAL/MutexLocker.h>

#include <string>

namespace {

// [handler]
class HostLog final : public Murn::LogHandler {
public:
    // The domain and the levels matter to InstallHandler() only.
    HostLog() : LogHandler("PAL", Murn::Logger::LevelCritical | Murn::Logger::LevelWarning) {}

    void HandleLog(const char* domain, Murn::Logger::LogLevel level, const char* message) override
    {
        const Murn::MutexLocker locker(&_mutex);  // any thread logs, and several may do so at once
        _text += domain != nullptr ? domain : "(none)";
        _text += level <= Murn::Logger::LevelWarning ? " problem: " : ": ";
        _text += message;  // "[date time-milliseconds]" and the text
        _text += '\n';
    }

    std::string text()
    {
        const Murn::MutexLocker locker(&_mutex);
        return _text;
    }

private:
    Murn::Mutex _mutex;
    std::string _text;  // guarded by _mutex
};
// [end]

}  // namespace

int main()
{
    // [install]
    HostLog log;
    Murn::Logger::InstallHandler(&log);          // this domain's messages of these levels
    Murn::Application::MainApplicationThread();  // warns: there is no application
    Murn::Logger::UninstallHandler(&log);        // before the handler goes
    // [end]
    return log.text().find("PAL problem: [") == 0 ? 0 : 1;
}
