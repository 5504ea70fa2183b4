/* The part of the tour that is written in C. */
#include "PlainC.h"

#include <stddef.h>

static const unsigned int greeting = 100;
static char text[] = "from C";

void plain_c_dispatches(Murn_Object* target)
{
    Murn_Application_Dispatch_Event(target, Murn_Create_Event(greeting, text));
}

int plain_c_knows(Murn_Event* event)
{
    return Murn_Event_Get_Type(event) == greeting && Murn_Event_Get_Data(event) == text;
}

int plain_c_reads_back(void)
{
    Murn_Event* const event = Murn_Create_Event(greeting, text);
    const int known = plain_c_knows(event);
    Murn_Event_Delete(event);
    Murn_Event_Delete(NULL); /* ignored */
    return known;
}
