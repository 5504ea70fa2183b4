// For the operations that do nothing when they are called without an object.
#ifndef MURN_CORE_POSSIBLY_NULL_H
#define MURN_CORE_POSSIBLY_NULL_H

namespace Murn {

/// Hides from the compiler that a pointer came from `this`, which it takes for never null. The caller also keeps the
/// undefined-behaviour sanitizer out of itself, whose complaint would hide what its own callers rely on.
template <typename Class>
Class* possiblyNull(Class* object)
{
    __asm__("" : "+r"(object));
    return object;
}

}  // namespace Murn

#endif
