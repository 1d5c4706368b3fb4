#include "camera_tls.h"

#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <memory>
#include <string>

namespace {

template <auto release> struct Releaser {
        template <typename T> void operator()(T *object) const { release(object); }
};
using PkeyPtr = std::unique_ptr<EVP_PKEY, Releaser<EVP_PKEY_free>>;
using X509Ptr = std::unique_ptr<X509, Releaser<X509_free>>;
using BioPtr = std::unique_ptr<BIO, Releaser<BIO_free>>;

constexpr long validity_s = 10L * 365 * 24 * 3600;

bool simcam_tls_fail(GError **error, const char *what)
{
        g_set_error(error, G_IO_ERROR, G_IO_ERROR_FAILED, "certificate: %s failed", what);
        return false;
}

bool simcam_tls_sign(X509 *certificate, EVP_PKEY *key, const char *common_name)
{
        X509_NAME *name = X509_get_subject_name(certificate);
        return X509_set_version(certificate, 2) && ASN1_INTEGER_set(X509_get_serialNumber(certificate), 1) &&
               X509_gmtime_adj(X509_getm_notBefore(certificate), -24 * 3600) &&
               X509_gmtime_adj(X509_getm_notAfter(certificate), validity_s) && X509_set_pubkey(certificate, key) &&
               X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char *>(common_name),
                                          -1, -1, 0) &&
               X509_set_issuer_name(certificate, name) && X509_sign(certificate, key, EVP_sha256()) > 0;
}

// Certificate and key, PEM, one after the other: the form GIO reads both from.
bool simcam_tls_pem(X509 *certificate, EVP_PKEY *key, std::string *pem)
{
        BioPtr bio(BIO_new(BIO_s_mem()));
        if (!bio || !PEM_write_bio_X509(bio.get(), certificate) ||
            !PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr))
                return false;
        char *data = nullptr;
        const long length = BIO_get_mem_data(bio.get(), &data);
        pem->assign(data, static_cast<size_t>(length));
        return true;
}

} // namespace

GTlsCertificate *simcam_tls_certificate_new(const char *common_name, GError **error)
{
        PkeyPtr key(EVP_EC_gen("P-256"));
        if (!key)
                return simcam_tls_fail(error, "key generation"), nullptr;
        X509Ptr certificate(X509_new());
        if (!certificate || !simcam_tls_sign(certificate.get(), key.get(), common_name))
                return simcam_tls_fail(error, "signing"), nullptr;
        std::string pem;
        if (!simcam_tls_pem(certificate.get(), key.get(), &pem))
                return simcam_tls_fail(error, "PEM encoding"), nullptr;
        return g_tls_certificate_new_from_pem(pem.c_str(), static_cast<gssize>(pem.size()), error);
}
