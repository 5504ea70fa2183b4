// Which messages are produced at all.
#include <kxPAL/Logger.h>

int main()
{
    // [mask]
    Murn::Logger::SetMinimumLogLevel(Murn::Logger::LevelWarning);            // errors, criticals and warnings
    Murn::Logger::__logLevelMask |= Murn::Logger::LevelDebug;                // and debug messages besides
    Murn::Logger::__logLevelMask &= ~unsigned(Murn::Logger::LevelCritical);  // but no criticals
    // [end]

    // [log]
    Murn::Logger::Warning("MyHost", "%d of %d connections failed", 3, 10);
    Murn::Logger::Info("MyHost", "never formatted, no clock read");
    // [end]
    return Murn::Logger::__logLevelMask == 37 ? 0 : 1;
}
