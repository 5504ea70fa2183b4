// What the tests of objects, threads, timers and the application share.
#ifndef KXPAL_TESTS_CORE_RUNTIME_H
#define KXPAL_TESTS_CORE_RUNTIME_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>
#include <kxPAL/Timer.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "LogCapture.h"

/// Matches a message by domain, level (the library's) and text without the stamp.
MATCHER_P3(IsLogged, domain, level, text,
           "is the message \"" + std::string(text) + "\" of domain " + std::string(domain))
{
    *result_listener << "\"" << arg.text << "\" of domain " << arg.domain.value_or("(none)") << ", level " << arg.level;
    return arg.domain == std::string(domain) && arg.level == level && arg.text == std::string(text);
}

constexpr int errorLevel = 2;
constexpr int warningLevel = 4;
constexpr int messageLevel = 8;

/// The address as printf's %p writes it.
inline std::string addressText(const void* address)
{
    char text[32];
    std::snprintf(text, sizeof text, "%p", address);
    return text;
}

/// Copies bytes behind the back of the thread sanitizer: what is looked at are fields, some of them atomic, that
/// threads may be changing.
__attribute__((no_sanitize("thread"))) inline void copyUnseen(void* to, const void* from, std::size_t size)
{
    for (std::size_t at = 0; at < size; ++at)
        static_cast<volatile char*>(to)[at] = static_cast<const volatile char*>(from)[at];
}

/// The bytes at an offset within an object, for promises about the layout.
template <typename Field>
Field fieldAt(const void* object, std::size_t offset)
{
    Field field;
    copyUnseen(&field, static_cast<const char*>(object) + offset, sizeof field);
    return field;
}

/// The warning about an object that outlives its thread's loop, one of so many.
inline std::string orphanText(int count, const Murn::Object* object)
{
    return "Thread deleted with objects still attached to it! : (" + std::to_string(count) + ") => " +
           addressText(object);
}

/// The warning about a stop that comes without a loop. It names the private half of the thread.
inline std::string noLoopText(const Murn::Thread* thread)
{
    return "Can not stop Thread [" + addressText(fieldAt<void*>(thread, 8)) + "] which is not running an event loop !";
}

/// Runs the function on a system thread that the runtime does not know, and waits for its end.
inline void onForeignThread(const std::function<void()>& function)
{
    std::thread(function).join();
}

/// Runs the function on this system thread, which is registered as external for the time.
inline void onThisThreadAsExternal(const std::function<void()>& function)
{
    Murn::Application::RegisterExternalThread();
    function();
    Murn::Application::UnregisterExternalThread();
}

/// The same, on a system thread of its own.
inline void onExternalThread(const std::function<void()>& function)
{
    onForeignThread([&] { onThisThreadAsExternal(function); });
}

/// Runs the function when the calling system thread ends, after everything that the runtime does on it.
inline void atThreadEnd(std::function<void()> function)
{
    struct Final {
        ~Final()
        {
            if (function != nullptr)
                function();
        }
        std::function<void()> function;
    };
    thread_local Final last;
    last.function = std::move(function);
}

/// An event that counts its disposals.
class CountedEvent : public Murn::Event {
public:
    CountedEvent(unsigned int type, std::atomic<int>& disposals) : Event(type, nullptr), _disposals(disposals) {}

    void destroy() override
    {
        ++_disposals;
        Event::destroy();
    }

private:
    std::atomic<int>& _disposals;
};

/// Posts a plain event of the type.
inline void post(Murn::Object* target, unsigned int type)
{
    Murn::Application::PostEvent(target, new Murn::Event(type, nullptr));
}

/// Posts an event that counts its disposal.
inline void post(Murn::Object* target, unsigned int type, std::atomic<int>& disposals)
{
    Murn::Application::PostEvent(target, new CountedEvent(type, disposals));
}

/// What happened to an object. The test keeps it, since the object may be gone when the test looks.
class Record {
public:
    void noteEvent(unsigned int type)
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        _types.push_back(type);
        _threads.push_back(Murn::Thread::CurrentThread());
    }

    void noteDestruction() { ++_destructions; }

    /// The types of the events that reached the object, in order.
    std::vector<unsigned int> types() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _types;
    }

    /// The current thread at each of these events.
    std::vector<Murn::Thread*> threads() const
    {
        const std::lock_guard<std::mutex> lock(_mutex);
        return _threads;
    }

    int destructions() const { return _destructions; }

