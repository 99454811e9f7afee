#include "common/secret_text.h"

bool UriPasswordSpan(const std::string& uri, size_t* begin, size_t* end) {
  const size_t scheme = uri.find("://");
  if (scheme == std::string::npos) return false;
  const size_t authority = scheme + 3;
  // The user part ends at the last '@' before the path.
  size_t hostEnd = uri.find_first_of("/?#", authority);
  if (hostEnd == std::string::npos) hostEnd = uri.size();
  const size_t at = uri.rfind('@', hostEnd == 0 ? 0 : hostEnd - 1);
  if (at == std::string::npos || at < authority) return false;
  const size_t colon = uri.find(':', authority);
  if (colon == std::string::npos || colon > at) return false;
  *begin = colon + 1;
  *end = at;
  return true;
}

std::string MaskUriPassword(const std::string& uri) {
  size_t begin = 0, end = 0;
  if (!UriPasswordSpan(uri, &begin, &end)) return uri;
  return uri.substr(0, begin) + "********" + uri.substr(end);
}
