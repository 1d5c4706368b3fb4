// The stored password text as the configuration file may hold it, through decryption;
// whatever it decrypts to must survive encryption and decryption unchanged.
#include "credentials.h"
#include "fuzz_support.h"

#include <cstdlib>
#include <cstring>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
        fuzz_quiet_logs();
        return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
        const std::string text = fuzz_text(data, size);
        g_autofree gchar *plain = decrypt_password(text.c_str());
        g_autofree gchar *again = encrypt_password(plain);
        g_autofree gchar *back = decrypt_password(again);
        if (strcmp(plain, back) != 0)
                abort();
        return 0;
}
