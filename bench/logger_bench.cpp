// Log messages. GLib's default handler is one that does nothing, on both sides.
//
//   suppressed   Logger::Debug with its bit cleared   against one relaxed load and a branch
//   produced     Logger::Warning                      against time, localtime, strftime and g_logv
#include <glib.h>
#include <kxPAL/Logger.h>

#include <atomic>
#include <cstdarg>
#include <cstring>
#include <ctime>

#include "Ratio.h"

namespace {

long handled = 0;

void countMessage(const gchar* /*domain*/, GLogLevelFlags /*level*/, const gchar* message, gpointer /*data*/)
{
    benchmark::DoNotOptimize(message);
    ++handled;
}

void librarySuppressed(benchmark::State& state)
{
    Murn::Logger::SetMinimumLogLevel(Murn::Logger::LevelInfo);
    handled = 0;
    for (auto _ : state)
        Murn::Logger::Debug("Bench", "value %d of %s", 42, "something");
    require(handled == 0, "nothing was logged");
    Murn::Logger::SetMinimumLogLevel(Murn::Logger::LevelDebug);
}

void floorSuppressed(benchmark::State& state)
{
    std::atomic<unsigned int> mask(31);
    benchmark::DoNotOptimize(mask);
    handled = 0;
    for (auto _ : state) {
        if ((mask.load(std::memory_order_relaxed) & Murn::Logger::LevelDebug) != 0)
            ++handled;
        benchmark::ClobberMemory();
    }
    require(handled == 0, "nothing was logged");
}

void libraryProduced(benchmark::State& state)
{
    handled = 0;
    for (auto _ : state)
        Murn::Logger::Warning("Bench", "value %d of %s", 42, "something");
    require(handled == static_cast<long>(state.iterations()), "every message was handled");
}

__attribute__((format(printf, 1, 2))) void stampAndLog(const char* format, ...)
{
    char scratch[256];
    const std::time_t now = std::time(nullptr);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-y2k"
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const std::size_t length = std::strftime(scratch, 80, "[%x %X]", std::localtime(&now));
    std::memcpy(scratch + length, format, std::strlen(format) + 1);
    va_list values;
    va_start(values, format);
    g_logv("Bench", G_LOG_LEVEL_WARNING, scratch, values);
    va_end(values);
#pragma GCC diagnostic pop
}

void floorProduced(benchmark::State& state)
{
    handled = 0;
    for (auto _ : state)
        stampAndLog("value %d of %s", 42, "something");
    require(handled == static_cast<long>(state.iterations()), "every message was handled");
}

}  // namespace

int main(int argc, char** argv)
{
    g_log_set_default_handler(countMessage, nullptr);
    RatioTable table;
    table.compare("Logger: a suppressed message", librarySuppressed, floorSuppressed);
    table.compare("Logger: a message", libraryProduced, floorProduced);
    return table.run(argc, argv);
}
