// The steps of the tour. A new one is a file with its Step, a line here, and a line in the list of main.cpp.
#ifndef TOUR_STEPS_H
#define TOUR_STEPS_H

#include <kxPAL/Application.h>

#include "Findings.h"

/// One stop of the tour.
struct Step {
    const char* title;
    /// Called on the main application thread, outside of its loop. Leaves no object bound to that thread behind.
    Findings (*walk)(Murn::Application& application);
};

extern const Step loggingStep;
extern const Step eventsStep;
extern const Step cInterfaceStep;
extern const Step timersStep;
extern const Step poolStep;
extern const Step addressesStep;
extern const Step interfacesStep;
extern const Step multicastStep;
extern const Step serverStep;
extern const Step valuesStep;
extern const Step filesStep;
extern const Step pluginsStep;
extern const Step leavingStep;

#endif
