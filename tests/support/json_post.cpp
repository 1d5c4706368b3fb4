#include "json_post.h"

#include <curl/curl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <cstring>

namespace {

// Requests never hang a test: a server that does not answer fails the request.
constexpr long request_timeout_ms = 20000;

size_t http_client_collect_body(char *data, size_t size, size_t n, void *user_data)
{
        static_cast<std::string *>(user_data)->append(data, size * n);
        return size * n;
}

// curl's global set-up is not thread-safe: done once, before any client of any thread.
void *http_client_new_handle(void)
{
        static const bool initialised = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
        return initialised ? curl_easy_init() : nullptr;
}

// A Unix socket bound (listen) or connected to path; -1 (errno set) when it fails.
int unix_socket(const std::string &path, bool listen, int type)
{
        const int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
        struct sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
        const auto *at = reinterpret_cast<const sockaddr *>(&address);
        if (fd >= 0 && (listen ? bind(fd, at, sizeof(address)) == 0 && ::listen(fd, 64) == 0
                               : connect(fd, at, sizeof(address)) == 0))
                return fd;
        if (fd >= 0) {
                const int error = errno;
                close(fd);
                errno = error;
        }
        return -1;
}

} // namespace

int unix_listen(const std::string &path, int type)
{
        return unix_socket(path, true, type);
}

int unix_connect(const std::string &path)
{
        return unix_socket(path, false, SOCK_STREAM);
}

long open_descriptors(void)
{
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

HttpClient::HttpClient() : curl_(http_client_new_handle()) {}

HttpClient::~HttpClient()
{
        curl_easy_cleanup(static_cast<CURL *>(curl_));
}

HttpAnswer HttpClient::request(const HttpRequest &request)
{
        CURL *curl = static_cast<CURL *>(curl_);
        HttpAnswer answer;
        struct curl_slist *headers = curl_slist_append(nullptr, "Content-Type: application/json");
        char error[CURL_ERROR_SIZE] = "";

        curl_easy_setopt(curl, CURLOPT_URL, request.url.c_str());
        curl_easy_setopt(curl, CURLOPT_UNIX_SOCKET_PATH,
                         request.unix_socket.empty() ? nullptr : request.unix_socket.c_str());
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method == "POST" ? nullptr : request.method.c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
        if (request.method == "POST") {
                // With this header libcurl sends the fields in chunks, without a length.
                if (request.chunked)
                        headers = curl_slist_append(headers, "Transfer-Encoding: chunked");
                curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.data());
                curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
        }
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, http_client_collect_body);
        curl_easy_setopt(curl, CURLOPT_WRITEDATA, &answer.body);
        curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, request_timeout_ms);
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, error);

        struct curl_header *allow = nullptr, *connection = nullptr;
        if (curl_easy_perform(curl) == CURLE_OK)
                curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &answer.status);
        else
                answer.curl_error = error;
        if (curl_easy_header(curl, "Allow", 0, CURLH_HEADER, -1, &allow) == CURLHE_OK)
                answer.allow = allow->value;
        if (curl_easy_header(curl, "Connection", 0, CURLH_HEADER, -1, &connection) == CURLHE_OK)
                answer.connection = connection->value;
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, nullptr);
        curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, nullptr);
        curl_slist_free_all(headers);
        answer.json.reset(json_loadb(answer.body.data(), answer.body.size(), 0, nullptr));
        return answer;
}

HttpAnswer http_request(const HttpRequest &request)
{
        HttpClient client;
        return client.request(request);
}

HttpAnswer cgi_post(const std::string &unix_socket, const std::string &body)
{
        return http_request({.unix_socket = unix_socket, .body = body});
}

std::string cgi_call_body(const std::string &method, const char *params)
{
        std::string body = R"({"apiVersion": "1.1", "method": ")" + method + "\"";
        if (params)
                body += std::string(", \"params\": ") + params;
        return body + "}";
}

std::string cgi_outcome(const HttpAnswer &answer)
{
        for (const char *member : {"data", "error"})
                if (const json_t *value = json_object_get(answer.json.get(), member))
                        return std::string(member) + ":" + json_compact(value);
        return std::to_string(answer.status) + " " + answer.body + answer.curl_error;
}

std::string json_compact(const json_t *json)
{
        char *text = json ? json_dumps(json, JSON_COMPACT | JSON_ENCODE_ANY) : nullptr;
        std::string copy = text ? text : "";
        free(text);
        return copy;
}

std::string json_member_text(const json_t *object, const char *key)
{
        const char *text = json_string_value(json_object_get(object, key));
        return text ? text : "";
}

json_int_t json_member_integer(const json_t *object, const char *key)
{
        return json_integer_value(json_object_get(object, key));
}

double json_member_number(const json_t *object, const char *key)
{
        return json_number_value(json_object_get(object, key));
}
