// The CGI library on a listening socket made here, driven over real HTTP with libcurl from
// client threads while this thread serves.
#include "child_process.h"
#include "json_post.h"
#include "rcgi.h"
#include "temp_dir.h"

#include <glib-unix.h>
#include <glib.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// API codes that show which library failure was reported: 900 + its magnitude.
int map_error_code(int library_code)
{
        return 900 - library_code;
}

const char *error_message(int code)
{
        return code == 300 ? "Faulty" : "Other";
}

int echo_params(const RcgiRequest *request, RcgiResponse *response)
{
        response->data = json_deep_copy(request->params);
        return 0;
}

using Request = const RcgiRequest *;
// "plain" sets data, which its error drops.
const RcgiMethod methods_v1[] = {
        {"echo", echo_params, 1, 1},
        {"fail", [](Request, RcgiResponse *r) { return rcgi_errorf(r, 301, "custom %d for '%s'", 7, "x"); }, 0, 1},
        {"quiet", [](Request, RcgiResponse *r) { return rcgi_errorf(r, 302, "%s", ""); }, 0, 1}, // "" is a message
        {"plain", [](Request, RcgiResponse *r) { r->data = json_object(); return 300; }, 0, 1},
        {"nodata", [](Request, RcgiResponse *) { return 0; }, 0, 1},
        {"disabled", echo_params, 0, 0}, {nullptr, nullptr, 0, 0},
};
const RcgiMethod methods_v2[] = {{"v2only", echo_params, 0, 1}, {nullptr, nullptr, 0, 0}};
const RcgiApiVersion versions[] = {
        {1, 1, methods_v1, map_error_code, error_message, nullptr},
        {2, 0, methods_v2, map_error_code, error_message, nullptr},
        {0, 9, methods_v2, map_error_code, error_message, nullptr}, // what a version without digits must not reach
};
const RcgiApi api = {3, versions, nullptr};

constexpr const char *path = "/zelk-cgi/trelvo.cgi";

// A GLib or libsoup warning is a fault of the library.
const bool warnings_fatal = (g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_WARNING |
                                                                               G_LOG_LEVEL_CRITICAL)),
                             true);

gboolean on_readable(gint, GIOCondition, gpointer handle)
{
        rcgi_perform(static_cast<RcgiHandle *>(handle));
        return G_SOURCE_CONTINUE;
}

// The library serving the API at path on a listening socket, watched by the main loop.
class Rcgi : public ::testing::Test {
protected:
        void SetUp() override
        {
                int watch_fd = -1;
                EXPECT_EQ(rcgi_new(listening_, 0, &handle_, &watch_fd), 0);
                EXPECT_EQ(watch_fd, listening_);
                EXPECT_EQ(rcgi_add_path(handle_, path, &api), 0);
                watch_ = g_unix_fd_add(watch_fd, G_IO_IN, on_readable, handle_);
        }
        void TearDown() override
        {
                g_source_remove(watch_);
                rcgi_free(handle_);
                close(listening_);
        }

        HttpAnswer request(HttpRequest request, HttpClient *client = nullptr)
        {
                request.unix_socket = dir_.file("cgi.sock");
                HttpAnswer answer;
                serve_while([&] { answer = client ? client->request(request) : http_request(request); });
                return answer;
        }

        HttpAnswer post(const std::string &body)
        {
                return request({.body = body});
        }

        // The status line a client gets for head alone, the body held back until the server
        // says "100 Continue".
        std::string first_answer_to(const std::string &head)
        {
                std::string line;
                serve_while([&] {
                        const int fd = unix_connect(dir_.file("cgi.sock"));
                        const std::string text = head + "\r\nHost: x\r\nExpect: 100-continue\r\n\r\n";
                        char c;
                        if (write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()))
                                while (read(fd, &c, 1) == 1 && c != '\r')
                                        line += c;
                        close(fd);
                });
                return line;
        }

        TempDir dir_{"rcgi"};
        int listening_ = unix_listen(dir_.file("cgi.sock"));
        RcgiHandle *handle_ = nullptr;
        guint watch_ = 0;
};

