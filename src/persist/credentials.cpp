#include "credentials.h"

#include "log.h"

#include <openssl/evp.h>

#include <cstring>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr unsigned char salt[8] = {0x3d, 0x7a, 0xc4, 0x19, 0xe2, 0x58, 0x0f, 0xb6};
constexpr int derivation_rounds = 5;
constexpr size_t mac_length = 6;
constexpr int cipher_block = 16;
constexpr gsize longest_text = G_MAXUINT16;

// eth0's hardware address. When it cannot be read, both failures are logged and the
// address stays six zero bytes: the same on every call, so a password stored in such a
// run still decrypts in that run.
// "%m" (the C library's text for errno) is a GNU extension that the pedantic format
// check refuses; the lines below use it for the failing call's own reason.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"
void get_mac_address(unsigned char mac[mac_length])
{
        // Zeroed: a failed query leaves the address as it was.
        struct ifreq request = {};
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        if (fd < 0)
                log_error("%s%s: socket: %m", __func__);
        g_strlcpy(request.ifr_name, "eth0", IFNAMSIZ);
        if (ioctl(fd, SIOCGIFHWADDR, &request) < 0)
                log_error("%s%s: ioctl(SIOCGIFHWADDR): %m", __func__);
        memcpy(mac, request.ifr_hwaddr.sa_data, mac_length);
        if (fd >= 0)
                close(fd);
}
#pragma GCC diagnostic pop

// Letters count on from 10 in either case, so "A" and "a" are both 10.
unsigned hex_digit(char c)
{
        if (c >= '0' && c <= '9')
                return static_cast<unsigned>(c - '0');
        if (c >= 'a' && c <= 'z')
                return static_cast<unsigned>(c - 'a' + 10);
        if (c >= 'A' && c <= 'Z')
                return static_cast<unsigned>(c - 'A' + 10);
        return 0;
}

gchar *to_hex(const unsigned char *bytes, int length)
{
        GString *text = g_string_new(nullptr);
        for (int i = 0; i < length; i++)
                g_string_append_printf(text, "%02x", bytes[i]);
        return g_string_free(text, FALSE);
}

} // namespace

void derive_key_and_iv(unsigned char *key, unsigned char *iv)
{
        unsigned char mac[mac_length] = {0};
        memset(key, 0, CREDENTIALS_KEY_LENGTH);
        memset(iv, 0, CREDENTIALS_IV_LENGTH);
        get_mac_address(mac);
        const int length = EVP_BytesToKey(EVP_aes_256_cbc(), EVP_sha1(), salt, mac, static_cast<int>(mac_length),
                                          derivation_rounds, key, iv);
        if (length != CREDENTIALS_KEY_LENGTH)
                log_error("%sKey size is %d bits - should be 256 bits\n", length * 8);
}

gchar *encrypt_password(const gchar *plain)
{
        // The terminating NUL is encrypted too: it marks the end on the way back.
        const int length = static_cast<int>(strlen(plain)) + 1;
        unsigned char *cipher = static_cast<unsigned char *>(g_malloc(static_cast<gsize>(length) + cipher_block));
        unsigned char key[CREDENTIALS_KEY_LENGTH];
        unsigned char iv[CREDENTIALS_IV_LENGTH];
        derive_key_and_iv(key, iv);

        EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
        int written = 0;
        int final_written = 0;
        EVP_EncryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, iv);
        EVP_EncryptUpdate(context, cipher, &written, reinterpret_cast<const unsigned char *>(plain), length);
        EVP_EncryptFinal_ex(context, cipher + written, &final_written);
        EVP_CIPHER_CTX_free(context);
        OPENSSL_cleanse(key, sizeof(key));

        gchar *text = to_hex(cipher, written + final_written);
        g_free(cipher);
        return text;
}

gchar *decrypt_password(const gchar *text)
{
        if (!text || !*text)
                return g_strdup("");
        // A single digit holds no byte: the empty password.
        const gsize pairs = MIN(strlen(text), longest_text) / 2;
        if (pairs == 0)
                return g_strdup("");

        unsigned char *cipher = static_cast<unsigned char *>(g_malloc(pairs));
        for (gsize i = 0; i < pairs; i++)
                cipher[i] = static_cast<unsigned char>(hex_digit(text[2 * i]) * 16 + hex_digit(text[2 * i + 1]));
        unsigned char key[CREDENTIALS_KEY_LENGTH];
        unsigned char iv[CREDENTIALS_IV_LENGTH];
        derive_key_and_iv(key, iv);

        // Room for what OpenSSL may write in one update, and for the closing NUL.
        gchar *plain = static_cast<gchar *>(g_malloc0(pairs + cipher_block + 1));
        auto *out = reinterpret_cast<unsigned char *>(plain);
        EVP_CIPHER_CTX *context = EVP_CIPHER_CTX_new();
        int written = 0;
        int final_written = 0;
        EVP_DecryptInit_ex(context, EVP_aes_256_cbc(), nullptr, key, iv);
        EVP_DecryptUpdate(context, out, &written, cipher, static_cast<int>(pairs));
        // A text from another unit or a damaged one fails the padding check here; what
        // was decrypted before the last block is kept and the camera will refuse it.
        if (EVP_DecryptFinal_ex(context, out + written, &final_written) != 1)
                final_written = 0;
        EVP_CIPHER_CTX_free(context);
        OPENSSL_cleanse(key, sizeof(key));
        g_free(cipher);

        plain[written + final_written] = '\0';
        return plain;
}
