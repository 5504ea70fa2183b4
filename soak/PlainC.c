/* The part of the host that is written in C. */
#include "PlainC.h"

#include <stddef.h>

static const unsigned int greeting = 100;
static char text[] = "from C";

int plain_c_reads_back(void)
{
    Murn_Event* const event = Murn_Create_Event(greeting, text);
    const int same = Murn_Event_Get_Type(event) == greeting && Murn_Event_Get_Data(event) == text;
    Murn_Event_Delete(event);
    Murn_Event_Delete(NULL); /* ignored */
    return same;
}

void plain_c_lives(void)
{
    Murn_C_application_init(0, NULL);
    Murn_C_thread_register();
    Murn_C_thread_register(); /* may be called any number of times */
    Murn_Application_Process_Events();
    (void)TimerSleep(1);
    Murn_Application_Process_Events();
    Murn_C_application_shutdown();
}
