// The camera connection's state as a platform event of the unit's event producer: one
// stateful event type declared at start-up, one event per state change, withdrawn at
// shutdown. Main loop only; every call blocks until the producer answers.
#pragma once

#include <glib.h>

// FALSE only when no proxy to the event producer can be made.
gboolean declare_state_event(void);
// state: the connection state's name, e.g. "connected".
void send_state_event(const gchar *state);
void undeclare_state_event(void);
