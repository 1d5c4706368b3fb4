// The camera connection event client against a real private dbus-daemon and the real
// sim-events.
#include "events.h"
#include "log_capture.h"
#include "private_bus.h"
#include "sim_events_process.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class Events : public ::testing::Test {
protected:
        void SetUp() override { start_sim(); }
        void TearDown() override { undeclare_state_event(); }

        void start_sim()
        {
                sim = std::make_unique<SimEventsProcess>(private_bus_of_program().address());
                ASSERT_TRUE(sim->ready());
        }

        LogCapture log;
        std::unique_ptr<SimEventsProcess> sim;
};

TEST_F(Events, TheDeclarationEventsAndWithdrawalReachTheProducerAsSent)
{
        ASSERT_TRUE(declare_state_event());
        const gint64 before = g_get_real_time();
        send_state_event("connecting");
        send_state_event("connected");
        const gint64 after = g_get_real_time();
        undeclare_state_event();

        const std::vector<SimEventCall> calls = sim->log();
        ASSERT_EQ(calls.size(), 4u);
        EXPECT_EQ(calls[0].args,
                  "(false, {'topic0': 'VALUE_TYPE_STRING', 'topic1': 'VALUE_TYPE_STRING', 'state': 'VALUE_TYPE_STRING'}, "
                  "{'topic0': <'Trelvo'>, 'topic1': <'CameraConnection'>}, {'state': 'State'}, {}, "
                  "{'topic0': 'tnszelk', 'topic1': ''}, "
                  "{'topic1': <['isApplicationData']>, 'state': <['onvif-data', 'property-state']>}, 'state')");
        for (size_t i : {1u, 2u}) {
                EXPECT_EQ(calls[i].args, "(1, {'state': <'" + calls[i].state + "'>}, " +
                                                 std::to_string(calls[i].time) + ")");
                EXPECT_TRUE(calls[i].time >= before && calls[i].time <= after) << calls[i].time;
        }
        EXPECT_EQ(sim->states(), (Lines{"connecting", "connected"}));
        EXPECT_TRUE(log.lines().empty());
}

TEST_F(Events, ARefusedDeclarationLeavesIdZeroAndEachLaterFailureIsLogged)
{
        ASSERT_TRUE(sim->fail_on("DeclareEvent"));
        EXPECT_TRUE(declare_state_event());
        send_state_event("connect_failed");
        undeclare_state_event();

        // The producer's answers name the id each call carried.
        const std::string refused = "GDBus.Error:org.freedesktop.DBus.Error.InvalidArgs: no event declared with id 0";
        EXPECT_EQ(log.lines(),
                  (Lines{"WARNING: Failed to call \"DeclareEvent\" on event producer service: "
                         "GDBus.Error:org.freedesktop.DBus.Error.Failed: DeclareEvent refused (FailOn)",
                         "WARNING: Failed to call \"SendEvent\" for ChannelANY on event producer service: " + refused,
                         "WARNING: undeclare_state_event: Failed to call \"UndeclareEvent\" on event producer "
                         "service: " + refused}));
}

// Gone while asked (no reply) or gone before (no owner): nothing to withdraw, nothing said.
TEST_F(Events, AProducerThatIsGoneAtShutdownIsNotReported)
{
        ASSERT_TRUE(declare_state_event());
        ASSERT_TRUE(sim->vanish_on("UndeclareEvent"));
        undeclare_state_event();
        EXPECT_EQ(sim->wait_exit(), 0);

        start_sim();
        ASSERT_TRUE(declare_state_event());
        sim->stop();
        undeclare_state_event();
        EXPECT_TRUE(log.lines().empty());
}

} // namespace
