// The CGI's API descriptor: what the radar CGI library dispatches each request body on.
// Exposed so that a body can go through the envelope and the handlers without a socket.
#pragma once

#include "rcgi.h"

const RcgiApi *cgi_api_descriptor(void);
