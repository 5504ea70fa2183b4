/* A component in C++ with an interface in C: an object that hands its events to a function of the host. */
#ifndef C_HOST_MAILBOX_H
#define C_HOST_MAILBOX_H

#include <kxPAL/Murn_c.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Called for each event, on the thread of the mailbox. The event is disposed of afterwards. */
typedef void (*mailbox_handler)(Murn_Event* event, void* context);

/* A mailbox that belongs to the calling thread, which is registered and deletes it again. */
Murn_Object* mailbox_create(mailbox_handler handler, void* context);
void mailbox_delete(Murn_Object* mailbox);

/* The calling thread leaves the runtime, for which plain C has no function. Its mailboxes are gone by now. */
void mailbox_leave_thread(void);

#ifdef __cplusplus
}
#endif

#endif
