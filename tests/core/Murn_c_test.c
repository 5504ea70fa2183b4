/* The C interface as a host in plain C uses it. Each case is a CTest entry: Murn_c_test CASE; without one all run. */
#define _POSIX_C_SOURCE 200809L

#include <kxPAL/Murn_c.h>

#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include "CComponent.h"

/* The sanitizers' own, where they are. */
void __lsan_disable(void) __attribute__((weak));
void __lsan_enable(void) __attribute__((weak));

#define EXPECT(condition)                                                             \
    do {                                                                              \
        if (!(condition)) {                                                           \
            fprintf(stderr, "%s:%d: expected: %s\n", __FILE__, __LINE__, #condition); \
            exit(1);                                                                  \
        }                                                                             \
    } while (0)

static char first_name[] = "host";
static char first_argument[] = "--quietly";
static char* first_arguments[] = {first_name, first_argument, NULL};
static char other_name[] = "other";
static char* other_arguments[] = {other_name, NULL};

/* Runs the body in a child and expects a fatal check: status 255, and a line that begins as given up to its number. */
static void expect_fatal(void (*body)(void), const char* beginning)
{
    int output[2];
    EXPECT(pipe(output) == 0);
    fflush(NULL);
    const pid_t child = fork();
    EXPECT(child != -1);
    if (child == 0) {
        if (__lsan_disable != NULL)
            __lsan_disable();
        dup2(output[1], STDOUT_FILENO);
        body();
        _exit(0);
    }
    close(output[1]);

    char text[8192];
    size_t length = 0;
    ssize_t count = 0;
    while ((count = read(output[0], text + length, sizeof text - 1 - length)) > 0 || (count == -1 && errno == EINTR))
        length += count > 0 ? (size_t)count : 0;
    close(output[0]);
    text[length] = '\0';

    int status = 0;
    EXPECT(waitpid(child, &status, 0) == child);
    EXPECT(WIFEXITED(status));
    EXPECT(WEXITSTATUS(status) == 255);
    EXPECT(strncmp(text, beginning, strlen(beginning)) == 0);
}

/* Runs the body on a thread of the host's own. */
static void on_thread(void* (*body)(void*), void* argument)
{
    pthread_t thread;
    EXPECT(pthread_create(&thread, NULL, body, argument) == 0);
    EXPECT(pthread_join(thread, NULL) == 0);
}

static void counted_creation(void)
{
    EXPECT(!component_has_application());
    Murn_C_application_init(2, first_arguments);
    EXPECT(component_has_application());
    EXPECT(component_is_registered());
    EXPECT(component_argument_count() == 2);
    EXPECT(component_argument_is(0, "host"));
    EXPECT(component_argument_is(1, "--quietly"));

    Murn_C_application_init(1, other_arguments);
    EXPECT(component_argument_count() == 2);

    Murn_C_application_shutdown();
    EXPECT(component_has_application());
    Murn_C_application_shutdown();
    EXPECT(!component_has_application());

    Murn_C_application_init(1, other_arguments);
    EXPECT(component_argument_is(0, "other"));
    Murn_C_application_shutdown();
    EXPECT(!component_has_application());
}

static void plain_creation(void)
{
    Murn_Application_Init(2, first_arguments);
    EXPECT(component_has_application());
    EXPECT(component_is_registered());
    EXPECT(component_argument_count() == 2);
    EXPECT(component_argument_is(1, "--quietly"));
    Murn_Application_Cleanup();
    EXPECT(!component_has_application());

    Murn_Application_Cleanup();
    EXPECT(!component_has_application());

    Murn_Application_Init(0, NULL);
    EXPECT(component_argument_count() == 0);
    Murn_Application_Cleanup();
}

static void unmatched_shutdown_wraps(void)
{
    Murn_C_application_shutdown();
    Murn_C_application_init(2, first_arguments);
    EXPECT(!component_has_application());
    /* The counter is back at 0 now: all that is left of the mistake is one init without an effect. */
    Murn_C_application_init(2, first_arguments);
    EXPECT(component_has_application());
    Murn_C_application_shutdown();
    EXPECT(!component_has_application());
}

static void two_unmatched_shutdowns_swallow_two_inits(void)
{
    Murn_C_application_shutdown();
    Murn_C_application_shutdown();
    Murn_C_application_init(2, first_arguments);
    Murn_C_application_init(2, first_arguments);
    EXPECT(!component_has_application());
    Murn_C_application_init(2, first_arguments);
    EXPECT(component_has_application());
    Murn_C_application_shutdown();
}

static void plain_after_counted(void)
{
    Murn_C_application_init(0, NULL);
    Murn_Application_Init(0, NULL);
}

static void counted_after_plain(void)
{
    Murn_Application_Init(0, NULL);
    Murn_C_application_init(0, NULL);
}

static void plain_twice(void)
{
    Murn_Application_Init(0, NULL);
    Murn_Application_Init(0, NULL);
}

static void second_application_is_fatal(void)
{
    const char* const line = "FATAL ERROR isTheOnlyApplication File: src/core/Application.cpp line ";
    expect_fatal(plain_after_counted, line);
    expect_fatal(counted_after_plain, line);
    expect_fatal(plain_twice, line);
}

static void register_under_plain(void)
{
    Murn_Application_Init(0, NULL);
    Murn_C_thread_register();
}

static void register_after_shutdown(void)
{
    Murn_C_application_init(0, NULL);
    Murn_C_application_shutdown();
    Murn_C_thread_register();
}

static void register_without_application_is_fatal(void)
{
    const char* const line = "FATAL ERROR murnC_app File: src/core/Application_c.cpp line ";
    expect_fatal(Murn_C_thread_register, line);
    expect_fatal(register_under_plain, line);
    expect_fatal(register_after_shutdown, line);
}

static void crash_hook_ends_the_process(void)
{
    expect_fatal(CrashHook, "01: <");
}

static void* register_twice(void* argument)
{
    (void)argument;
    EXPECT(!component_is_registered());
    Murn_C_thread_register();
    EXPECT(component_is_registered());
    Murn_C_thread_register();
    EXPECT(component_is_registered());
    component_unregister();
    EXPECT(!component_is_registered());
    return NULL;
}

static void registering_twice_is_harmless(void)
{
    Murn_C_application_init(0, NULL);
    Murn_C_thread_register(); /* the main application thread is known already */
    on_thread(register_twice, NULL);
    Murn_C_application_shutdown();
}

static void* register_and_leave(void* argument)
{
    (void)argument;
    if (__lsan_disable != NULL)
        __lsan_disable(); /* what is kept for the thread stays on purpose: C has no way to unregister */
    Murn_C_thread_register();
    if (__lsan_enable != NULL)
        __lsan_enable();
    return NULL;
}

static void shutdown_copes_with_threads_that_stay_registered(void)
{
    Murn_C_application_init(0, NULL);
    on_thread(register_and_leave, NULL);
    Murn_C_application_shutdown();
    EXPECT(!component_has_application());
}

static void events_carry_their_fields(void)
{
    int datum = 0;
    Murn_Event* event = Murn_Create_Event(7, &datum);
    EXPECT(event != NULL);
    EXPECT(Murn_Event_Get_Type(event) == 7);
    EXPECT(Murn_Event_Get_Data(event) == &datum);
    Murn_Event_Delete(event);

    event = Murn_Create_Event(0xffffffffu, NULL);
    EXPECT(Murn_Event_Get_Type(event) == 0xffffffffu);
    EXPECT(Murn_Event_Get_Data(event) == NULL);
    Murn_Event_Delete(event);

    Murn_Event_Delete(NULL);
}

static void dispatch_on_the_own_thread_is_immediate(void)
{
    int datum = 0;
    Murn_C_application_init(0, NULL);
    Murn_Object* const counter = component_new_counter();
    Murn_Application_Dispatch_Event(counter, Murn_Create_Event(12, &datum));
    EXPECT(component_count(counter) == 1);
    EXPECT(component_last_type(counter) == 12);
    EXPECT(component_last_data(counter) == &datum);
    EXPECT(component_last_came_here(counter));
    component_delete_counter(counter);
    Murn_C_application_shutdown();
}

static void* dispatch_to_counter(void* counter)
{
    Murn_Application_Dispatch_Event(counter, Murn_Create_Event(13, counter));
    EXPECT(component_count(counter) == 0);
    return NULL;
}

static void dispatch_to_another_thread_waits_for_it(void)
{
    Murn_C_application_init(0, NULL);
    Murn_Object* const counter = component_new_counter();
    on_thread(dispatch_to_counter, counter);
    EXPECT(component_count(counter) == 0);
    Murn_Application_Process_Events();
    EXPECT(component_count(counter) == 1);
    EXPECT(component_last_type(counter) == 13);
    EXPECT(component_last_data(counter) == counter);
    EXPECT(component_last_came_here(counter));
    component_delete_counter(counter);
    Murn_C_application_shutdown();
}

/* A thread of the host's own with an object on it: tells its address, and serves it until it has its event. */
struct server {
    pthread_mutex_t mutex;
    pthread_cond_t changed;
    Murn_Object* counter; /* guarded by mutex */
};

static void* serve_one_event(void* argument)
{
    struct server* const server = argument;
    Murn_C_thread_register();
    Murn_Object* const counter = component_new_counter();
    pthread_mutex_lock(&server->mutex);
    server->counter = counter;
    pthread_cond_signal(&server->changed);
    pthread_mutex_unlock(&server->mutex);

    while (component_count(counter) == 0) {
        Murn_Application_Process_Events();
        TimerSleep(1);
    }
    EXPECT(component_count(counter) == 1);
    EXPECT(component_last_type(counter) == 14);
    EXPECT(component_last_data(counter) == server);
    EXPECT(component_last_came_here(counter));
    component_delete_counter(counter);
    component_unregister();
    return NULL;
}

static void registered_threads_serve_their_objects(void)
{
    struct server server = {PTHREAD_MUTEX_INITIALIZER, PTHREAD_COND_INITIALIZER, NULL};
    pthread_t thread;
    Murn_C_application_init(0, NULL);
    EXPECT(pthread_create(&thread, NULL, serve_one_event, &server) == 0);
    pthread_mutex_lock(&server.mutex);
    while (server.counter == NULL)
        pthread_cond_wait(&server.changed, &server.mutex);
    Murn_Object* const counter = server.counter;
    pthread_mutex_unlock(&server.mutex);

    Murn_Application_Dispatch_Event(counter, Murn_Create_Event(14, &server));
    EXPECT(pthread_join(thread, NULL) == 0);
    Murn_C_application_shutdown();
}

static void* dispatch_to_quitter(void* quitter)
{
    Murn_Application_Dispatch_Event(quitter, Murn_Create_Event(15, NULL));
    return NULL;
}

static void run_main_loop(void)
{
    int came_on_main_thread = -1;
    on_thread(dispatch_to_quitter, component_new_quitter(&came_on_main_thread));
    Murn_Application_Exec();
    EXPECT(came_on_main_thread == 1);
}

static void main_loop_runs_until_quit(void)
{
    Murn_Application_Init(0, NULL);
    run_main_loop();
    Murn_Application_Cleanup();

    Murn_C_application_init(0, NULL);
    run_main_loop();
    Murn_C_application_shutdown();
}

static void processing_without_events_returns(void)
{
    Murn_C_application_init(0, NULL);
    Murn_Application_Process_Events();
    Murn_C_application_shutdown();
}

static void sleeping_tells_what_usleep_tells(void)
{
    EXPECT(TimerSleep(1) == 0);
}

static const struct {
    const char* name;
    void (*run)(void);
} cases[] = {
#define CASE(name)  \
    {               \
#name, name \
    }
    CASE(counted_creation),
    CASE(plain_creation),
    CASE(unmatched_shutdown_wraps),
    CASE(two_unmatched_shutdowns_swallow_two_inits),
    CASE(second_application_is_fatal),
    CASE(register_without_application_is_fatal),
    CASE(crash_hook_ends_the_process),
    CASE(registering_twice_is_harmless),
    CASE(shutdown_copes_with_threads_that_stay_registered),
    CASE(events_carry_their_fields),
    CASE(dispatch_on_the_own_thread_is_immediate),
    CASE(dispatch_to_another_thread_waits_for_it),
    CASE(registered_threads_serve_their_objects),
    CASE(main_loop_runs_until_quit),
    CASE(processing_without_events_returns),
    CASE(sleeping_tells_what_usleep_tells),
#undef CASE
};

int main(int argc, char** argv)
{
    int ran = 0;
    for (size_t index = 0; index < sizeof cases / sizeof *cases; ++index) {
        if (argc > 1 && strcmp(argv[1], cases[index].name) != 0)
            continue;
        cases[index].run();
        ++ran;
    }
    if (ran == 0) {
        fprintf(stderr, "There is no case \"%s\".\n", argv[1]);
        return 2;
    }
    printf("%d cases passed\n", ran);
    return 0;
}