TEST_F(Rcgi, AnswersCarryTheEnvelopeInOrderAndLibraryFailuresFollowTheirPrecedence)
{
        const std::pair<std::string, std::string> cases[] = {
                {R"({"apiVersion": "1.1", "context": {"a": [1, "x"]}, "method": "echo", "params": {"x": 1, "y": null}})",
                 R"({"apiVersion":"1.1","context":{"a":[1,"x"]},"method":"echo","data":{"x":1,"y":null}})"},
                {R"({"method": "nope", "context": 5, "apiVersion": "1.1"})",
                 R"({"apiVersion":"1.1","context":5,"method":"nope","error":{"code":904,"message":"Other"}})"},
                {R"({"apiVersion": "2.7", "method": "v2only"})", R"({"apiVersion":"2.0","method":"v2only","data":{}})"},
                {R"({"apiVersion": "1", "method": "fail", "context": null})",
                 R"({"apiVersion":"1.1","context":null,"method":"fail","error":{"code":301,"message":"custom 7 for 'x'"}})"},
                {R"({"apiVersion": "1.1", "method": "quiet"})",
                 R"({"apiVersion":"1.1","method":"quiet","error":{"code":302,"message":""}})"},
                {R"({"apiVersion": "1.1", "method": "plain"})",
                 R"({"apiVersion":"1.1","method":"plain","error":{"code":300,"message":"Faulty"}})"},
                {R"({"apiVersion": "1.1", "method": "nodata"})",
                 R"({"apiVersion":"1.1","method":"nodata","error":{"code":906,"message":"Other"}})"},
                {"[1]", R"({"apiVersion":"1.1","error":{"code":907,"message":"Other"}})"},
        };
        const std::pair<std::string, int> failures[] = {
                // -7: not a JSON object, whatever else is wrong
                {"", 907}, {"\"text\"", 907}, {"{\"method\": \"echo\", \"method\": \"echo\"}", 907},
                {"{\"apiVersion\": \"1.1\", \"method\": \"echo\", \"params\": {\"x\": \"a\\u0000b\"}}", 907},
                // -1 before -5
                {R"({"apiVersion": "9.1", "params": 3})", 901}, {R"({"apiVersion": "1.1", "method": 1})", 901},
                // -5 before -4: the major number decides; the text must be M or M.m
                {R"({"apiVersion": 1.1, "method": "echo"})", 905}, {R"({"apiVersion": "3.1", "method": "echo"})", 905},
                {R"({"apiVersion": "1.", "method": "echo"})", 905}, {R"({"apiVersion": "", "method": "v2only"})", 905},
                {R"({"apiVersion": "11.1", "method": "echo"})", 905},
                {R"({"apiVersion": "4294967297.1", "method": "echo"})", 905}, // not 1 modulo 2^32
                // -4 before -3: unknown in the requested version, or not enabled
                {R"({"apiVersion": "1.1", "method": "nope", "params": 5})", 904},
                {R"({"apiVersion": "1.1", "method": "disabled", "params": {}})", 904},
                {R"({"apiVersion": "2.0", "method": "echo", "params": {}})", 904},
                // -3 before -2
                {R"({"apiVersion": "1.1", "method": "echo", "params": []})", 903},
                {R"({"apiVersion": "1.1", "method": "echo", "params": null})", 903},
                {R"({"apiVersion": "1.1", "method": "echo"})", 902},
        };
        // A client per request, each closing its connection after the answer: the library
        // keeps no descriptor of a connection its client is done with.
        post(cases[0].first); // the descriptors that the first use opens for good
        const long descriptors = open_descriptors();
        for (const auto &[body, expected] : cases) {
                const HttpAnswer answer = post(body);
                EXPECT_EQ(answer.status, 200) << body;
                EXPECT_EQ(answer.body, expected) << body;
        }
        for (const auto &[body, code] : failures) {
                const HttpAnswer answer = post(body);
                EXPECT_EQ(json_integer_value(json_object_get(json_object_get(answer.json.get(), "error"), "code")), code)
                        << body.substr(0, 80) << " -> " << answer.body;
        }
        std::string largest = R"({"apiVersion": "1.1", "method": "echo", "params": {}})";
        largest.append(RCGI_MAX_BODY_SIZE - largest.size(), ' ');
        EXPECT_EQ(post(largest).status, 200);
        for (int i = 0; i < 1000 && open_descriptors() > descriptors; i++)
                g_main_context_iteration(nullptr, FALSE);
        EXPECT_EQ(open_descriptors(), descriptors);
}

