// The C interface beside the classes that it stands for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Application.h>
#include <kxPAL/Check.h>
#include <kxPAL/Event.h>
#include <kxPAL/Murn_c.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>
#include <kxPAL/Timer.h>

#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "FatalTest.h"
#include "LogCapture.h"
#include "Runtime.h"

namespace {

using Murn::Application;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

static_assert(std::is_same<Murn_Event, Murn::Event>::value, "the same events");
static_assert(std::is_same<Murn_Object, Murn::Object>::value, "the same objects");

/// An application that tells of its destruction.
class WatchedApplication : public Application {
public:
    explicit WatchedApplication(int& destructions) : Application(0, nullptr), _destructions(destructions) {}
    ~WatchedApplication() override { ++_destructions; }

private:
    int& _destructions;
};

/// An event that tells how it went.
class WatchedEvent : public Murn::Event {
public:
    WatchedEvent(int& destructions, int& disposals)
        : Event(100, nullptr), _destructions(destructions), _disposals(disposals)
    {
    }
    ~WatchedEvent() override { ++_destructions; }

    void destroy() override
    {
        ++_disposals;
        Event::destroy();
    }

private:
    int& _destructions;
    int& _disposals;
};

class CInterface : public ::testing::Test {
protected:
    void TearDown() override { EXPECT_THAT(_log.texts(), IsEmpty()); }

