/* The second half of webharbour's TLS glue (see SslGlue.c): a library with the soname
 * "libcrypto.so" that depends on the real libcrypto.so.3 and adds nothing, so that CivetWeb's
 * dlopen("libcrypto.so") finds OpenSSL without the development package's unversioned link. */
#include <openssl/crypto.h>

__attribute__((visibility("default"))) unsigned long wh_crypto_glue_version(void) {
    return OpenSSL_version_num();
}
