/* A host in C: a component that needs the runtime, and a thread of the host's own. */
#define _POSIX_C_SOURCE 200809L

#include <kxPAL/Murn_c.h>

#include <pthread.h>
#include <stdbool.h>
#include <stdlib.h>

/* Stands for the host's own work. */
static bool host_has_work(void)
{
    static int left = 3;
    return left-- > 0;
}

/* [thread] */
static void* worker(void* unused)
{
    (void)unused;
    Murn_C_thread_register(); /* from here on objects can belong to this thread ... */
    while (host_has_work()) {
        Murn_Application_Process_Events(); /* ... which delivers their events itself */
        TimerSleep(1);
    }
    return NULL;
}
/* [end] */

int main(int argc, char** argv)
{
    /* [counted] */
    Murn_C_application_init(argc, argv); /* the first one starts the runtime, on the main thread ... */
    Murn_C_application_init(argc, argv); /* ... and the second, of another component, is counted */

    pthread_t thread;
    if (pthread_create(&thread, NULL, worker, NULL) != 0)
        return EXIT_FAILURE;
    pthread_join(thread, NULL);

    Murn_C_application_shutdown();
    Murn_C_application_shutdown(); /* ends the runtime */
    /* [end] */

    /* [events] */
    int datum = 7;
    Murn_Event* event = Murn_Create_Event(100, &datum);
    unsigned int type = Murn_Event_Get_Type(event); /* 100 */
    int* data = Murn_Event_Get_Data(event);         /* &datum */
    Murn_Event_Delete(event);                       /* still ours: it was not dispatched */
    /* [end] */
    return type == 100 && data == &datum ? EXIT_SUCCESS : EXIT_FAILURE;
}
