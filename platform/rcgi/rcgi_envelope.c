#define _GNU_SOURCE /* vasprintf */
#include "rcgi_envelope.h"

#include <ctype.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* Enough digits for any major number an int holds. */
#define RCGI_MAX_VERSION_DIGITS 9

int rcgi_api_is_complete(const RcgiApi *api)
{
        int i;

        if (!api || api->n_versions < 1 || !api->versions)
                return 0;
        for (i = 0; i < api->n_versions; i++) {
                const RcgiApiVersion *version = &api->versions[i];
                if (!version->methods || !version->map_error_code || !version->error_message)
                        return 0;
        }
        return 1;
}

/* Reads the major number of "M" or "M.m" (decimal digits only); 0 when text is neither. */
static int rcgi_read_version_major(const char *text, int *major)
{
        const char *p = text;

        *major = 0;
        while (isdigit((unsigned char)*p) && p - text < RCGI_MAX_VERSION_DIGITS)
                *major = *major * 10 + (*p++ - '0');
        if (p == text)
                return 0;
        if (*p == '.') {
                const char *minor = ++p;
                while (isdigit((unsigned char)*p))
                        p++;
                if (p == minor)
                        return 0;
        }
        return *p == '\0';
}

static const RcgiApiVersion *rcgi_find_version(const RcgiApi *api, const json_t *version)
{
        int major, i;

        if (!json_is_string(version) || !rcgi_read_version_major(json_string_value(version), &major))
                return NULL;
        for (i = 0; i < api->n_versions; i++)
                if (api->versions[i].major == major)
                        return &api->versions[i];
        return NULL;
}

/* The enabled method of that name, or NULL. */
static const RcgiMethod *rcgi_find_method(const RcgiApiVersion *version, const char *name)
{
        const RcgiMethod *method;

        for (method = version->methods; method->name; method++)
                if (strcmp(method->name, name) == 0)
                        return method->enabled && method->handler ? method : NULL;
        return NULL;
}

/* The answer's head: apiVersion, then the request's context and method as given. */
static json_t *rcgi_answer_new(const RcgiApiVersion *version, const json_t *request)
{
        json_t *answer = json_object();
        json_t *method = json_object_get(request, "method");
        json_t *context = json_object_get(request, "context");

        json_object_set_new(answer, "apiVersion", json_sprintf("%d.%d", version->major, version->minor));
        if (context)
                json_object_set(answer, "context", context);
        if (json_is_string(method))
                json_object_set(answer, "method", method);
        return answer;
}

static void rcgi_answer_error(json_t *answer, const RcgiApiVersion *version, int code, const char *message)
{
        const char *text = message ? message : version->error_message(code);

        json_object_set_new(answer, "error", json_pack("{s:i, s:s}", "code", code, "message", text ? text : ""));
}

static void rcgi_answer_library_error(json_t *answer, const RcgiApiVersion *version, int library_code)
{
        rcgi_answer_error(answer, version, version->map_error_code(library_code), NULL);
}

static void rcgi_call(json_t *answer, const RcgiApiVersion *version, const RcgiMethod *method, json_t *request)
{
        json_t *params = json_object_get(request, "params");
        json_t *no_params = params ? NULL : json_object();
        RcgiRequest call = {
                json_string_value(json_object_get(request, "method")),
                params ? params : no_params,
                json_object_get(request, "context"),
        };
        RcgiResponse response = {NULL, 0, NULL};
        const int code = method->handler(&call, &response);

        if (code != 0)
                rcgi_answer_error(answer, version, code, response.error_message);
        else if (!response.data)
                rcgi_answer_library_error(answer, version, RCGI_ERROR_INTERNAL);
        else
                json_object_set(answer, "data", response.data);
        json_decref(response.data);
        free(response.error_message);
        json_decref(no_params);
}

/* 0 when the request can go to its handler, else the library failure to report; the
 * checks run in the order that decides which of several failures that is. Fills in the
 * version and method as far as they were found. */
static int rcgi_check(const RcgiApi *api, json_t *request, const RcgiApiVersion **version,
                      const RcgiMethod **method)
{
        json_t *name = json_object_get(request, "method");
        json_t *params = json_object_get(request, "params");
        const RcgiApiVersion *found;

        if (!json_is_object(request))
                return RCGI_ERROR_NOT_AN_OBJECT;
        if (!json_is_string(name))
                return RCGI_ERROR_METHOD_MISSING;
        found = rcgi_find_version(api, json_object_get(request, "apiVersion"));
        if (!found)
                return RCGI_ERROR_API_VERSION;
        *version = found;
        *method = rcgi_find_method(found, json_string_value(name));
        if (!*method)
                return RCGI_ERROR_UNKNOWN_METHOD;
        if (params && !json_is_object(params))
                return RCGI_ERROR_PARAMS_TYPE;
        if (!params && (*method)->requires_params)
                return RCGI_ERROR_PARAMS_MISSING;
        return 0;
}

char *rcgi_dispatch(const RcgiApi *api, const char *body, size_t length)
{
        /* Duplicate members are refused: which of two values the caller meant is a guess. */
        json_t *request = json_loadb(body, length, JSON_REJECT_DUPLICATES, NULL);
        const RcgiApiVersion *version = &api->versions[0];
        const RcgiMethod *method = NULL;
        const int failure = rcgi_check(api, request, &version, &method);
        json_t *answer = rcgi_answer_new(version, request);
        char *text;

        if (failure)
                rcgi_answer_library_error(answer, version, failure);
        else
                rcgi_call(answer, version, method, request);
        text = json_dumps(answer, JSON_COMPACT);
        json_decref(answer);
        json_decref(request);
        return text;
}

int rcgi_errorf(RcgiResponse *response, int code, const char *format, ...)
{
        va_list args;
        char *message = NULL;

        va_start(args, format);
        if (vasprintf(&message, format, args) < 0)
                message = NULL;
        va_end(args);
        free(response->error_message);
        response->error_code = code;
        response->error_message = message;
        return code;
}