private:
    mutable std::mutex _mutex;
    std::vector<unsigned int> _types;     // guarded by _mutex
    std::vector<Murn::Thread*> _threads;  // guarded by _mutex
    std::atomic<int> _destructions{0};
};

/// An object that records what happens to it and does at each event what the test asks for.
class Recorder : public Murn::Object {
public:
    using Handler = std::function<void(Murn::Event*)>;

    explicit Recorder(Record& record, Handler handler = nullptr) : _record(record), _handler(std::move(handler)) {}
    ~Recorder() override { _record.noteDestruction(); }

    void event(Murn::Event* event) override
    {
        _record.noteEvent(event->_type);
        // A copy, because the handler may delete the object.
        const Handler handler = _handler;
        if (event->_type == 1)
            Object::event(event);
        else if (handler != nullptr)
            handler(event);
    }

private:
    Record& _record;
    Handler _handler;
};

/// A timer that does what the test asks for.
class FunctionTimer : public Murn::Timer {
public:
    explicit FunctionTimer(std::function<void()> function) : _function(std::move(function)) {}

    void timeout() override
    {
        // A copy, because the function may delete the timer.
        const std::function<void()> function = _function;
        function();
    }

private:
    std::function<void()> _function;
};

/// A thread whose body is the test's.
class BodyThread : public Murn::Thread {
public:
    explicit BodyThread(std::function<void()> body, bool joinable = true) : _body(std::move(body))
    {
        setJoinable(joinable);
    }

    void run() override { _body(); }

private:
    std::function<void()> _body;
};

/// Runs the body of a joinable thread from its start to its end.
inline void startAndJoin(Murn::Thread& thread)
{
    thread.start();
    thread.join();
}

/// A started, joinable thread in its event loop, and a way to run code on it.
class Worker {
public:
    /// Comes back when the loop runs.
    Worker() : _caller(new Caller)
    {
        _caller->moveToThread(&_thread);
        _thread.setJoinable(true);
        _thread.start();
        run([] {});
    }

    ~Worker() { finish(); }

    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    Murn::Thread* thread() { return &_thread; }

    /// Any other thread. Runs the function within the loop and waits until it has returned.
    void run(std::function<void()> function)
    {
        auto call = std::make_unique<Call>(std::move(function));
        std::future<void> done = call->_done.get_future();
        Murn::Application::PostEvent(_caller, call.release());
        done.wait();
    }

    /// Ends the loop, in which nothing of the worker's own is bound any more, and joins the thread.
    void finish()
    {
        if (_caller == nullptr)
            return;
        run([this] { delete std::exchange(_caller, nullptr); });
        _thread.stop();
        _thread.join();
    }

private:
    struct Call : Murn::Event {
        explicit Call(std::function<void()> function) : Event(1000, nullptr), _function(std::move(function)) {}

        std::function<void()> _function;
        std::promise<void> _done;
    };

    struct Caller : Murn::Object {
        void event(Murn::Event* event) override
        {
            auto* const call = static_cast<Call*>(event);
            call->_function();  // may delete this object
            call->_done.set_value();
        }
    };

    Murn::Thread _thread;
    Caller* _caller;
};

/// A test with an application, whose main application thread is the thread of the test. Nothing may be logged but what
/// the test looks at.
class RuntimeTest : public ::testing::Test {
protected:
    RuntimeTest() : _application(std::make_unique<Murn::Application>(0, nullptr)) {}

    void TearDown() override
    {
        endApplication();
        if (!_looksAtLog) {
            EXPECT_THAT(_log.texts(), ::testing::IsEmpty());
        }
    }

    Murn::Application& application() { return *_application; }
    void endApplication() { _application.reset(); }
    static Murn::Thread* mainThread() { return Murn::Application::MainApplicationThread(); }

    /// Everything that was logged until now.
    std::vector<LogMessage> logged()
    {
        _looksAtLog = true;
        return _log.messages();
    }

    /// Delivers what is ready on the main thread, until nothing is.
    static void pump()
    {
        while (mainThread()->processEvents(false)) {
        }
    }

private:
    LogCapture _log;
    bool _looksAtLog = false;
    std::unique_ptr<Murn::Application> _application;
};

#endif
