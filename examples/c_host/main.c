/* A host in plain C: starts the runtime, registers a thread of its own, sends letters to and fro, and shuts down. */
#define _POSIX_C_SOURCE 200809L

#include <kxPAL/Murn_c.h>

#include <pthread.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "Mailbox.h"

enum event_type { LETTER = 2, ANSWER, GOODBYE }; /* 1 is the library's own */

static char* const letters[] = {"one", "two", "three"};
#define LETTERS (sizeof letters / sizeof *letters)

/* What the two threads share. */
struct office {
    pthread_mutex_t mutex;
    pthread_cond_t opened;
    Murn_Object* clerk; /* guarded by mutex; the mailbox of the second thread, once it is there */
    Murn_Object* host;  /* set before the second thread starts; the mailbox of the main thread */
};

struct clerk {
    struct office* office;
    bool is_done;
};

/* Runs on the second thread. Answers each letter with what it said. */
static void clerk_receives(Murn_Event* event, void* context)
{
    struct clerk* const clerk = context;
    switch (Murn_Event_Get_Type(event)) {
        case LETTER:
            printf("clerk: \"%s\" has arrived\n", (const char*)Murn_Event_Get_Data(event));
            Murn_Application_Dispatch_Event(clerk->office->host, Murn_Create_Event(ANSWER, Murn_Event_Get_Data(event)));
            break;
        case GOODBYE:
            clerk->is_done = true;
            break;
        default:
            break;
    }
}

/* The body of the second thread. */
static void* work(void* argument)
{
    struct office* const office = argument;
    struct clerk clerk = {office, false};
    Murn_C_thread_register();
    Murn_Object* const mailbox = mailbox_create(clerk_receives, &clerk);

    pthread_mutex_lock(&office->mutex);
    office->clerk = mailbox;
    pthread_cond_signal(&office->opened);
    pthread_mutex_unlock(&office->mutex);

    while (!clerk.is_done) {
        Murn_Application_Process_Events();
        TimerSleep(1);
    }
    mailbox_delete(mailbox);
    mailbox_leave_thread();
    return NULL;
}

static Murn_Object* wait_for_clerk(struct office* office)
{
    pthread_mutex_lock(&office->mutex);
    while (office->clerk == NULL)
        pthread_cond_wait(&office->opened, &office->mutex);
    Murn_Object* const clerk = office->clerk;
    pthread_mutex_unlock(&office->mutex);
    return clerk;
}

/* Runs on the main thread. */
static void host_receives(Murn_Event* event, void* context)
{
    size_t* const answers = context;
    if (Murn_Event_Get_Type(event) == ANSWER && Murn_Event_Get_Data(event) == letters[*answers]) {
        printf("host: answer to \"%s\"\n", letters[*answers]);
        ++*answers;
    }
}

/* Whether all letters were answered, in their order. */
static bool exchange_letters(void)
{
    size_t answers = 0;
    struct office office = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, NULL,
                            mailbox_create(host_receives, &answers)};
    pthread_t thread;
    const int failure = pthread_create(&thread, NULL, work, &office);
    if (failure != 0) {
        fprintf(stderr, "c_host: no second thread: %s\n", strerror(failure));
        mailbox_delete(office.host);
        return false;
    }

    Murn_Object* const clerk = wait_for_clerk(&office);
    for (size_t number = 0; number < LETTERS; ++number)
        Murn_Application_Dispatch_Event(clerk, Murn_Create_Event(LETTER, letters[number]));
    Murn_Application_Dispatch_Event(clerk, Murn_Create_Event(GOODBYE, NULL));
    pthread_join(thread, NULL);

    /* One call delivers all that waits by now. */
    printf("host: %zu answers before the loop turned\n", answers);
    Murn_Application_Process_Events();
    mailbox_delete(office.host);
    return answers == LETTERS;
}

int main(int argc, char** argv)
{
    Murn_C_application_init(argc, argv);
    const bool answered = exchange_letters();

    Murn_Event* const draft = Murn_Create_Event(LETTER, NULL); /* not sent, hence still ours */
    Murn_Event_Delete(draft);

    Murn_C_application_shutdown();
    puts(answered ? "host: all letters were answered" : "host: letters went astray");
    return answered ? EXIT_SUCCESS : EXIT_FAILURE;
}
