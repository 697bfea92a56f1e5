// Options that stay on a handle when it is reused. They restrict libcurl's defaults: protocols,
// HTTP/0.9, TLS versions, and redirects, which Transfer follows itself.

#include "KivPlatform/KivRESTService/curl/CurlOptions.h"

#include <string>

namespace kiv {

namespace {

bool setGeneralOptions(void* handle, const TransferSettings& settings) {
  return setOption(handle, CURLOPT_PROTOCOLS_STR, "http,https") &&
         setOption(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https") &&
         // Transfer follows redirects itself, so that the rules hold for each of them.
         setOption(handle, CURLOPT_FOLLOWLOCATION, 0L) &&
         setOption(handle, CURLOPT_HTTP09_ALLOWED, 0L) && setOption(handle, CURLOPT_NOSIGNAL, 1L) &&
         setOption(handle, CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L) &&
         // The host's headers go to the server, not in the CONNECT to the proxy before it.
         setOption(handle, CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE)) &&
         // Cleaning up a handle does not wait for a slow name server.
         setOption(handle, CURLOPT_QUICK_EXIT, 1L) &&
         setOption(handle, CURLOPT_USERAGENT, settings.userAgent.c_str()) &&
         setOption(handle, CURLOPT_NOPROGRESS, 0L);
}

/// The host's proxy is used for all servers; the environment's exceptions do not apply.
bool setProxy(void* handle, const TransferSettings& settings) {
  if (!settings.proxy) return true;
  return setOption(handle, CURLOPT_PROXY, settings.proxy->c_str()) &&
         setOption(handle, CURLOPT_NOPROXY, "");
}

bool setConnectionOptions(void* handle, const TransferSettings& settings) {
  const auto connectTimeout = static_cast<long>(settings.connectTimeout.count());
  return setOption(handle, CURLOPT_CONNECTTIMEOUT_MS, connectTimeout) &&
         setOption(handle, CURLOPT_LOW_SPEED_LIMIT, static_cast<long>(settings.stallSpeed)) &&
         setOption(handle, CURLOPT_LOW_SPEED_TIME,
                   static_cast<long>(settings.stallTimeout.count())) &&
         setProxy(handle, settings);
}

/// libcurl reuses the parsed authorities for further connections only if all of them come from one
/// file. Distributions make it look into a directory too, which contains the same authorities
/// again, and which would be trusted in addition to the host's file. Without a file the directory
/// stays, since it may be the only source.
bool setAuthoritiesDirectory(void* handle, const TransferSettings& settings) {
  char* systemsFile = nullptr;
  const bool isKnown = curl_easy_getinfo(handle, CURLINFO_CAINFO, &systemsFile) == CURLE_OK;
  if (settings.certificateAuthoritiesPath.empty() && !(isKnown && systemsFile)) return true;
  constexpr const char* none = nullptr;
  const CURLcode result = curl_easy_setopt(handle, CURLOPT_CAPATH, none);
  // Some TLS libraries do not support directories.
  return result == CURLE_OK || result == CURLE_NOT_BUILT_IN || result == CURLE_UNKNOWN_OPTION;
}

bool setSecurityOptions(void* handle, const TransferSettings& settings) {
  const std::string& authorities = settings.certificateAuthoritiesPath;
  return setOption(handle, CURLOPT_SSL_VERIFYPEER, 1L) &&
         setOption(handle, CURLOPT_SSL_VERIFYHOST, 2L) &&
         setOption(handle, CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2)) &&
         (authorities.empty() || setOption(handle, CURLOPT_CAINFO, authorities.c_str())) &&
         setAuthoritiesDirectory(handle, settings);
}

}  // namespace

bool setLastingOptions(void* easyHandle, const TransferSettings& settings) {
  return setGeneralOptions(easyHandle, settings) && setConnectionOptions(easyHandle, settings) &&
         setSecurityOptions(easyHandle, settings);
}

}  // namespace kiv
