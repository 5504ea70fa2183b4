// A recursive lock for data, and a condition to wait for a change of it.
#include <kxPAL/Cond.h>
#include <kxPAL/Mutex.h>
#include <kxPAL/MutexLocker.h>

#include <thread>

namespace {

// [mutex]
class Account {
public:
    void deposit(long amount)
    {
        const Murn::MutexLocker locker(&_mutex);
        _balance += amount;
    }

    void depositTwice(long amount)
    {
        const Murn::MutexLocker locker(&_mutex);  // nobody comes in between the two
        deposit(amount);                          // locks once more: the mutex is recursive
        deposit(amount);
    }

    long balance()
    {
        const Murn::MutexLocker locker(&_mutex);
        return _balance;
    }

private:
    Murn::Mutex _mutex;
    long _balance = 0;  // guarded by _mutex
};
// [end]

}  // namespace

int main()
{
    Account account;
    Murn::Cond cond;
    bool isReady = false;

    std::thread payer([&] {
        account.depositTwice(50);
        // [announce]
        cond.lock();
        isReady = true;
        cond.signal();
        cond.unlock();
        // [end]
    });

    // [await]
    cond.lock();
    while (!isReady)  // a waiter may wake up without a signal
        cond.wait();
    cond.unlock();
    // [end]

    payer.join();
    return account.balance() == 100 ? 0 : 1;
}
