/* Stand-in for the radar unit's CGI library: JSON methods over HTTP/1.1 on a listening
 * stream socket handed over by systemd (Unix or TCP). The library owns the connections,
 * the request and response envelope, method dispatch and its own failures; the caller
 * supplies an API descriptor per path and watches one descriptor on its main loop.
 *
 * Envelope, one request per POST to a registered path:
 *   request:  {"apiVersion": "1.1", "context": any, "method": "name", "params": {...}}
 *   success:  {"apiVersion": "1.1", "context": echoed, "method": "name", "data": ...}
 *   failure:  {"apiVersion": "1.1", "context": echoed, "method": "name",
 *              "error": {"code": N, "message": "..."}}
 * HTTP status 200 for every envelope; 404 for another path, 405 (Allow: POST) for
 * another HTTP method, 413 for a body over RCGI_MAX_BODY_SIZE. Those carry no envelope.
 *
 * Everything runs on the thread whose main context was the thread-default one at
 * rcgi_new; handlers are called there, one request at a time. */
#pragma once

#include <jansson.h>

#ifdef __cplusplus
extern "C" {
#endif

#define RCGI_MAX_BODY_SIZE (64 * 1024)

/* The library's own failures, reported through the descriptor's map_error_code. When
 * several apply, the first of -7, -1, -5, -4, -3, -2 wins. */
enum {
        RCGI_ERROR_NOT_AN_OBJECT = -7,   /* the body is not a JSON object */
        RCGI_ERROR_INTERNAL = -6,        /* the library failed (or a handler answered nothing) */
        RCGI_ERROR_API_VERSION = -5,     /* "apiVersion" missing, not a string, or unknown major */
        RCGI_ERROR_UNKNOWN_METHOD = -4,  /* no such method, or the method is not enabled */
        RCGI_ERROR_PARAMS_TYPE = -3,     /* "params" present but not an object */
        RCGI_ERROR_PARAMS_MISSING = -2,  /* the method requires "params" */
        RCGI_ERROR_METHOD_MISSING = -1,  /* "method" missing or not a string */
};

typedef struct RcgiHandle RcgiHandle;

/* What a handler sees of a request. */
typedef struct {
        const char *method;
        json_t *params;        /* always an object: an empty one when the request had none */
        const json_t *context; /* NULL when the request had none */
} RcgiRequest;

/* A handler's answer. On success the handler stores its result in data (the library
 * takes that reference); on failure it returns an API code, optionally after
 * rcgi_errorf. The error fields belong to rcgi_errorf. */
typedef struct {
        json_t *data;
        int error_code;
        char *error_message;
} RcgiResponse;

/* 0 after setting response->data; otherwise an API error code. */
typedef int (*RcgiHandler)(const RcgiRequest *request, RcgiResponse *response);

typedef struct {
        const char *name;
        RcgiHandler handler;
        int requires_params; /* 1: a call without "params" fails with RCGI_ERROR_PARAMS_MISSING */
        int enabled;         /* 0: the method answers as unknown */
} RcgiMethod;

/* API code for one of the library's own failure codes. */
typedef int (*RcgiMapErrorCode)(int library_code);
/* The message for an API code; never NULL. */
typedef const char *(*RcgiErrorMessage)(int api_code);

typedef struct {
        int major;
        int minor;
        const RcgiMethod *methods; /* ended by an entry whose fields are all zero */
        RcgiMapErrorCode map_error_code;
        RcgiErrorMessage error_message;
        const void *reserved; /* NULL */
} RcgiApiVersion;

typedef struct {
        int n_versions;
        const RcgiApiVersion *versions; /* the first answers requests that name no known version */
        const void *reserved;           /* NULL */
} RcgiApi;

/* Wraps the listening stream socket fd (not taken over: rcgi_free leaves it open) and
 * yields the descriptor to watch for input. flags must be 0. 0, or a negative errno:
 * -ENOTSOCK, -EBADF, -ESOCKTNOSUPPORT (not a stream socket), -EINVAL (not listening,
 * unknown flags, NULL pointers). */
int rcgi_new(int fd, int flags, RcgiHandle **handle, int *watch_fd);

/* Serves api at path (exact match, query ignored). The descriptor must outlive the
 * handle. 0, -EINVAL (path not absolute, incomplete descriptor) or -EEXIST. */
int rcgi_add_path(RcgiHandle *handle, const char *path, const RcgiApi *api);

/* Call when the watched descriptor is readable: accepts the pending connections without
 * blocking and serves them asynchronously. The number accepted, or a negative errno
 * when accepting failed. */
int rcgi_perform(RcgiHandle *handle);

/* Attaches code and the formatted message to the response; returns code, so that a
 * handler can end with `return rcgi_errorf(...)`. */
int rcgi_errorf(RcgiResponse *response, int code, const char *format, ...)
        __attribute__((format(printf, 3, 4)));

/* Closes every client connection and frees the handle; NULL does nothing. */
void rcgi_free(RcgiHandle *handle);

#ifdef __cplusplus
}
#endif
