// Tls: loading the OpenSSL glue and setting up server contexts.
#include "host/Tls.h"

#include <dlfcn.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

namespace wh {

namespace {

// OpenSSL's reasons for the last failure, oldest first, and the error queue emptied.
std::string OpensslReasons() {
    std::string out;
    char buf[256];
    while (unsigned long e = ERR_get_error()) {
        ERR_error_string_n(e, buf, sizeof(buf));
        if (!out.empty())
            out += "; ";
        out += buf;
    }
    return out.empty() ? "no reason given" : out;
}

// An encrypted key would make OpenSSL ask on the terminal: a server has nobody to answer.
int NoPassword(char*, int, int, void*) {
    return 0;
}

}  // namespace

bool LoadTlsGlue(const std::string& installPath, std::string& error) {
    for (const char* name : {"libwh_cryptoglue.so", "libwh_sslglue.so"}) {
        const std::string path = installPath + "/lib/" + name;
        if (::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL) == nullptr) {
            const char* why = ::dlerror();
            error = "HTTPS needs " + path +
                    ", which cannot be loaded: " + (why != nullptr ? why : "unknown error");
            return false;
        }
    }
    return true;
}

bool ConfigureTlsContext(void* sslCtx, const TlsConfig& tls, std::string& error) {
    SSL_CTX* ctx = static_cast<SSL_CTX*>(sslCtx);
    ERR_clear_error();
    if (SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION) != 1) {
        error = "cannot limit TLS to versions 1.2 and 1.3: " + OpensslReasons();
        return false;
    }
    SSL_CTX_set_options(ctx, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
    SSL_CTX_set_default_passwd_cb(ctx, &NoPassword);
    static const unsigned char kContext[] = "webharbour";
    SSL_CTX_set_session_id_context(ctx, kContext, sizeof(kContext) - 1);
    if (SSL_CTX_use_certificate_chain_file(ctx, tls.certificateFile.c_str()) != 1) {
        error = "[ssl] CertificateFile " + tls.certificateFile +
                " holds no certificate in PEM form that can be used: " + OpensslReasons();
        return false;
    }
    if (SSL_CTX_use_PrivateKey_file(ctx, tls.keyFile.c_str(), SSL_FILETYPE_PEM) != 1) {
        const bool mismatch = ERR_GET_REASON(ERR_peek_last_error()) == X509_R_KEY_VALUES_MISMATCH;
        error = "[ssl] KeyFile " + tls.keyFile +
                (mismatch ? " does not belong to the certificate in " + tls.certificateFile
                          : std::string(" holds no unencrypted private key in PEM form")) +
                ": " + OpensslReasons();
        return false;
    }
    if (SSL_CTX_check_private_key(ctx) != 1) {
        error = "[ssl] KeyFile " + tls.keyFile + " does not belong to the certificate in " +
                tls.certificateFile + ": " + OpensslReasons();
        return false;
    }
    return true;
}

bool CheckTlsFiles(const TlsConfig& tls, std::string& error) {
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    if (ctx == nullptr) {
        error = "cannot set up TLS: " + OpensslReasons();
        return false;
    }
    bool ok = ConfigureTlsContext(ctx, tls, error);
    SSL_CTX_free(ctx);
    return ok;
}

}  // namespace wh
