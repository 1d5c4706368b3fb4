#include "child_process.h"
#include "credentials.h"
#include "log_capture.h"
#include "temp_dir.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>

namespace {

// For the sandbox's eth0 (02:00:5e:10:00:01), computed apart from this code: the SHA-1
// key derivation by hand, the cipher by the openssl command line.
constexpr const char *s3cret_text = "61bb09aa7cd86abc3df65e7bb9f677e7";

std::string encrypted(const std::string &plain)
{
        return taken(encrypt_password(plain.c_str()));
}

// Only the sandbox's network namespace has this eth0, and only there may a test change it.
bool sandbox_eth0()
{
        return file_text("/sys/class/net/eth0/address") == "02:00:5e:10:00:01\n";
}

void ip_link(const std::string &arguments)
{
        gint status = -1;
        ASSERT_TRUE(g_spawn_command_line_sync(("ip link " + arguments).c_str(), nullptr, nullptr, &status, nullptr));
        ASSERT_TRUE(g_spawn_check_wait_status(status, nullptr)) << arguments;
}

TEST(Credentials, TextsMatchKnownAnswersHaveTheirLengthAndRoundTrip)
{
        ASSERT_TRUE(sandbox_eth0()) << "run inside tests/rig/sandbox (ctest does)";
        EXPECT_EQ(encrypted("s3cret"), s3cret_text);
        for (const auto &[length, text_length] : {std::pair{0, 32}, {15, 64}, {30, 64}, {31, 96}}) {
                const std::string plain(static_cast<size_t>(length), 'p');
                const std::string text = encrypted(plain);
                EXPECT_EQ(text.size(), static_cast<size_t>(text_length)) << length;
                EXPECT_EQ(taken(decrypt_password(text.c_str())), plain);
        }
        // Any case, letters count on past f (z is 35: z times 16 is 3 times 16, modulo 256); not a digit: 0.
        EXPECT_EQ(taken(decrypt_password("61BB#9AA7CD86ABCZDF65E7BB9F677E7")), "s3cret");
        EXPECT_EQ(taken(decrypt_password("61bb09aa7cd86abczdf65e7bb9f677e7f")), "s3cret"); // odd digit ignored
        EXPECT_EQ(taken(decrypt_password("7")) + taken(decrypt_password("")) + taken(decrypt_password(nullptr)), "");

        // Started with standard input closed, the address query gets descriptor 0: closed after.
        const StdinClosed closed;
        EXPECT_EQ(encrypted("s3cret"), s3cret_text);
        EXPECT_EQ(fcntl(0, F_GETFD), -1);
}

TEST(Credentials, TextsAreBoundToTheHardwareAddressAndSurviveAMissingEth0)
{
        ASSERT_TRUE(sandbox_eth0()) << "run inside tests/rig/sandbox (ctest does)";
        ip_link("set eth0 down address 02:00:5e:10:00:02");
        const std::string elsewhere = encrypted("s3cret");
        // Without eth0 each call logs the failed query and uses a stand-in address.
        ip_link("set eth0 address 02:00:5e:10:00:01 name eth9");
        LogCapture log;
        const std::string text = encrypted("s3cret");
        const std::string again = taken(decrypt_password(text.c_str()));
        ip_link("set eth9 name eth0 up");
        EXPECT_NE(taken(decrypt_password(elsewhere.c_str())), "s3cret");
        EXPECT_EQ(again, "s3cret");
        EXPECT_NE(text, s3cret_text);
        EXPECT_EQ(log.lines(), std::vector<std::string>(2, "ERROR: get_mac_address: ioctl(SIOCGIFHWADDR): No such device"));
}

} // namespace
