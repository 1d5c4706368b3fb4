#include "dbus_service.h"

#include "camera.h"
#include "log.h"
#include "persistent.h"
#include "radar_metadata.h"

#include <glib.h>
#include <systemd/sd-bus.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <poll.h>

// sd-bus's connection as a GLib source: it polls the connection's descriptor for the
// events sd-bus asks for, wakes at sd-bus's own time-outs, and hands the connection to
// its callback when there is work.
struct BusSource {
        GSource source;
        sd_bus *bus;     // one reference, released in finalize
        gpointer fd_tag; // tag of the watched descriptor, NULL before the first prepare
        int fd;          // descriptor currently watched, while fd_tag is set
        int events;      // sd-bus event mask last registered
};

struct DbusService {
        sd_bus *bus;
        sd_bus_slot *slot;
        BusSource *source;
        gboolean tracking_enabled; // served as TrackingEnabled by sd-bus's default getter
};

namespace {

constexpr const char *service_name = "com.zelk.Trelvo1";
constexpr const char *service_object_path = "/com/zelk/Trelvo1";
constexpr const char *service_interface = "com.zelk.Trelvo1";

int method_enabled(sd_bus_message *message, void *userdata, sd_bus_error *)
{
        auto *service = static_cast<DbusService *>(userdata);
        int enabled;
        const int r = sd_bus_message_read(message, "b", &enabled);
        if (r < 0) {
                log_error("%s%s: Failed to parse parameters: %s", "method_enabled", strerror(-r));
                return r;
        }
        radar_metadata_request_enabled(enabled);
        tracking_set_enabled(enabled);
        persistent_set_tracking_enabled(enabled);
        service->tracking_enabled = enabled;
        return sd_bus_reply_method_return(message, nullptr);
}

// TrackingEnabled keeps its last D-Bus or start-up value: a change made through the CGI
// does not reach it, and no PropertiesChanged is sent.
const sd_bus_vtable service_vtable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("SetTrackingEnabled", "b", "", method_enabled, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_PROPERTY("TrackingEnabled", "b", nullptr, offsetof(DbusService, tracking_enabled),
                        SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
        SD_BUS_VTABLE_END,
};

GIOCondition bus_source_condition(int events)
{
        unsigned condition = 0;
        if (events & POLLIN)
                condition |= G_IO_IN;
        if (events & POLLPRI)
                condition |= G_IO_PRI;
        if (events & POLLOUT)
                condition |= G_IO_OUT;
        return static_cast<GIOCondition>(condition);
}

// "%m" (the C library's text for errno) is a GNU extension that the pedantic format
// check refuses; the line below gives sd-bus's own reason with it.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
void bus_source_log_timeout_failure(int r)
{
        errno = -r;
        log_warning("%sFailed to get timeout for sd-bus: %m");
}
#pragma GCC diagnostic pop

void bus_source_watch_fd(BusSource *source)
{
        const int events = sd_bus_get_events(source->bus);
        const int fd = sd_bus_get_fd(source->bus);
        if (!source->fd_tag || fd != source->fd) {
                if (source->fd_tag)
                        g_source_remove_unix_fd(&source->source, source->fd_tag);
                source->fd_tag = g_source_add_unix_fd(&source->source, fd, bus_source_condition(events));
                source->fd = fd;
                source->events = events;
        } else if (events != source->events) {
                g_source_modify_unix_fd(&source->source, source->fd_tag, bus_source_condition(events));
                source->events = events;
        }
}

gboolean bus_source_prepare(GSource *base, gint *timeout)
{
        auto *source = reinterpret_cast<BusSource *>(base);
        bus_source_watch_fd(source);
        uint64_t until_us; // sd-bus's next deadline (CLOCK_MONOTONIC); 0: now; UINT64_MAX: none
        const int r = sd_bus_get_timeout(source->bus, &until_us);
        if (r < 0) {
                bus_source_log_timeout_failure(r);
                until_us = UINT64_MAX;
        }
        // GLib counts the same clock, so it wakes the loop at the deadline itself. A passed
        // deadline is work too: sd-bus answers the pending call with an error.
        g_source_set_ready_time(base, until_us == UINT64_MAX ? -1 : static_cast<gint64>(until_us));
        *timeout = -1;
        return FALSE;
}

gboolean bus_source_check(GSource *base)
{
        auto *source = reinterpret_cast<BusSource *>(base);
        return g_source_query_unix_fd(base, source->fd_tag) != 0;
}

// GLib dispatches only after prepare or check found work.
gboolean bus_source_dispatch(GSource *, GSourceFunc callback, gpointer user_data)
{
        return callback(user_data);
}

void bus_source_finalize(GSource *base)
{
        auto *source = reinterpret_cast<BusSource *>(base);
        sd_bus_unref(source->bus);
}

GSourceFuncs bus_source_funcs = {bus_source_prepare, bus_source_check, bus_source_dispatch, bus_source_finalize,
                                 nullptr, nullptr};

BusSource *bus_source_new(sd_bus *bus)
{
        // Zeroed by GLib: no descriptor watched yet.
        auto *source = reinterpret_cast<BusSource *>(g_source_new(&bus_source_funcs, sizeof(BusSource)));
        source->bus = sd_bus_ref(bus);
        return source;
}

// Takes one step of sd-bus's work. A processing error ends the service on the bus:
// the source is removed and nothing is answered from then on.
gboolean bus_process(gpointer user_data)
{
        auto *service = static_cast<DbusService *>(user_data);
        // One step per dispatch: while sd-bus holds more queued work its deadline is now,
        // so the loop comes straight back, and other sources get their turn in between.
        const int r = sd_bus_process(service->bus, nullptr);
        if (r < 0) {
                log_error("%sFailed to process bus: %s", strerror(-r));
                return G_SOURCE_REMOVE;
        }
        return G_SOURCE_CONTINUE;
}

} // namespace

int dbus_setup(DbusService **out)
{
        auto *service = new DbusService{};
        service->tracking_enabled = tracking_get_enabled();

        int r = sd_bus_default_system(&service->bus);
        if (r < 0) {
                log_error("%sFailed to connect to system bus: %s", strerror(-r));
                delete service;
                return r;
        }
        r = sd_bus_add_object_vtable(service->bus, &service->slot, service_object_path, service_interface,
                                     service_vtable, service);
        if (r < 0) {
                log_error("%sFailed to add interface: %s", strerror(-r));
                sd_bus_flush_close_unref(service->bus);
                delete service;
                return r;
        }
        r = sd_bus_request_name(service->bus, service_name, 0);
        if (r < 0) {
                log_error("%sFailed to acquire service name: %s", strerror(-r));
                sd_bus_slot_unref(service->slot);
                sd_bus_flush_close_unref(service->bus);
                delete service;
                return r;
        }

        service->source = bus_source_new(service->bus);
        g_source_set_callback(&service->source->source, bus_process, service, nullptr);
        g_source_attach(&service->source->source, nullptr);
        *out = service;
        return r;
}

void dbus_cleanup(DbusService *service)
{
        if (!service)
                return;
        g_source_destroy(&service->source->source);
        g_source_unref(&service->source->source);
        sd_bus_slot_unref(service->slot);
        sd_bus_flush_close_unref(service->bus);
        delete service;
}
