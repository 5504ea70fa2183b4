// Units of work on a pool of threads, whose results are added up on the main application thread.
#include <kxPAL/Application.h>
#include <kxPAL/Event.h>
#include <kxPAL/Object.h>
#include <kxPAL/Runnable.h>
#include <kxPAL/ThreadPool.h>

namespace {

class Found : public Murn::Event {
public:
    static const unsigned int Type = 100;

    explicit Found(long count) : Event(Type, nullptr), _count(count) {}

    const long _count;
};

long primes = 0;

/// Adds up the results of so many units, and ends the main loop.
class Sum : public Murn::Object {
public:
    explicit Sum(int units) : _left(units) {}

    void event(Murn::Event* event) override
    {
        if (event->_type != Found::Type) {
            Murn::Object::event(event);
            return;
        }
        primes += static_cast<Found*>(event)->_count;
        if (--_left == 0) {
            destroy();
            Murn::Application::Quit();
        }
    }

private:
    int _left;
};

bool isPrime(long number)
{
    for (long divisor = 2; divisor * divisor <= number; ++divisor) {
        if (number % divisor == 0)
            return false;
    }
    return number > 1;
}

// [unit]
class PrimeCount : public Murn::Runnable {
public:
    PrimeCount(long begin, long end, Murn::Object* sum) : _begin(begin), _end(end), _sum(sum) {}

    void run() override
    {
        long count = 0;
        for (long number = _begin; number < _end; ++number)
            count += isPrime(number) ? 1 : 0;
        Murn::Application::PostEvent(_sum, new Found(count));
    }

private:
    long _begin;
    long _end;
    Murn::Object* _sum;  // on the main application thread
};
// [end]

}  // namespace

int main(int argc, char** argv)
{
    Murn::Application application(argc, argv);
    constexpr int units = 10;
    auto* const sum = new Sum(units);
    // [pool]
    Murn::ThreadPool pool(4);
    for (long unit = 0; unit < units; ++unit)
        pool.run(new PrimeCount(unit * 1000, (unit + 1) * 1000, sum));  // the pool's from now on
    application.exec();                                                 // until the sum is complete and quits
    // [end]
    return primes == 1229 ? 0 : 1;
}
