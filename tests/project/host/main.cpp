// A host outside the project: an event from a thread of its own reaches an object on the main application thread.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Thread.h>

#include <cstdio>

namespace {

const unsigned int News = 100;

bool delivered = false;

class Reader : public Murn::Object {
public:
    void event(Murn::Event* event) override
    {
        if (event->_type != News) {
            Murn::Object::event(event);
            return;
        }
        delivered = Murn::Application::CurrentThread() == Murn::Application::MainApplicationThread();
        destroy();
        Murn::Application::Quit();
    }
};

class Writer : public Murn::Thread {
public:
    explicit Writer(Reader* reader) : _reader(reader) {}

    void run() override { Murn::Application::PostEvent(_reader, new Murn::Event(News, nullptr)); }

private:
    Reader* _reader;
};

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    Writer writer(new Reader);
    writer.setJoinable(true);
    writer.start();
    application.exec();
    writer.join();
    if (delivered)
        std::printf("Delivered on the main thread.\n");
    return delivered ? 0 : 1;
}
