/* A host in C outside the project. */
#include <kxPAL/Murn_c.h>

#include <stdio.h>

int main(int argc, char** argv)
{
    Murn_Event* event = NULL;
    unsigned int type = 0;
    Murn_C_application_init(argc, argv);
    Murn_C_thread_register();
    Murn_Application_Process_Events();
    event = Murn_Create_Event(100, &type);
    type = Murn_Event_Get_Type(event);
    Murn_Event_Delete(event);
    Murn_C_application_shutdown();
    printf("An event of type %u.\n", type);
    return 0;
}