TEST_F(Rcgi, OtherPathsMethodsAndOversizedBodiesGetHttpStatusesWithoutEnvelope)
{
        struct Case {
                std::string url_path;
                std::string method;
                size_t body_size;
                bool chunked;
                long status;
        };
        const Case cases[] = {
                {"/zelk-cgi/other.cgi", "POST", 2, false, 404},
                {"/zelk-cgi/trelvo.cgi/x", "GET", 0, false, 404},
                {"/zelk-cgi/trelvo.cgi", "PUT", 0, false, 405},
                {"/zelk-cgi/trelvo.cgi", "POST", RCGI_MAX_BODY_SIZE + 1, false, 413},
                {"/zelk-cgi/trelvo.cgi", "POST", 4 * RCGI_MAX_BODY_SIZE, true, 413},
                {"/zelk-cgi/trelvo.cgi?x=1", "POST", 2, true, 200},
        };
        HttpClient client;
        for (const Case &c : cases) {
                const std::string body = "{}" + std::string(c.body_size > 2 ? c.body_size - 2 : 0, ' ');
                const HttpAnswer answer = request({.url = "http://localhost" + c.url_path, .method = c.method,
                                                   .body = body, .chunked = c.chunked}, &client);
                EXPECT_EQ(answer.status, c.status) << c.method << " " << c.url_path << " " << answer.curl_error;
                EXPECT_EQ(answer.allow, c.status == 405 ? "POST" : "") << c.method << " " << c.url_path;
                EXPECT_EQ(answer.connection, "close") << "one request per connection";
                EXPECT_TRUE(c.status == 200 || !answer.json) << answer.body;
        }
        // A refusal that needs no body goes out before the body is sent.
        const std::string length = "\r\nContent-Length: ";
        EXPECT_EQ(first_answer_to("POST /zelk-cgi/other.cgi HTTP/1.1" + length + "2"), "HTTP/1.1 404 Not Found");
        EXPECT_EQ(first_answer_to("PUT /zelk-cgi/trelvo.cgi HTTP/1.1" + length + "2"), "HTTP/1.1 405 Method Not Allowed");
        EXPECT_EQ(first_answer_to("POST /zelk-cgi/trelvo.cgi HTTP/1.1" + length + std::to_string(RCGI_MAX_BODY_SIZE + 1)),
                  "HTTP/1.1 413 Request Entity Too Large");
        EXPECT_EQ(first_answer_to("POST /zelk-cgi/trelvo.cgi HTTP/1.1" + length + "2"), "HTTP/1.1 100 Continue");
}

// Out of descriptors, the accept fails for a reason of its own: reported at once, not tried again.
TEST_F(Rcgi, AnAcceptThatFailsIsReportedAtOnce)
{
        const int client = unix_connect(dir_.file("cgi.sock"));
        const int lowest_free = dup(client);
        close(lowest_free);
        struct rlimit saved;
        ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
        const struct rlimit none_left = {static_cast<rlim_t>(lowest_free), saved.rlim_max};
        ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none_left), 0);
        const int result = rcgi_perform(handle_);
        setrlimit(RLIMIT_NOFILE, &saved);
        EXPECT_EQ(result, -EMFILE);
        close(client);
}

TEST(RcgiSetUp, RefusesWhatItCannotServe)
{
        RcgiHandle *handle = nullptr;
        int watch_fd = -1;
        int pipe_fds[2];
        ASSERT_EQ(pipe(pipe_fds), 0);
        const int unbound = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const int datagram = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        EXPECT_EQ(rcgi_new(pipe_fds[0], 0, &handle, &watch_fd), -ENOTSOCK);
        EXPECT_EQ(rcgi_new(unbound, 0, &handle, &watch_fd), -EINVAL);
        EXPECT_EQ(rcgi_new(datagram, 0, &handle, &watch_fd), -ESOCKTNOSUPPORT);
        EXPECT_EQ(handle, nullptr);
        for (int fd : {pipe_fds[0], pipe_fds[1], datagram})
                close(fd);

        const struct sockaddr_un autobind = {AF_UNIX, {}}; // an abstract address of the kernel's choice
        ASSERT_EQ(bind(unbound, reinterpret_cast<const sockaddr *>(&autobind), sizeof(sa_family_t)), 0);
        ASSERT_EQ(listen(unbound, 1), 0);
        EXPECT_EQ(rcgi_new(unbound, 1, &handle, &watch_fd), -EINVAL);
        ASSERT_EQ(rcgi_new(unbound, 0, &handle, &watch_fd), 0);
        const RcgiApiVersion incomplete_version = {1, 1, methods_v1, map_error_code, nullptr, nullptr};
        const RcgiApi incomplete = {1, &incomplete_version, nullptr};
        const RcgiApi no_versions = {0, versions, nullptr};
        const RcgiApi one_version = {1, versions, nullptr};
        EXPECT_EQ(rcgi_add_path(handle, "relative.cgi", &api), -EINVAL);
        EXPECT_EQ(rcgi_add_path(handle, path, &incomplete), -EINVAL);
        EXPECT_EQ(rcgi_add_path(handle, path, &no_versions), -EINVAL);
        EXPECT_EQ(rcgi_add_path(handle, path, &one_version), 0);
        EXPECT_EQ(rcgi_add_path(handle, path, &api), -EEXIST);
        EXPECT_EQ(rcgi_perform(handle), 0); // nothing pending: returns at once
        rcgi_free(handle);
        rcgi_free(nullptr);
        close(unbound);
}

} // namespace
