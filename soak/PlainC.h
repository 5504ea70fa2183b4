/* The part of the host that is written in C. */
#ifndef SOAK_PLAIN_C_H
#define SOAK_PLAIN_C_H

#include <kxPAL/Murn_c.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Makes an event and asks it for what it was made with. Returns whether that came back. */
int plain_c_reads_back(void);

/* A component's life: it counts itself in and out of the application, registers its thread, whose events it delivers,
   and waits a little. */
void plain_c_lives(void);

#ifdef __cplusplus
}
#endif

#endif
