/* The JSON envelope: one request body in, one answer out, dispatched on an API
 * descriptor. No transport here. */
#pragma once

#include "rcgi.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Nonzero when api can be dispatched on: at least one version, each with a method
 * table and both error functions. */
int rcgi_api_is_complete(const RcgiApi *api);

/* Parses the body, calls the method's handler and returns the answer envelope as JSON
 * text (malloc'd, freed with free), or NULL when it cannot be built. */
char *rcgi_dispatch(const RcgiApi *api, const char *body, size_t length);

#ifdef __cplusplus
}
#endif
