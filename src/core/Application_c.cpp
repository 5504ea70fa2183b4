// The library's functions with C linkage: the application and its events for hosts without classes.
#include "Murn_c.h"

#include <atomic>
#include <cstdint>

#include "Application.h"
#include "Check.h"
#include "Event.h"

namespace Murn {

/// What these functions see of the application beyond its interface.
struct ApplicationC {
    static std::atomic<Application*>& Instance() { return Application::_Instance; }
};

}  // namespace Murn

namespace {

// The application of the counted kind. Threads that register look at it, hence atomic.
std::atomic<Murn::Application*> murnC_app(nullptr);

// Inits that no shutdown has answered. Only ever touched by one thread at a time: the callers see to that.
std::uint32_t murnC_appCount = 0;

}  // namespace

void Murn_Application_Init(int argc, char** argv)
{
    // Found again through its own instance pointer.
    static_cast<void>(new Murn::Application(argc, argv));
}  // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks): see above

void Murn_Application_Exec()
{
    Murn::ApplicationC::Instance().load()->exec();
}

void Murn_Application_Cleanup()
{
    delete Murn::ApplicationC::Instance().load();
    Murn::ApplicationC::Instance() = nullptr;
}

void Murn_Application_Process_Events()
{
    Murn::Application::ProcessEvents(false);
}

void Murn_Application_Dispatch_Event(Murn_Object* target, Murn_Event* event)
{
    Murn::Application::DispatchEvent(target, event);
}

void Murn_C_application_init(int argc, char** argv)
{
    if (murnC_appCount != 0) {
        ++murnC_appCount;
        return;
    }
    murnC_app = new Murn::Application(argc, argv);
    murnC_appCount = 1;
}

void Murn_C_application_shutdown()
{
    // Not guarded against a shutdown too many, on purpose: the counter wraps, and the init after it only counts, so
    // that the mistake shows where it was made.
    --murnC_appCount;
    if (murnC_appCount != 0)
        return;
    delete murnC_app.load();
    murnC_app = nullptr;
}

void Murn_C_thread_register()
{
    MURN_CHECK(murnC_app);
    if (Murn::Application::CurrentThread() == nullptr)
        Murn::Application::RegisterExternalThread();
}

Murn_Event* Murn_Create_Event(unsigned int type, void* data)
{
    return new Murn::Event(type, data);
}

void Murn_Event_Delete(Murn_Event* event)
{
    delete event;
}

unsigned int Murn_Event_Get_Type(Murn_Event* event)
{
    return event->_type;
}

void* Murn_Event_Get_Data(Murn_Event* event)
{
    return event->_data;
}
