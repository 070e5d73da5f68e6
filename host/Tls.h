// Tls: HTTPS for webharbour - the OpenSSL glue CivetWeb needs, and the server context set up
// from [ssl]: the certificate chain and key from their files, TLS 1.2 and 1.3 only.
#pragma once

#include <string>

#include "host/HostConfig.h"

namespace wh {

// Loads <install>/lib/libwh_sslglue.so and libwh_cryptoglue.so (see host/tls/SslGlue.c) so that
// CivetWeb's OpenSSL look-ups succeed. False with `error` when they cannot be loaded.
bool LoadTlsGlue(const std::string& installPath, std::string& error);

// Sets up `sslCtx` (an SSL_CTX*): protocol versions, certificate chain, private key (an
// encrypted key is refused, never asked for), and the check that the key belongs to the
// certificate. False with `error` naming the [ssl] key, the file and OpenSSL's reason.
bool ConfigureTlsContext(void* sslCtx, const TlsConfig& tls, std::string& error);

// The same on a context of its own, thrown away afterwards: webharbour checks its files before
// it starts serving, so a bad certificate is one clear message at start.
bool CheckTlsFiles(const TlsConfig& tls, std::string& error);

}  // namespace wh
