#include "child_process.h"
#include "in_process_provider.h"
#include "json_post.h"
#include "radar_scene_subscriber.h"
#include "temp_dir.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <thread>
#include <utility>
#include <unistd.h>

namespace {

using Bytes = std::vector<uint8_t>;

// What the callback received: each frame copied up to its own length field.
std::mutex delivered_mutex;
std::vector<Bytes> delivered;

void collect(uint8_t *frame)
{
        // Reading up to the length field, as the frame decoder does, lets the sanitizers see a short buffer.
        const uint32_t length =
                std::max<uint32_t>((uint32_t{frame[0]} << 24) | (frame[1] << 16) | (frame[2] << 8) | frame[3], 4);
        Bytes copy(frame, frame + length);
        free(frame);
        std::lock_guard lock(delivered_mutex);
        delivered.push_back(std::move(copy));
}

std::vector<Bytes> frames()
{
        std::lock_guard lock(delivered_mutex);
        return delivered;
}

bool wait_for_frames(size_t n)
{
        return poll_until([n] { return frames().size() >= n; }, 10, 1);
}

// Signals the reader thread once it sleeps in its wait (the handler stays: it may land later).
void interrupt_reader()
{
        struct sigaction nothing = {};
        nothing.sa_handler = [](int) {};
        sigaction(SIGUSR1, &nothing, nullptr);
        pid_t reader = 0;
        ASSERT_TRUE(poll_until([&reader] {
                g_autoptr(GDir) tasks = g_dir_open("/proc/self/task", 0, nullptr);
                for (const char *tid; tasks && (tid = g_dir_read_name(tasks));)
                        if (file_text(std::string("/proc/self/task/") + tid + "/stat").find("(scene-reader) S") !=
                            std::string::npos)
                                reader = static_cast<pid_t>(atoi(tid));
                return reader > 0;
        }, 10));
        EXPECT_EQ(syscall(SYS_tgkill, getpid(), reader, SIGUSR1), 0);
}

class SubscriberTest : public ::testing::Test {
protected:
        void SetUp() override
        {
                g_setenv("RADAR_SCENE_PROVIDER_SOCKET", path_.c_str(), TRUE);
                std::lock_guard lock(delivered_mutex);
                delivered.clear();
        }
        void TearDown() override { radar_scene_subscriber_delete(subscriber_); }
        // Waits until the provider has accepted `connections` in all, so later packets reach the reader.
        void subscribe(InProcessProvider &provider, size_t connections)
        {
                ASSERT_TRUE(provider.ok()) << provider.error();
                subscriber_ = subscriber_ ? subscriber_ : radar_scene_subscriber_create(0, 3, 0);
                radar_scene_subscriber_set_on_message_arrived_callback(subscriber_, collect);
                radar_scene_subscriber_set_reconnect(subscriber_, 1);
                ASSERT_EQ(radar_scene_subscriber_subscribe(subscriber_), 0);
                ASSERT_TRUE(provider.publisher().wait_for_accepted(connections, 10000));
        }

