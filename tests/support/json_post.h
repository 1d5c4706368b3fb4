// HTTP requests from tests and benchmarks to a server on a Unix or TCP socket, through
// libcurl: the CGI's socket, as the unit's web server would reach it.
#pragma once

#include <jansson.h>
#include <sys/socket.h>

#include <memory>
#include <string>

struct JsonDecref {
        void operator()(json_t *json) const { json_decref(json); }
};
using JsonPtr = std::unique_ptr<json_t, JsonDecref>;

// The CGI's path: the only one the service serves.
inline constexpr const char *cgi_url = "http://localhost/zelk-cgi/trelvo.cgi";

struct HttpRequest {
        std::string unix_socket{}; // "" = connect to the URL's host and port
        std::string url = cgi_url;
        std::string method = "POST";
        std::string body{};
        bool chunked = false; // send the body without a length
};

struct HttpAnswer {
        long status = 0; // 0 when no answer arrived (curl_error says why)
        std::string body;
        std::string allow;      // the Allow header, if any
        std::string connection; // the Connection header, if any
        JsonPtr json;      // the body parsed, null when it is not JSON
        std::string curl_error;
};

// One client with one connection, kept alive between requests; one per thread.
class HttpClient {
public:
        HttpClient();
        ~HttpClient();
        HttpClient(const HttpClient &) = delete;
        HttpClient &operator=(const HttpClient &) = delete;

        HttpAnswer request(const HttpRequest &request);

private:
        void *curl_;
};

// One request on a connection of its own.
HttpAnswer http_request(const HttpRequest &request);
// POSTs a JSON text to the CGI path over a Unix socket.
HttpAnswer cgi_post(const std::string &unix_socket, const std::string &body);

// A listening Unix socket at path (close-on-exec), of type SOCK_STREAM unless given, as
// systemd or a provider would make it for the code under test; -1 (errno set) when it
// cannot be made.
int unix_listen(const std::string &path, int type = SOCK_STREAM);
// A client's connection to it; -1 (errno set) when it fails.
int unix_connect(const std::string &path);
// The descriptors this process has open now, to show that none was left behind.
long open_descriptors(void);

// The body of a call of the CGI's API 1.1; params is JSON text, nullptr for none.
std::string cgi_call_body(const std::string &method, const char *params = nullptr);
// "data:<data>" or "error:<error>" of a CGI answer, in compact JSON; else its HTTP
// status, body and curl's error.
std::string cgi_outcome(const HttpAnswer &answer);

// Compact JSON text of any value, "" for none.
std::string json_compact(const json_t *json);
// A member of an object; "" or 0 when it is missing or of another type.
std::string json_member_text(const json_t *object, const char *key);
json_int_t json_member_integer(const json_t *object, const char *key);
double json_member_number(const json_t *object, const char *key);
