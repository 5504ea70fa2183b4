// A fatal check of the host's own. The program ends there, with status 255.
#include <kxPAL/Check.h>

#include <cstdio>
#include <cstdlib>

namespace {

// [check]
int divide(int dividend, int divisor)
{
    MURN_CHECK(divisor != 0);
    return dividend / divisor;
}
// [end]

// [last words]
void lastWords()
{
    std::printf("This host ends here.\n");  // runs after a failed check as well: it calls exit(-1)
}
// [end]

}  // namespace

int main()
{
    std::atexit(lastWords);
    return divide(1, 0);
}
