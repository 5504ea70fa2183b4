// Tests of calls that fail, from which the documentation's table of failing calls is made.
//
// Each says which call of the library fails, with which errors, and what the library does then, in the words of the
// table; its body tests just that. There is one test for each error:
//
//     FAULT_TEST(SocketFaultTest, tellsThatNothingWasSent, send, "`Socket::send`", "returns -1", EPIPE, ECONNRESET)
//     {
//         EXPECT_EQ(_socket.send("x", 1), -1);
//         EXPECT_EQ(errno, error());
//     }
//
// While the body runs, each call of the function fails with the error; a replacement within the body comes before that.
// scripts/update-faults makes the table.
#ifndef KXPAL_TESTS_FAULT_H
#define KXPAL_TESTS_FAULT_H

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "Interpose.h"

namespace interpose {

/// What a function returns that fails: no object, nothing of what was asked, or -1.
template <typename Result>
Result failure()
{
    if constexpr (std::is_pointer_v<Result>)
        return nullptr;
    else if constexpr (std::is_unsigned_v<Result>)
        return 0;
    else
        return static_cast<Result>(-1);
}

/// A replacement that fails in the function's own way and leaves this error number.
template <typename Result, typename... Arguments>
auto failing(const Slot<Result(Arguments...)>&, int error)
{
    return [error](auto*, Arguments...) -> Result {
        errno = error;
        return failure<Result>();
    };
}

}  // namespace interpose

namespace fault {

/// Adds one test for each error, whose text for the table goes along as its parameter. Returns true.
template <typename Fixture, typename Test>
bool add(const char* suite, const std::string& name, const std::string& row, const std::string& errorNames,
         const std::vector<int>& errors, const char* file, int line)
{
    std::istringstream names(errorNames);
    for (const int error : errors) {
        std::string errorName = "real";
        if (error != 0)
            std::getline(names >> std::ws, errorName, ',');
        ::testing::RegisterTest(suite, (name + "/" + errorName).c_str(), nullptr, row.c_str(), file, line,
                                [error]() -> Fixture* { return new Test(error); });
    }
    return true;
}

}  // namespace fault

/// @param where    the operations of the library that make the call
/// @param outcome  what they do when it fails
#define FAULT_TEST(fixture, name, call, where, outcome, ...)                                           \
    FAULT_TEST_CLASS(fixture, name, {                                                                  \
        const Interposed failing(interpose::call, interpose::failing(interpose::call, this->error())); \
        whenItFails();                                                                                 \
    })                                                                                                 \
    FAULT_TEST_ADD(fixture, name, #call, #__VA_ARGS__, where, outcome, __VA_ARGS__)                    \
    void fixture##_##name::whenItFails()

/// The same for a call that fails only sometimes: the body makes it fail with the error.
#define FAULT_TEST_BY_HAND(fixture, name, call, where, outcome, ...)                \
    FAULT_TEST_CLASS(fixture, name, { whenItFails(); })                             \
    FAULT_TEST_ADD(fixture, name, #call, #__VA_ARGS__, where, outcome, __VA_ARGS__) \
    void fixture##_##name::whenItFails()

/// The same for a call that fails for a reason in words, which the body brings about.
#define FAULT_TEST_FOR_REAL(fixture, name, call, where, outcome, reason) \
    FAULT_TEST_CLASS(fixture, name, { whenItFails(); })                  \
    FAULT_TEST_ADD(fixture, name, #call, reason, where, outcome, 0)      \
    void fixture##_##name::whenItFails()

#define FAULT_TEST_CLASS(fixture, name, body)                   \
    class fixture##_##name : public fixture {                   \
    public:                                                     \
        explicit fixture##_##name(int error) : _error(error) {} \
                                                                \
    private:                                                    \
        [[maybe_unused]] int error() const { return _error; }   \
        void TestBody() override body void whenItFails();       \
                                                                \
        const int _error;                                       \
    };

#define FAULT_TEST_ADD(fixture, name, call, errorNames, where, outcome, ...)                                         \
    [[maybe_unused]] static const bool fixture##_##name##_added =                                                    \
        fault::add<fixture, fixture##_##name>(#fixture, #name, "`" call "` | " errorNames " | " where " | " outcome, \
                                              errorNames, {__VA_ARGS__}, __FILE__, __LINE__);

#endif
