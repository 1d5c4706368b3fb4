// The HTTPS port's certificate: self-signed, made in memory at start, never stored.
#pragma once

#include <gio/gio.h>

// A new certificate with its private key (EC P-256), issued to common_name, valid from
// a day ago for ten years. Null with *error set when OpenSSL or GIO's TLS refuse.
GTlsCertificate *simcam_tls_certificate_new(const char *common_name, GError **error);