        TempDir dir_{"subscriber"};
        const std::string path_ = dir_.file("scene-provider.sock");
        RadarSceneSubscriber *subscriber_ = nullptr;
};

TEST_F(SubscriberTest, DeliversPacketsInOrderPaddedToTheirLengthField)
{
        InProcessProvider provider(path_, {}); // no classification names: scenes flow all the same
        subscribe(provider, 1);
        interrupt_reader(); // a wait cut short by a signal is taken up again

        const std::vector<Bytes> packets = {
                {0, 0, 0, 6, 0x08, 0x01},
                {0, 0, 0, 12, 0x08, 0x01},            // claims 6 bytes more than it has
                {0, 0},                               // not even a whole length field
                {},                                   // not the end of the connection
                {0x7F, 0xFF, 0xFF, 0xFF, 0x08, 0x01}, // beyond any frame: dropped
                {0, 0, 0, 5, 0x08, 0x01, 0x02},       // more than its length field says
        };
        for (const Bytes &packet : packets)
                provider.publisher().publish(packet.data(), packet.size());
        ASSERT_TRUE(wait_for_frames(5));
        EXPECT_EQ(frames(), (std::vector<Bytes>{packets[0], {0, 0, 0, 12, 0x08, 0x01, 0, 0, 0, 0, 0, 0},
                                                {0, 0, 0, 0}, {0, 0, 0, 0}, {0, 0, 0, 5, 0x08}}));
}

TEST_F(SubscriberTest, ReconnectsToARestartedProviderKeepsOldNamesReadableAndResubscribes)
{
        subscriber_ = radar_scene_subscriber_create(0, 3, 0);
        char **names = reinterpret_cast<char **>(0x1);
        EXPECT_EQ(radar_scene_subscriber_get_object_classifications(subscriber_, &names), 0);
        EXPECT_EQ(names, nullptr);
        radar_scene_subscriber_set_reconnect(subscriber_, 1);
        ASSERT_EQ(radar_scene_subscriber_subscribe(subscriber_), 0);
        EXPECT_EQ(radar_scene_subscriber_unsubscribe(subscriber_), 0) << "ends the retry wait";
        {
                // An empty name and one with a space survive the NUL-separated packet.
                InProcessProvider provider(path_, {"Human", "", "Small Object"});
                ASSERT_TRUE(provider.ok()) << provider.error();
                ASSERT_EQ(radar_scene_subscriber_get_object_classifications(subscriber_, &names), 3);
                EXPECT_STREQ(names[1], "");
                EXPECT_STREQ(names[2], "Small Object");
                subscribe(provider, 2);
        }
        // The provider is gone and comes back with other names; the retry finds it.
        InProcessProvider restarted(path_, {"Human", "Vehicle"});
        ASSERT_TRUE(restarted.ok()) << restarted.error();
        ASSERT_TRUE(restarted.publisher().wait_for_accepted(1, 10000));
        const Bytes frame = {0, 0, 0, 5, 0x04};
        restarted.publisher().publish(frame.data(), frame.size());
        ASSERT_TRUE(wait_for_frames(1));
        EXPECT_EQ(frames()[0], frame);

        EXPECT_STREQ(names[0], "Human"); // the first list stays valid until delete
        char **current = nullptr;
        ASSERT_EQ(radar_scene_subscriber_get_object_classifications(subscriber_, &current), 2);
        EXPECT_STREQ(current[1], "Vehicle");

        ASSERT_EQ(radar_scene_subscriber_unsubscribe(subscriber_), 0);
        subscribe(restarted, 2);
        restarted.publisher().publish(frame.data(), frame.size());
        EXPECT_TRUE(wait_for_frames(2));
}

// A service started with standard input closed gets descriptor 0 for the first one it opens.
TEST_F(SubscriberTest, TakesDescriptorZeroLikeAnyOther)
{
        InProcessProvider provider(path_, {"Human"});
        const StdinClosed closed;
        RadarSceneSubscriber *waking_on_zero = subscriber_ = radar_scene_subscriber_create(0, 3, 0);
        subscribe(provider, 1);
        ASSERT_EQ(radar_scene_subscriber_unsubscribe(subscriber_), 0);
        subscriber_ = radar_scene_subscriber_create(0, 3, 0);
        radar_scene_subscriber_delete(waking_on_zero);
        EXPECT_EQ(fcntl(0, F_GETFD), -1) << "the wake-up descriptor is closed";
        char **names = nullptr;
        EXPECT_EQ(radar_scene_subscriber_get_object_classifications(subscriber_, &names), 1) << "asked on 0";
        subscribe(provider, 3); // the reader's connection is 0 again
        provider.publisher().publish(std::array<uint8_t, 5>{0, 0, 0, 5, 4}.data(), 5);
        EXPECT_TRUE(wait_for_frames(1));
        radar_scene_subscriber_delete(std::exchange(subscriber_, nullptr));
}

// A first packet without the "RSP1" greeting, or too short to hold it, names nothing;
// nor does a provider that is not there.
TEST_F(SubscriberTest, AProviderThatDoesNotGreetNamesNoClasses)
{
        subscriber_ = radar_scene_subscriber_create(0, 3, 0);
        const long descriptors = open_descriptors();
        for (const std::string greeting : {"RSQ1Human", "RSP"}) {
                const int listening = unix_listen(path_, SOCK_SEQPACKET);
                ASSERT_GE(listening, 0);
                std::thread provider([&] {
                        const int fd = accept(listening, nullptr, nullptr);
                        EXPECT_EQ(send(fd, greeting.data(), greeting.size(), 0), static_cast<ssize_t>(greeting.size()));
                        close(fd);
                });
                char **names = nullptr;
                EXPECT_EQ(radar_scene_subscriber_get_object_classifications(subscriber_, &names), 0) << greeting;
                provider.join();
                close(listening);
                unlink(path_.c_str());
        }
        char **names = nullptr;
        EXPECT_EQ(radar_scene_subscriber_get_object_classifications(subscriber_, &names), 0);
        EXPECT_EQ(open_descriptors(), descriptors) << "the asking connections are closed";
}

} // namespace
