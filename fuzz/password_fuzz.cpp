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
        gchar *plain = decrypt_password(text.c_str());
        gchar *again = encrypt_password(plain);
        gchar *back = decrypt_password(again);
        if (strcmp(plain, back) != 0)
                abort();
        g_free(back);
        g_free(again);
        g_free(plain);
        return 0;
}
