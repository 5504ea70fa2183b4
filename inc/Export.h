// The mark that public symbols of the library carry. Everything else stays inside the shared object.
#ifndef MURN_EXPORT_H
#define MURN_EXPORT_H

/// Marks a class, function or variable that the shared library exports.
#define MURN_API __attribute__((visibility("default")))

/// Marks an inline member of an exported class of which the shared object has a copy: the source that makes the copies
/// defines the mark anew.
#ifndef MURN_API_INLINE
#define MURN_API_INLINE MURN_API
#endif

/// Marks a member of an exported class that stays inside the shared object.
#define MURN_LOCAL __attribute__((visibility("hidden")))

/// Tells the compiler that argument `formatIndex` is a printf format for the arguments from `firstArgument` on
/// (both counted from 1; 0 as `firstArgument` for a `va_list`), so that it checks them at each call.
#define MURN_PRINTF(formatIndex, firstArgument) __attribute__((format(printf, formatIndex, firstArgument)))

#endif
