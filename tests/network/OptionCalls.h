// Keeps the option calls of a test from the platform, and what was asked in them.
#ifndef KXPAL_TESTS_OPTION_CALLS_H
#define KXPAL_TESTS_OPTION_CALLS_H

#include <algorithm>
#include <ostream>
#include <vector>

#include "InterposeSockets.h"
#include "Loopback.h"

/// One call of `setsockopt` or `getsockopt`: for the latter, `value` is what lay in the room before the call.
struct OptionCall {
    int level = 0;
    int option = 0;
    Bytes value;
    int fd = fakeFd;

    bool operator==(const OptionCall&) const = default;
};

inline std::ostream& operator<<(std::ostream& os, const OptionCall& call)
{
    os << "descriptor " << call.fd << ", level " << call.level << ", option " << call.option << ", "
       << call.value.size() << " bytes:";
    for (const int byte : call.value)
        os << ' ' << byte;
    return os;
}

/// While it lives, setting an option succeeds without effect, and getting one answers with the same bytes each time,
/// or with none.
class OptionCalls {
public:
    explicit OptionCalls(Bytes answer = {}) : _answer(std::move(answer)) {}

    const std::vector<OptionCall>& set() const { return _set; }
    const std::vector<OptionCall>& got() const { return _got; }

private:
    Bytes _answer;
    std::vector<OptionCall> _set;
    std::vector<OptionCall> _got;
    Interposed<int(int, int, int, const void*, socklen_t)> _setting{
        interpose::setsockopt, [this](auto, int fd, int level, int option, const void* value, socklen_t length) {
            _set.push_back({level, option, bytesAt(value, length), fd});
            return 0;
        }};
    Interposed<int(int, int, int, void*, socklen_t*)> _getting{
        interpose::getsockopt, [this](auto, int fd, int level, int option, void* value, socklen_t* length) {
            _got.push_back({level, option, bytesAt(value, *length), fd});
            *length = static_cast<socklen_t>(std::min<std::size_t>(*length, _answer.size()));
            std::copy_n(_answer.begin(), *length, static_cast<unsigned char*>(value));
            return 0;
        }};
};

#endif
