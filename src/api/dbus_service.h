// The control service on the system bus: com.zelk.Trelvo1 at /com/zelk/Trelvo1, with the
// method SetTrackingEnabled(b) and the read-only property TrackingEnabled. Served from
// the GLib main loop; every call runs there.
#pragma once

struct DbusService;

// Publishes the service. Returns a negative errno when the bus, the object or the name
// cannot be had (logged; nothing is left behind and *out is untouched), otherwise the
// result of the name request (1: primary owner) with the new service in *out.
int dbus_setup(DbusService **out);
// Withdraws the service and frees it.
void dbus_cleanup(DbusService *service);
