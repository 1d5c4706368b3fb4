// The live view's listener to the simulated event producer on the private system bus:
// every call it records (the service's declarations and state events) arrives as its
// "Recorded" signal. The view starts before the service, so it hears every call. Only the
// bus in DBUS_SYSTEM_BUS_ADDRESS is used, never the machine's own: without it, no events.
#pragma once

#include "view_model.h"

void view_events_start(ViewModel *model);
void view_events_stop(void);

// One recorded call (the signal's JSON text) as an event; false when it is not one.
bool view_events_parse(const char *json, ViewEvent *event);
