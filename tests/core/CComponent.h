// A component as hosts in C have them: written in C++, used through C. It makes objects that count their events.
#ifndef KXPAL_TESTS_CORE_C_COMPONENT_H
#define KXPAL_TESTS_CORE_C_COMPONENT_H

#include <kxPAL/Murn_c.h>

#ifdef __cplusplus
extern "C" {
#endif

/// An object of the calling thread.
Murn_Object* component_new_counter(void);
void component_delete_counter(Murn_Object* counter);

/// What the object received: how many events, the last one's type and data, and whether that came on the calling
/// thread. Any thread.
int component_count(Murn_Object* counter);
unsigned int component_last_type(Murn_Object* counter);
void* component_last_data(Murn_Object* counter);
int component_last_came_here(Murn_Object* counter);

/// An object that at its first event tells whether that came on the main application thread, deletes itself and ends
/// the main loop.
Murn_Object* component_new_quitter(int* came_on_main_thread);

/// How many arguments the application has, and whether the given one reads so.
int component_argument_count(void);
int component_argument_is(int index, const char* text);

int component_has_application(void);
int component_is_registered(void);
/// Undoes Murn_C_thread_register(), which has no counterpart in C.
void component_unregister(void);

#ifdef __cplusplus
}
#endif

#endif
