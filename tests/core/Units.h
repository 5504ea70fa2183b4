// Units of work for the tests of pools.
#ifndef KXPAL_TESTS_CORE_UNITS_H
#define KXPAL_TESTS_CORE_UNITS_H

#include <kxPAL/Runnable.h>

#include <functional>
#include <utility>

/// Does what the test asks for, when it runs and when it goes.
class FunctionUnit : public Murn::Runnable {
public:
    explicit FunctionUnit(std::function<void()> run, std::function<void()> end = nullptr)
        : _run(std::move(run)), _end(std::move(end))
    {
    }

    ~FunctionUnit() override
    {
        if (_end != nullptr)
            _end();
    }

    void run() override { _run(); }

private:
    std::function<void()> _run;
    std::function<void()> _end;
};

#endif