    LogCapture _log;
};

TEST_F(CInterface, cleanupDestroysAnyApplicationThroughItsVirtualDestructor)
{
    int destructions = 0;
    new WatchedApplication(destructions);
    Murn_Application_Cleanup();
    EXPECT_EQ(destructions, 1);
    Murn_Application_Cleanup();
    EXPECT_EQ(destructions, 1);

    const Application next(0, nullptr);  // there is room for one
}

TEST_F(CInterface, execRunsTheLoopOfAnyApplication)
{
    const Application application(0, nullptr);
    Record record;
    auto* const quitter = new Recorder(record, [](Murn::Event* event) {
        event->_receiver->destroy();
        Application::Quit();
    });
    Application::PostEvent(quitter, Murn_Create_Event(101, nullptr));
    EXPECT_THAT(record.types(), IsEmpty());
    Murn_Application_Exec();
    EXPECT_THAT(record.types(), ElementsAre(101U, 1U));
    EXPECT_EQ(record.destructions(), 1);
}

TEST_F(CInterface, eventsAreDeletedThroughTheirVirtualDestructorAndNotDisposedOf)
{
    int destructions = 0;
    int disposals = 0;
    Murn_Event_Delete(new WatchedEvent(destructions, disposals));
    EXPECT_EQ(destructions, 1);
    EXPECT_EQ(disposals, 0);
}

TEST_F(CInterface, createdEventsAreBlankButForTypeAndData)
{
    int datum = 0;
    Murn_Event* const event = Murn_Create_Event(7, &datum);
    EXPECT_EQ(event->_receiver, nullptr);
    EXPECT_EQ(event->_type, 7U);
    EXPECT_EQ(event->_data, &datum);
    event->destroy();
}

TEST_F(CInterface, dispatchDisposesOfTheEvent)
{
    const Application application(0, nullptr);
    Record record;
    Recorder recorder(record);
    int destructions = 0;
    int disposals = 0;
    Murn_Application_Dispatch_Event(&recorder, new WatchedEvent(destructions, disposals));
    EXPECT_THAT(record.types(), ElementsAre(100U));
    EXPECT_EQ(disposals, 1);
    EXPECT_EQ(destructions, 1);
}

TEST_F(CInterface, dispatchQueuesForAnotherThread)
{
    const Application application(0, nullptr);
    Record record;
    Recorder recorder(record);
    int destructions = 0;
    int disposals = 0;
    onForeignThread([&] { Murn_Application_Dispatch_Event(&recorder, new WatchedEvent(destructions, disposals)); });
    EXPECT_THAT(record.types(), IsEmpty());
    EXPECT_EQ(disposals, 0);
    Murn_Application_Process_Events();
    EXPECT_THAT(record.types(), ElementsAre(100U));
    EXPECT_THAT(record.threads(), ElementsAre(Application::MainApplicationThread()));
    EXPECT_EQ(disposals, 1);
    EXPECT_EQ(destructions, 1);
}

TEST_F(CInterface, processingEventsWaitsForNone)
{
    const Application application(0, nullptr);
    Murn_Application_Process_Events();
}

TEST_F(CInterface, eventsTellTheirTypeAndData)
{
    int datum = 0;
    Murn_Event* const event = Murn_Create_Event(7, &datum);
    EXPECT_EQ(Murn_Event_Get_Type(event), 7U);
    EXPECT_EQ(Murn_Event_Get_Data(event), &datum);
    Murn_Event_Delete(event);
}

TEST_F(CInterface, theLastShutdownOfSeveralEndsTheApplication)
{
    Murn_C_application_init(0, nullptr);
    Murn_C_application_init(0, nullptr);
    Murn::Thread* const mainThread = Application::CurrentThread();
    Murn_C_application_shutdown();
    EXPECT_EQ(Application::CurrentThread(), mainThread);
    Murn_C_application_shutdown();
    EXPECT_EQ(Application::CurrentThread(), nullptr);
}

TEST_F(CInterface, registeredThreadIsAnExternalOneOfItsOwn)
{
    Murn_C_application_init(0, nullptr);
    onForeignThread([] {
        Murn_C_thread_register();
        Murn::Thread* const thread = Application::CurrentThread();
        ASSERT_NE(thread, nullptr);
        EXPECT_NE(thread, Application::MainApplicationThread());
        EXPECT_TRUE(thread->isCurrentThread());
        Murn_C_thread_register();
        EXPECT_EQ(Application::CurrentThread(), thread);
        Application::UnregisterExternalThread();
    });
    Murn_C_application_shutdown();
}

TEST_F(CInterface, registeringLeavesOtherRegisteredThreadsAsTheyAre)
{
    Murn_C_application_init(0, nullptr);
    Murn::Thread* const mainThread = Application::CurrentThread();
    Murn_C_thread_register();
    EXPECT_EQ(Application::CurrentThread(), mainThread);
    Murn::Thread* inBody = nullptr;
    BodyThread thread([&] {
        Murn_C_thread_register();
        inBody = Application::CurrentThread();
    });
    startAndJoin(thread);
    EXPECT_EQ(inBody, &thread);
    Murn_C_application_shutdown();
}

TEST_F(CInterface, countedAndPlainEndsKnowNothingOfEachOther)
{
    Murn_Application_Init(0, nullptr);
    Murn_C_application_shutdown();  // one too many: the counter wraps
    EXPECT_NE(Application::MainApplicationThread(), nullptr);
    Murn_C_application_init(0, nullptr);  // and is back at 0
    EXPECT_NE(Application::MainApplicationThread(), nullptr);
    Murn_Application_Cleanup();
}

TEST_F(CInterface, initThatThrowsCountsNothingAndLeavesNoApplication)
{
    char name[] = "host";
    char* arguments[] = {name, nullptr};
    EXPECT_THROW(Murn_C_application_init(2, arguments), std::logic_error) << "a string from a null pointer";
    EXPECT_EQ(Application::CurrentThread(), nullptr);
    EXPECT_THROW(Murn_Application_Init(2, arguments), std::logic_error);
    Murn_Application_Cleanup();

    Murn_C_application_init(1, arguments);
    EXPECT_NE(Application::CurrentThread(), nullptr) << "the count was still 0";
    Murn_C_application_shutdown();
    EXPECT_EQ(Application::CurrentThread(), nullptr);
}

TEST(CInterfaceWarnings, unregisteredThreadsProcessNothing)
{
    LogCapture log;
    Murn_Application_Process_Events();
    EXPECT_THAT(log.messages(),
                ElementsAre(IsLogged("PAL", warningLevel, "Trying to process events from an unregistered thread !")));
}

TEST(CInterfaceChecks, registeringWithoutACountedApplicationIsFatal)
{
    EXPECT_FATAL(Murn_C_thread_register(), "murnC_app", "src/core/Application_c.cpp");
    EXPECT_FATAL(
        {
            Murn_C_application_init(0, nullptr);
            Murn_C_application_shutdown();
            Murn_C_thread_register();
        },
        "murnC_app", "src/core/Application_c.cpp");
    EXPECT_FATAL(
        {
            Murn_Application_Init(0, nullptr);
            Murn_C_thread_register();
        },
        "murnC_app", "src/core/Application_c.cpp");
}

TEST(CInterfaceChecks, aSecondApplicationIsFatal)
{
    EXPECT_FATAL(
        {
            Murn_C_application_init(0, nullptr);
            Murn_Application_Init(0, nullptr);
        },
        "isTheOnlyApplication", "src/core/Application.cpp");
    EXPECT_FATAL(
        {
            Murn_Application_Init(0, nullptr);
            Murn_C_application_init(0, nullptr);
        },
        "isTheOnlyApplication", "src/core/Application.cpp");
}

}  // namespace
