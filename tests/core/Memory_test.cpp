// What comes and goes leaves no memory behind.
#include <kxPAL/Cond.h>
#include <kxPAL/EventQueue.h>
#include <kxPAL/LogHandler.h>
#include <kxPAL/Logger.h>
#include <kxPAL/Mutex.h>
#include <kxPAL/Runnable.h>
#include <kxPAL/ThreadPool.h>

#include "LiveMemory.h"
#include "Runtime.h"

using Murn::Application;
using Murn::Event;
using Murn::Object;

namespace {

class MemoryTest : public RuntimeTest {};

TEST_F(MemoryTest, locksAndConditionsLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] { const Murn::Mutex mutex; }), 0);
    EXPECT_EQ(livememory::leftBehindBy([] { const Murn::Cond cond; }), 0);
}

TEST_F(MemoryTest, eventsAndQueuesLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] {
                  Object receiver;
                  Murn::EventQueue queue;
                  for (unsigned int type = 100; type < 104; ++type) {
                      auto* const event = new Event(type, nullptr);
                      event->_receiver = &receiver;
                      queue.enqueueEvent(event);
                  }
                  EXPECT_EQ(queue.countEventsForObject(&receiver), 4U);
                  queue.processEvents();
              }),
              0);
}

TEST_F(MemoryTest, logHandlersLeaveNothing)
{
    class Silent final : public Murn::LogHandler {
    public:
        Silent() : LogHandler("silent", 0x3f) {}
        void HandleLog(const char* /*domain*/, Murn::Logger::LogLevel /*level*/, const char* /*message*/) override {}
    };
    EXPECT_EQ(livememory::leftBehindBy([] {
                  Silent handler;
                  Murn::Logger::InstallHandler(&handler);
                  Murn::Logger::Message("silent", "a message");
                  Murn::Logger::UninstallHandler(&handler);
              }),
              0);
}

TEST_F(MemoryTest, applicationsLeaveNothing)
{
    endApplication();
    char name[] = "a name that is longer than what a string holds in itself";
    char* arguments[] = {name, nullptr};
    EXPECT_EQ(livememory::leftBehindBy([&] { const Application application(1, arguments); }), 0);
}

TEST_F(MemoryTest, objectsLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] {
                  auto* const object = new Object;
                  post(object, 100);
                  object->destroy();
                  pump();
              }),
              0);
}

TEST_F(MemoryTest, objectsThatAreDeletedWithEventsLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] {
                  auto* const object = new Object;
                  post(object, 100);
                  delete object;
                  Application::DispatchEvent(&*std::make_unique<Object>(), new Event(100, nullptr));
              }),
              0);
}

TEST_F(MemoryTest, threadsLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] {
                  BodyThread thread([] {});
                  startAndJoin(thread);
              }),
              0);
    EXPECT_EQ(livememory::leftBehindBy([] { const Worker worker; }), 0);
}

TEST_F(MemoryTest, threadsThatAreNotJoinableLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] {
                  std::promise<void> ended;
                  BodyThread thread([&] { atThreadEnd([&] { ended.set_value(); }); }, false);
                  thread.start();
                  ended.get_future().wait();
              }),
              0);
}

TEST_F(MemoryTest, externalThreadsLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] { onExternalThread([] {}); }), 0);
}

TEST_F(MemoryTest, timersLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] {
                  bool fired = false;
                  FunctionTimer timer([&] {
                      fired = true;
                      timer.stop();
                  });
                  timer.start(1, mainThread());
                  while (!fired)
                      mainThread()->processEvents(true);
                  timer.start(1, mainThread());
              }),
              0);
}

/// Does nothing. The pool deletes it.
class Nothing : public Murn::Runnable {
public:
    void run() override {}
};

TEST_F(MemoryTest, poolsLeaveNothing)
{
    EXPECT_EQ(livememory::leftBehindBy([] {
                  Murn::ThreadPool pool(2);
                  pool.run(new Nothing);
              }),
              0);
}

}  // namespace
