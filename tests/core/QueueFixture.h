// What the tests of the event queue share: receivers and events that note what happens to them.
#ifndef KXPAL_TESTS_CORE_QUEUE_FIXTURE_H
#define KXPAL_TESTS_CORE_QUEUE_FIXTURE_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

using Notes = std::vector<std::string>;

/// An event with a name, which notes its disposal.
class NamedEvent : public Murn::Event {
public:
    NamedEvent(Notes& notes, std::string name, Murn::Object& receiver)
        : Event(7, nullptr), _name(std::move(name)), _notes(notes)
    {
        _receiver = &receiver;
    }

    void destroy() override
    {
        _notes.push_back("destroy " + _name);
        Event::destroy();
    }

    const std::string _name;

private:
    Notes& _notes;
};

/// An object that notes the events that it gets and then does what the test asks for. There is no application in
/// these tests, so that it is bound to no thread.
class NotingObject : public Murn::Object {
public:
    explicit NotingObject(Notes& notes) : _notes(notes) {}

    void event(Murn::Event* event) override
    {
        const std::string name = static_cast<NamedEvent*>(event)->_name;
        _notes.push_back("event " + name);
        if (_handler != nullptr)
            _handler(name);
    }

    std::function<void(const std::string& name)> _handler;

private:
    Notes& _notes;
};

/// Three objects, and a queue of the type under test.
template <typename Queue>
class QueueFixture : public ::testing::Test {
protected:
    /// Queues an event for the object.
    void enqueue(const std::string& name, Murn::Object& receiver)
    {
        _queue.enqueueEvent(new NamedEvent(_notes, name, receiver));
    }

    /// Delivers everything and returns the names of the events delivered, in order.
    Notes delivered()
    {
        _notes.clear();
        _queue.processEvents();
        Notes names;
        for (const std::string& note : _notes) {
            if (note.starts_with("event "))
                names.push_back(note.substr(6));
        }
        return names;
    }

    /// Takes the object's events out, disposes of them, and returns their names in order.
    Notes takenOut(Murn::Object& receiver)
    {
        const std::unique_ptr<std::vector<Murn::Event*>> events(_queue.getEventsForObject(&receiver));
        Notes names;
        for (Murn::Event* const event : *events) {
            EXPECT_EQ(&receiver, event->_receiver);
            names.push_back(static_cast<NamedEvent*>(event)->_name);
            delete event;
        }
        return names;
    }

    Notes _notes;
    NotingObject _a{_notes};
    NotingObject _b{_notes};
    NotingObject _c{_notes};
    Queue _queue;
};

#endif
