// The camera password at rest: AES-256-CBC under a key and IV derived from eth0's
// hardware address, so a stored password opens only on the unit that stored it.
#pragma once

#include <glib.h>

#define CREDENTIALS_KEY_LENGTH 32
#define CREDENTIALS_IV_LENGTH 16

// Lowercase hex of the cipher text of the password with its terminating NUL; caller frees.
gchar *encrypt_password(const gchar *plain);
// The plain password of a hex text (either case; NULL or "" give ""); caller frees.
gchar *decrypt_password(const gchar *text);
// Fills the 32-byte key and the 16-byte IV for this unit.
void derive_key_and_iv(unsigned char *key, unsigned char *iv);
