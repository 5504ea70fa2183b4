// Threads that nobody wants to join are left to the application's thread collector.
#include <kxPAL/Application.h>
#include <kxPAL/Thread.h>

#include <atomic>

namespace {

std::atomic<int> ended(0);

// [thread]
class Task : public Murn::Thread {
public:
    void run() override
    {
        // ... the work; call exec() here if the thread needs its loop ...
        ++ended;
    }
};
// [end]

}  // namespace

int main(int argc, char** argv)
{
    {
        Murn::Application application(argc, argv);

        // [hand-over]
        auto* const task = new Task;
        task->setJoinable(true);  // the collector joins
        task->start();
        Murn::Application::AddToThreadGarbageCollector(task);  // the application's from now on
        // [end]
    }
    return ended == 1 ? 0 : 1;
}
