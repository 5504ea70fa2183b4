// Fatal checks in a host whose other threads are all at work: nothing that these use may go before the process does.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "Sanitizers.h"
#include "ThreadGroup.h"

namespace {

constexpr bool sanitized = KXPAL_TESTS_ADDRESS_SANITIZER == 1 || KXPAL_TESTS_THREAD_SANITIZER == 1;
constexpr int childrenEach = sanitized ? 10 : 50;
constexpr int parents = 4;

struct Outcome {
    int status = 0;  // as from waitpid()
    std::string output;
};

std::string contentsOf(int file)
{
    std::string all;
    char part[4096];
    for (ssize_t count = 0; (count = ::pread(file, part, sizeof part, static_cast<off_t>(all.size()))) > 0;)
        all.append(part, static_cast<std::size_t>(count));
    return all;
}

// Runs the host to its end.
Outcome runHost(int seed)
{
    std::string program = FATAL_EXIT_HOST;
    std::string argument = std::to_string(seed);
    char* arguments[] = {program.data(), argument.data(), nullptr};
    const int file = ::memfd_create("output", MFD_CLOEXEC);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, file, STDOUT_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, file, STDERR_FILENO);

    Outcome outcome;
    pid_t child = -1;
    EXPECT_EQ(::posix_spawn(&child, program.c_str(), &actions, nullptr, arguments, environ), 0);
    EXPECT_EQ(::waitpid(child, &outcome.status, 0), child);
    ::posix_spawn_file_actions_destroy(&actions);
    outcome.output = contentsOf(file);
    ::close(file);
    return outcome;
}

TEST(FatalExitStress, endsTheProcessWithItsStatusWhateverTheOtherThreadsDo)
{
    ::setenv("LSAN_OPTIONS", "detect_leaks=0", 1);  // nothing is released on such an end
    const ThreadGroup hosts(parents, [](int parent) {
        for (int child = 0; child < childrenEach; ++child) {
            const int seed = parent * childrenEach + child;
            const Outcome outcome = runHost(seed);
            ASSERT_TRUE(WIFEXITED(outcome.status)) << "seed " << seed << ", signal " << WTERMSIG(outcome.status) << "\n"
                                                   << outcome.output;
            ASSERT_EQ(WEXITSTATUS(outcome.status), 255) << "seed " << seed << "\n" << outcome.output;
            ASSERT_NE(outcome.output.find("FATAL ERROR CurrentThread() == nullptr File: src/core/Application.cpp"),
                      std::string::npos)
                << "seed " << seed << "\n"
                << outcome.output;
        }
    });
}

}  // namespace
