// How objects end: through destroy(), or through the release of their last reference.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>

namespace {

int alive = 0;

class Document : public Murn::Object {
public:
    Document() { ++alive; }
    ~Document() override { --alive; }
};

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);

    // [shared]
    auto* const document = new Document;  // no reference yet: counting is for those who begin it
    document->ref();                      // ours
    document->ref();                      // a second owner's

    document->deref();
    document->deref();  // the last one: the object is invalid now, and destroy() has posted the request to delete it
    // [end]
    const bool stillThere = alive == 1;
    Murn::Application::ProcessEvents(false);  // the object's own thread deletes it
    return stillThere && alive == 0 ? 0 : 1;
}
