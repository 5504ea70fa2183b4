// Benchmarks of the library against the floor, the same work done with bare GLib and system calls.
//
//     int main(int argc, char** argv)
//     {
//         RatioTable table;
//         table.compare("lock and unlock", libraryLocks, floorLocks);
//         return table.run(argc, argv);
//     }
//
// Both sides of a subject are measured in one run, several times in turns, so that whatever else the machine does
// hits both. The program prints one line a subject: nanoseconds for the library, for the floor, and the ratio of the
// two, each time the median. All flags of Google Benchmark work, --benchmark_min_time=0.05 for a quick run among them.
#ifndef KXPAL_BENCH_RATIO_H
#define KXPAL_BENCH_RATIO_H

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

/// Ends the program when a benchmark did not do what it was to measure.
inline void require(bool holds, const char* what)
{
    if (holds)
        return;
    static_cast<void>(std::fprintf(stderr, "This benchmark measured nothing: %s does not hold.\n", what));
    std::_Exit(1);
}

class RatioTable {
public:
    using Function = void (*)(benchmark::State&);

    /// Which clock counts: the processor time of the measuring thread, which other programs disturb little, or the
    /// time that passes, where several threads work together.
    enum class Clock { Processor, Wall };

    /// Adds a subject. One iteration of either function is the unit that the table counts.
    void compare(const std::string& subject, Function library, Function floor, Clock clock = Clock::Processor)
    {
        _subjects.push_back(subject);
        add(subject + librarySide, library, clock);
        add(subject + floorSide, floor, clock);
    }

    /// Measures all subjects, or those that --benchmark_filter names, and prints the table.
    /// @return the program's status
    int run(int argc, char** argv)
    {
        // The program's own arguments come last and win.
        std::string repetitions = "--benchmark_repetitions=5";
        std::string interleaving = "--benchmark_enable_random_interleaving=true";
        std::vector<char*> arguments = {argv[0], repetitions.data(), interleaving.data()};
        arguments.insert(arguments.end(), argv + 1, argv + argc);
        int count = static_cast<int>(arguments.size());
        benchmark::Initialize(&count, arguments.data());
        if (benchmark::ReportUnrecognizedArguments(count, arguments.data()))
            return 2;

        Collector collector;
        benchmark::RunSpecifiedBenchmarks(&collector);
        std::printf("%-58s %12s %12s %7s\n", "subject", "library ns", "floor ns", "ratio");
        for (const std::string& subject : _subjects) {
            const double library = collector.median(subject + librarySide);
            const double floor = collector.median(subject + floorSide);
            if (library > 0 && floor > 0)
                std::printf("%-58s %12.1f %12.1f %7.2f\n", subject.c_str(), library, floor, library / floor);
        }
        return 0;
    }

private:
    static constexpr const char* librarySide = "/library";
    static constexpr const char* floorSide = "/floor";

    static void add(const std::string& name, Function function, Clock clock)
    {
        benchmark::internal::Benchmark* const added = benchmark::RegisterBenchmark(name.c_str(), function);
        if (clock == Clock::Wall)
            added->UseRealTime();
    }

    /// Keeps the figures instead of printing them.
    class Collector : public benchmark::BenchmarkReporter {
    public:
        bool ReportContext(const Context&) override { return true; }

        void ReportRuns(const std::vector<Run>& runs) override
        {
            for (const Run& run : runs) {
                if (run.run_type != Run::RT_Iteration)
                    continue;
                const bool isWall = !run.run_name.time_type.empty();
                _times[run.run_name.function_name].push_back(isWall ? run.GetAdjustedRealTime()
                                                                    : run.GetAdjustedCPUTime());
            }
        }

        /// 0 when there is none.
        double median(const std::string& name)
        {
            std::vector<double>& times = _times[name];
            if (times.empty())
                return 0;
            std::sort(times.begin(), times.end());
            return times[times.size() / 2];
        }

    private:
        std::map<std::string, std::vector<double>> _times;
    };

    std::vector<std::string> _subjects;
};

#endif
