// What serves the clients of one thread.
#include "Worker.h"

#include <kxPAL/Thread.h>

#include <utility>

NewStreamEvent::NewStreamEvent(std::unique_ptr<Murn::TcpStream> newStream)
    : Event(Type, nullptr), stream(std::move(newStream))
{
}

Worker::Worker(Counters& counters) : _counters(counters), _readBuffer(readBufferSize) {}

Worker::~Worker()
{
    // From within the loop, since a stop that comes from elsewhere may end it before the deletion was delivered.
    Murn::Thread::CurrentThread()->stop();
}

void Worker::event(Murn::Event* event)
{
    if (event->_type != NewStreamEvent::Type) {
        Object::event(event);  // the request to delete this object among them
        return;
    }
    auto& stream = static_cast<NewStreamEvent*>(event)->stream;
    _connections.push_front(std::make_unique<Connection>(*this, std::move(stream)));
    _connections.front()->begin(_connections.begin());
}

void Worker::remove(Connection::Place place)
{
    _connections.erase(place);
    count(_counters.connectionsEnded);
}
