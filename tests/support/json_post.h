// HTTP requests from tests and benchmarks to a server on a Unix or TCP socket, through
// libcurl: the CGI's socket, as the unit's web server would reach it.
#pragma once

#include <jansson.h>

#include <memory>
#include <string>

struct JsonDecref {
        void operator()(json_t *json) const { json_decref(json); }
};
using JsonPtr = std::unique_ptr<json_t, JsonDecref>;

// The CGI's path: the only one the service serves.
inline constexpr const char *cgi_url = "http://localhost/zelk-cgi/trelvo.cgi";

struct HttpRequest {
        std::string unix_socket; // "" = connect to the URL's host and port
        std::string url = cgi_url;
        std::string method = "POST";
        std::string body;
        bool chunked = false; // send the body without a length
};

struct HttpAnswer {
        long status = 0; // 0 when no answer arrived (curl_error says why)
        std::string body;
        std::string allow; // the Allow header, if any
        JsonPtr json;      // the body parsed, null when it is not JSON
        std::string curl_error;
        double seconds = 0; // from start to the last byte
        long new_connections = 0; // connections opened for it (0: it went on a kept one)
};

// One client with one connection, kept alive between requests. Not thread-safe: one
// per thread.
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
