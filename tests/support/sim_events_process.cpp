#include "sim_events_process.h"

#include "json_post.h"
#include "private_bus.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

SimEventCall sim_events_parse_call(const json_t *object)
{
        return SimEventCall{.method = json_member_text(object, "method"),
                            .id = static_cast<int>(json_member_integer(object, "id")),
                            .args = json_member_text(object, "args"),
                            .state = json_member_text(object, "state"),
                            .time = json_member_integer(object, "time"),
                            .failed = json_is_true(json_object_get(object, "failed"))};
}

} // namespace

SimEventsProcess::SimEventsProcess(const std::string &bus_address)
{
        start({TRELVO_SIM_EVENTS}, {"DBUS_SYSTEM_BUS_ADDRESS=" + bus_address}, "sim-events: ready");
        if (ready())
                connection_ = private_bus_connect(bus_address);
}

SimEventsProcess::~SimEventsProcess()
{
        if (connection_)
                g_dbus_connection_close_sync(connection_, nullptr, nullptr);
        g_clear_object(&connection_);
}

GVariant *SimEventsProcess::call(const char *method, GVariant *args)
{
        return private_bus_call(connection_, "com.zelk.EventProducerd1", "/com/zelk/EventProducerd1",
                                "com.zelk.EventProducerd1.Sim", method, args);
}

bool SimEventsProcess::control(const char *method, const char *argument)
{
        g_autoptr(GVariant) reply = call(method, argument ? g_variant_new("(s)", argument) : nullptr);
        return reply != nullptr;
}

std::vector<SimEventCall> SimEventsProcess::log()
{
        std::vector<SimEventCall> calls;
        g_autoptr(GVariant) reply = call("GetLog", nullptr);
        const gchar *text = "";
        if (reply)
                g_variant_get(reply, "(&s)", &text);
        const JsonPtr array(json_loads(text, 0, nullptr));
        if (reply && !json_is_array(array.get()))
                ADD_FAILURE() << "sim-events sent a log that is not a JSON array: " << text;
        size_t index;
        json_t *object;
        json_array_foreach(array.get(), index, object)
                calls.push_back(sim_events_parse_call(object));
        return calls;
}

std::vector<std::string> SimEventsProcess::states()
{
        std::vector<std::string> sent;
        for (const SimEventCall &c : log())
                if (c.method == "SendEvent")
                        sent.push_back(c.state);
        return sent;
}

bool SimEventsProcess::wait_for_states(const std::vector<std::string> &expected, double seconds)
{
        std::vector<std::string> sent;
        const auto ends_as_expected = [&] {
                sent = states();
                return sent.size() >= expected.size() && std::equal(expected.rbegin(), expected.rend(), sent.rbegin());
        };
        if (poll_until(ends_as_expected, seconds))
                return true;
        ADD_FAILURE() << "sim-events: the states sent " << ::testing::PrintToString(sent) << " do not end with "
                      << ::testing::PrintToString(expected) << " after " << seconds << " s";
        return false;
}
