// Replacing functions of the C library and of GLib for the time of a test.
//
// The test program defines the function itself, so that the calls of the library under test land there first, and
// passes them on unless a test has installed a replacement:
//
//     Interposed replaced(interpose::setsockopt, [&](auto real, int fd, int level, int option, const void* value,
//                                                    socklen_t length) {
//         log.note("setsockopt");
//         return real(fd, level, option, value, length);
//     });
//     Interposed failing(interpose::socket, interpose::failsWith(EMFILE));
//     Interposed noted(interpose::shutdown, log.noting("shutdown"));
//
// The functions come in families, InterposeSockets.h, InterposeLibc.h, InterposeFiles.h and InterposeGlib.h, one source
// each; a test program links those it names behind INTERPOSE in kxpal_add_test. To make another function replaceable,
// add its line to its family's list.
#ifndef KXPAL_TESTS_INTERPOSE_H
#define KXPAL_TESTS_INTERPOSE_H

#include <dlfcn.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace interpose {

/// Finds the function that ours stands in front of: a sanitizer's interceptor, which clang links into the program
/// itself and which the sanitizer needs to see the call, or else the next definition in load order.
inline void* findReal(const char* interceptor, const char* name)
{
    void* const intercepted = ::dlsym(RTLD_DEFAULT, interceptor);
    return intercepted != nullptr ? intercepted : ::dlsym(RTLD_NEXT, name);
}

/// Set as soon as the process ends: what comes then belongs to no test. Counters of coverage are written at the very
/// end, and with the same functions.
inline std::atomic<bool> processEnds{false};

/// Any thread. Takes note of the end of the process, from the first call on.
inline void watchForTheEnd()
{
    static const int registered = std::atexit([] { processEnds = true; });
    static_cast<void>(registered);
}

template <typename Signature>
class Slot;

/// One replaceable function. Constant-initialised, so that it can be called before any constructor has run, and
/// safe to call from any thread; without a replacement a call costs one atomic load more than the real one.
template <typename Result, typename... Arguments>
class Slot<Result(Arguments...)> {
public:
    using Function = Result(Arguments...);
    /// What takes the place of the function: it gets the real one first, then the arguments.
    using Replacement = std::function<Result(Function* real, Arguments...)>;

    constexpr Slot(const char* interceptor, const char* name) : _interceptor(interceptor), _name(name), _replacement()
    {
    }
    // Leaves the replacement as it is, which therefore sits in a union: calls still come while the process ends, also
    // from within a test whose statement ends it.
    ~Slot() {}
    Slot(const Slot&) = delete;
    Slot& operator=(const Slot&) = delete;

    /// What the definition in the test program calls.
    Result call(Arguments... arguments)
    {
        if (!_replaced.load(std::memory_order_acquire) || processEnds)
            return real()(arguments...);
        const std::shared_ptr<Replacement> replacement = current();
        return replacement != nullptr ? (*replacement)(real(), arguments...) : real()(arguments...);
    }

    /// The function that ours stands in front of.
    Function* real()
    {
        Function* function = _real.load(std::memory_order_acquire);
        if (function == nullptr) {
            const int error = errno;
            function = reinterpret_cast<Function*>(findReal(_interceptor, _name));
            _real.store(function, std::memory_order_release);
            errno = error;
        }
        return function;
    }

    /// Installs a replacement, or none, and returns the one before it.
    std::shared_ptr<Replacement> exchange(std::shared_ptr<Replacement> replacement)
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _replaced.store(replacement != nullptr, std::memory_order_release);
        std::swap(_replacement, replacement);
        return replacement;
    }

private:
    std::shared_ptr<Replacement> current()
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _replacement;
    }

    const char* const _interceptor;
    const char* const _name;
    std::atomic<Function*> _real{nullptr};
    std::atomic<bool> _replaced{false};
    std::mutex _mutex;
    union {
        std::shared_ptr<Replacement> _replacement;  // guarded by _mutex
    };
};

/// A replacement that fails with -1 and this error number, whatever the arguments.
inline auto failsWith(int error)
{
    return [error](auto*, auto...) {
        errno = error;
        return -1;
    };
}

/// The calls of one or several functions, in the order in which they came.
class CallLog {
public:
    /// Any thread. Adds a line.
    void note(std::string call)
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _calls.push_back(std::move(call));
    }

    /// A replacement that notes the name and calls the real function.
    auto noting(std::string name)
    {
        return [this, name = std::move(name)](auto* real, auto... arguments) {
            note(name);
            return real(arguments...);
        };
    }

    /// Any thread.
    std::vector<std::string> calls() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _calls;
    }

private:
    mutable std::mutex _mutex;
    std::vector<std::string> _calls;  // guarded by _mutex
};

}  // namespace interpose

/// Replaces one function as long as the object lives and the process does not end; afterwards what was there before is
/// back. Replacements of one function end in the opposite order of their beginning. A call that is under way on another
/// thread may still be in the replacement when the object is gone; end or join such threads first.
template <typename Signature>
class [[nodiscard]] Interposed {
public:
    Interposed(interpose::Slot<Signature>& slot, typename interpose::Slot<Signature>::Replacement replacement)
        : _slot(slot),
          _previous(
              slot.exchange(std::make_shared<typename interpose::Slot<Signature>::Replacement>(std::move(replacement))))
    {
        interpose::watchForTheEnd();
    }

    ~Interposed() { _slot.exchange(std::move(_previous)); }

    Interposed(const Interposed&) = delete;
    Interposed& operator=(const Interposed&) = delete;

private:
    interpose::Slot<Signature>& _slot;
    std::shared_ptr<typename interpose::Slot<Signature>::Replacement> _previous;
};

// A family's list has one line KXPAL_INTERPOSE(result, name, (parameters), (arguments), exceptions) a function,
// where the last item repeats what the system's header promises: noexcept, or nothing.

/// Declares the slot of one function of a list, in the namespace `interpose`.
#define KXPAL_INTERPOSE_DECLARE(result, name, parameters, arguments, exceptions) extern Slot<result parameters> name;

/// Defines the slot, and the function that stands in front of the real one.
#define KXPAL_INTERPOSE_DEFINE(result, name, parameters, arguments, exceptions)                  \
    constinit interpose::Slot<result parameters> interpose::name("__interceptor_" #name, #name); \
    extern "C" __attribute__((visibility("default"))) result name parameters exceptions;         \
    result name parameters exceptions                                                            \
    {                                                                                            \
        return interpose::name.call arguments;                                                   \
    }

#endif
