/* The part of the tour that is written in C. */
#ifndef TOUR_PLAIN_C_H
#define TOUR_PLAIN_C_H

#include <kxPAL/Murn_c.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Makes an event and hands it to the object. */
void plain_c_dispatches(Murn_Object* target);
/* Whether the event is one that plain_c_dispatches() made. */
int plain_c_knows(Murn_Event* event);
/* Whether an event tells the type and the data that it was made with. */
int plain_c_reads_back(void);

#ifdef __cplusplus
}
#endif

#endif
