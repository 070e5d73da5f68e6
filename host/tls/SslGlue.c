/* The TLS glue of webharbour: CivetWeb 1.15 loads OpenSSL at run time by the names "libssl.so"
 * and "libcrypto.so" and looks its functions up by name. OpenSSL 3 no longer exports
 * SSL_get_peer_certificate (it became a macro for SSL_get1_peer_certificate), so CivetWeb's
 * pointer stays null and the first TLS connection would call address 0.
 *
 * This library carries the soname "libssl.so" and depends on the real libssl.so.3. webharbour
 * loads it by its path before CivetWeb starts; CivetWeb's dlopen("libssl.so") then finds it
 * already loaded (the loader matches loaded objects by soname), and its look-ups search this
 * library first and the real OpenSSL behind it. It also frees the host from the development
 * package's unversioned "libssl.so" link. */
#include <openssl/ssl.h>

#undef SSL_get_peer_certificate

__attribute__((visibility("default"))) X509* SSL_get_peer_certificate(const SSL* ssl) {
    return SSL_get1_peer_certificate(ssl);
}
